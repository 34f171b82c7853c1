#!/usr/bin/env bash
# Palettisation and quantisation on the corpus files that hold images.
# Each file is written three times with settings that change nothing else
# about images: a baseline (no colour reduction), with palettisation, and
# with palettisation and quantisation (256 colours).  A file passes when
#   - every run exits 0 without "Error during processing" (files the
#     manifest marks as damaged beyond repair may be refused cleanly);
#   - both outputs pass `qpdf --check` and keep the page count;
#   - the pages whose images changed against the baseline (found with
#     `pdfimages -list`, at most three per run) render (pdftoppm, 72 dpi)
#     identically to the baseline after palettisation, and at a PSNR of at
#     least 30 dB after quantisation.
# Files without images in the manifest's traits are skipped.  Over the
# 49-file corpus the stage takes about a minute of processor time (three
# runs of the 20 files with images, plus the renders).
#
#   80-palette.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../corpus-lib.sh"
corpus="$1"; build="$2"; work="$3"
manifest="$corpus/MANIFEST.tsv"
bin="$(find_program "$build" trimora)"
[ -f "$manifest" ] || { echo "SKIP $corpus: no MANIFEST.tsv"; exit 0; }
have_qpdf=1; command -v qpdf > /dev/null 2>&1 || have_qpdf=0
have_render=1
for t in pdftoppm pdfimages python3; do command -v "$t" > /dev/null 2>&1 || have_render=0; done

settings() {  # settings NAME PALETTIZE QUANTIZE
  cat > "$work/$1.tmc" << EOF
<trimora>
  <target name="$1" pdfMajorVersion="0" pdfMinorVersion="0" precision="5" eval-units="Points">
    <optimize><flate-level>6</flate-level></optimize>
    <images>
      <allow-palettization>$2</allow-palettization>
      <allow-quantization max-colors="256">$3</allow-quantization>
    </images>
  </target>
</trimora>
EOF
}
settings base false false
settings pal true false
settings quant true true


# The pages (at most three) whose image list differs between two files:
# page, colour, components, depth and size of each image, in order.
changed_pages() {
  diff <(pdfimages -list ${password:+-upw "$password"} "$1" 2> /dev/null | awk 'NR > 2 {print $1, $6, $7, $8, $15}') \
       <(pdfimages -list ${password:+-upw "$password"} "$2" 2> /dev/null | awk 'NR > 2 {print $1, $6, $7, $8, $15}') |
    awk '/^[<>]/ {print $2}' | sort -n -u | head -3
}

run() {  # run NAME IN OUT: 0 when the run went through
  timeout -k 5 300 "$bin" -f "$work/$1.tmc" -report ${password:+-openPass "$password"} -o "$3" "$2" \
    > "$work/$1.txt" 2>&1
  local rc=$?
  if [ "$rc" -ne 0 ]; then
    run_error="exit status $rc"
    return 1
  fi
  if grep -q "Error during processing" "$work/$1.txt"; then
    run_error="$(grep -m1 'Error during processing' "$work/$1.txt")"
    return 1
  fi
  return 0
}

tail -n +2 "$manifest" | while IFS=$'\t' read -r file _ pages _ _ traits; do
  in="$corpus/$file"
  case ",$traits," in
    *,images-*|*,photo,*) ;;
    *) echo "SKIP $file: no images"; continue ;;
  esac
  [ -f "$in" ] || { echo "SKIP $file: not in the corpus folder"; continue; }
  [ -n "$bin" ] || { echo "SKIP $file: trimora is not built"; continue; }
  read_traits "$traits"
  base="$work/base.pdf"; rm -f "$work"/*.pdf
  run_error=""
  if ! run base "$in" "$base"; then
    if [ "$broken" = 1 ] && [ "$damaged" = 1 ]; then
      echo "PASS $file: refused cleanly ($run_error)"
    else
      echo "FAIL $file: baseline run: $run_error"
    fi
    continue
  fi
  problems=(); notes=()
  for name in pal quant; do
    out="$work/$name.pdf"
    if ! run "$name" "$in" "$out"; then problems+=("$name run: $run_error"); continue; fi
    check_output "$in" "$out"
    counts="$(grep -E -o '(Palettized|Quantized) [0-9]+' "$work/$name.txt" | tr '\n' ' ' | sed 's/ $//')"
    notes+=("$name $(stat -c %s "$out") bytes${counts:+ ($counts)}")
    [ "$have_render" = 1 ] || continue
    for page in $(changed_pages "$base" "$out"); do
      rm -f "$work"/a-* "$work"/b-*
      pdftoppm -q -r 72 -f "$page" -l "$page" ${password:+-upw "$password"} "$base" "$work/a" 2> /dev/null
      pdftoppm -q -r 72 -f "$page" -l "$page" ${password:+-upw "$password"} "$out" "$work/b" 2> /dev/null
      a="$(ls "$work"/a-* 2> /dev/null | head -1)"; b="$(ls "$work"/b-* 2> /dev/null | head -1)"
      if [ -z "$a" ] || [ -z "$b" ]; then problems+=("$name: page $page did not render"); continue; fi
      db="$(psnr "$a" "$b")"
      if [ "$name" = pal ]; then
        [ "$db" = "inf" ] || problems+=("palettised page $page differs ($db dB)")
      else
        notes+=("page $page at $db dB")
        [ "$db" = "size" ] && { problems+=("page $page changed size"); continue; }
        if [ "$db" != "inf" ] && awk -v x="$db" 'BEGIN{exit !(x < 30)}'; then
          problems+=("quantised page $page at $db dB")
        fi
      fi
    done
  done
  if [ ${#problems[@]} -eq 0 ]; then
    echo "PASS $file: base $(stat -c %s "$base") bytes, ${notes[*]}"
  else
    echo "FAIL $file: ${problems[*]}"
  fi
  rm -f "$work"/*.pdf "$work"/a-* "$work"/b-*
done
