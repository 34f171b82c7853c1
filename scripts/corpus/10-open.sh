#!/usr/bin/env bash
# Corpus stage: every PDF opens, every object loads, and the page count
# matches qpdf's.  Called as: 10-open.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -u
corpus="$1"; build="$2"
inspect="$build/tools/tminspect"
manifest="$corpus/MANIFEST.tsv"
for f in "$corpus"/*.pdf; do
  name="$(basename "$f")"
  pw=""
  if [ -f "$manifest" ]; then
    pw="$(awk -F'\t' -v n="$name" '$1 == n { if (match($6, /userpw=[^,]*/)) print substr($6, RSTART + 7, RLENGTH - 7) }' "$manifest")"
  fi
  qargs=()
  [ -n "$pw" ] && qargs=(--password="$pw")
  # qpdf exits 3 when it opened the file with warnings (a repaired file).
  want="$(qpdf "${qargs[@]}" --show-npages "$f" 2>/dev/null)"
  rc=$?
  if { [ $rc -ne 0 ] && [ $rc -ne 3 ]; } || ! [[ "$want" =~ ^[0-9]+$ ]]; then
    echo "SKIP $name (qpdf cannot open it)"
    continue
  fi
  targs=()
  [ -n "$pw" ] && targs=(--password "$pw")
  if ! out="$(timeout 120 "$inspect" "$f" --load-all "${targs[@]}" 2>&1)"; then
    echo "FAIL $name ($(echo "$out" | tail -1))"
    continue
  fi
  got="$(echo "$out" | sed -n 's/^pages: //p')"
  if [ "$got" = "$want" ]; then
    echo "PASS $name ($got pages, $(echo "$out" | sed -n 's/^loaded: //p') objects)"
  else
    echo "FAIL $name (pages $got, qpdf says $want)"
  fi
done
