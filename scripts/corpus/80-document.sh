#!/usr/bin/env bash
# Document clean-up: trimora with the default clean-up plus named
# destinations and threads removed, page labels removed when they are plain
# numbers, and optional content removed, on a copy of every corpus file
# (images and fonts left alone to keep the stage quick).  A file passes
# when the run ends without "Error during processing", the output passes
# `qpdf --check`, keeps its page count, has no named destinations left
# (unless a damaged tree was reported and kept), and every bookmark and
# every link of the first 40 pages still leads where it did: mutool lists
# the outline and resolves each link before and after, and the lists must
# be equal.  A bookmark tree that the clean-up removed as empty is named.
# When the lists differ from the input's, a run with the same settings but
# destinations, labels, threads and optional content kept is the judge: a
# difference that run shows too (a damaged input read differently, numbers
# written at the output's precision) is not the clean-up's and is named.
#
#   80-document.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../corpus-lib.sh"
corpus="$1"; build="$2"; work="$3"
manifest="$corpus/MANIFEST.tsv"
bin=""
for t in "$build/frontend/trimora" "$build/trimora"; do
  [ -x "$t" ] && { bin="$t"; break; }
done
[ -f "$manifest" ] || { echo "SKIP $corpus: no MANIFEST.tsv"; exit 0; }
[ -n "$bin" ] || { echo "SKIP $corpus: trimora is not built"; exit 0; }
command -v mutool > /dev/null 2>&1 || { echo "SKIP $corpus: mutool is not installed"; exit 0; }
have_qpdf=1; command -v qpdf > /dev/null 2>&1 || have_qpdf=0

settings="$work/document.tmc"
cat > "$settings" <<'EOF'
<?xml version = "1.0" encoding = "UTF-8"?>
<trimora>
  <target name="Document clean-up" pdfMajorVersion="0" pdfMinorVersion="0" precision="5" eval-units="Points">
    <optimize>
      <remove-outlines>false</remove-outlines>
      <remove-ocgs>true</remove-ocgs>
      <remove-threads>Remove</remove-threads>
      <remove-named-dests>Remove</remove-named-dests>
      <remove-page-labels>RemoveUnused</remove-page-labels>
    </optimize>
    <images>
      <color><downsample above="450" resolution="300" using="none"/><compression filter="Original"/></color>
      <grayscale><downsample above="450" resolution="300" using="none"/><compression filter="Original"/></grayscale>
      <mono><downsample above="1800" resolution="1200" using="none"/><compression filter="Original"/></mono>
    </images>
    <fonts><embed>false</embed><subset>false</subset><outline>false</outline></fonts>
  </target>
</trimora>
EOF

sed -e 's|<remove-ocgs>true|<remove-ocgs>false|' -e 's|>Remove<|>None<|g' -e 's|>RemoveUnused<|>None<|' \
  "$settings" > "$work/baseline.tmc"

# Every link of the first 40 pages with its target resolved to a page and
# a position (a named destination through the document's names).
links_js="$work/links.js"
cat > "$links_js" <<'EOF'
var doc = new PDFDocument(scriptArgs[0]);
var n = Math.min(doc.countPages(), 40);
for (var i = 0; i < n; ++i) {
  var links = doc.loadPage(i).getLinks();
  for (var j = 0; j < links.length; ++j) {
    var u = links[j].uri, t = u;
    if (u && u.charAt(0) == '#') {
      try { var r = doc.resolveLink(u); t = '#' + (typeof r == 'object' ? JSON.stringify(r) : r); }
      catch (e) { t = '!' + u; }
    }
    print((i + 1) + ' ' + t);
  }
}
EOF

while IFS=$'\t' read -r file _ pages _ _ traits; do
  in="$corpus/$file"
  [ -f "$in" ] || { echo "SKIP $file: not in the corpus folder"; continue; }
  read_traits "$traits"
  copy="$work/$file"
  cp "$in" "$copy" && chmod u+w "$copy"
  timeout -k 5 300 "$bin" -f "$settings" -report ${password:+-openPass "$password"} "$copy" \
    > "$work/out.txt" 2> "$work/err.txt"
  rc=$?
  if [ "$rc" -ne 0 ]; then
    echo "FAIL $file: exit status $rc"; rm -f "$copy"; continue
  fi
  if grep -q "Error during processing" "$work/err.txt"; then
    if [ "$broken" = 1 ] && [ "$damaged" = 1 ] && cmp -s "$in" "$copy"; then
      echo "PASS $file: refused cleanly"
    else
      echo "FAIL $file: $(grep -m1 'Error during processing' "$work/err.txt")"
    fi
    rm -f "$copy"; continue
  fi
  problems=(); notes=()
  check_output "$in" "$copy"
  mu=(${password:+-p "$password"})
  lists() {  # pdf prefix: the bookmark and link lists of a file
    mutool show "${mu[@]}" "$1" outline > "$work/ol-$2.txt" 2> /dev/null
    : > "$work/ln-$2.txt"
    [ -n "$password" ] || timeout 120 mutool run "$links_js" "$1" > "$work/ln-$2.txt" 2> /dev/null
  }
  lists "$in" in
  lists "$copy" out
  emptied=0
  grep -q "Removed unnecessary Empty Bookmarks" "$work/out.txt" "$work/err.txt" && emptied=1
  [ "$emptied" = 1 ] && { notes+=("empty bookmark tree removed"); cp "$work/ol-out.txt" "$work/ol-in.txt"; }
  if ! cmp -s "$work/ol-in.txt" "$work/ol-out.txt" || ! cmp -s "$work/ln-in.txt" "$work/ln-out.txt"; then
    base="$work/base-$file"
    cp "$in" "$base" && chmod u+w "$base"
    timeout -k 5 300 "$bin" -f "$work/baseline.tmc" ${password:+-openPass "$password"} "$base" > /dev/null 2>&1
    lists "$base" in
    [ "$emptied" = 1 ] && cp "$work/ol-out.txt" "$work/ol-in.txt"
    rm -f "$base"
    notes+=("compared with a save that keeps the names")
  fi
  cmp -s "$work/ol-in.txt" "$work/ol-out.txt" \
    || problems+=("bookmarks differ: $(diff "$work/ol-in.txt" "$work/ol-out.txt" | grep -m1 '^[<>]')")
  cmp -s "$work/ln-in.txt" "$work/ln-out.txt" \
    || problems+=("links differ: $(diff "$work/ln-in.txt" "$work/ln-out.txt" | grep -m1 '^[<>]')")
  if ! grep -q "Skipping named destinations" "$work/out.txt" "$work/err.txt"; then
    for key in trailer/Root/Dests trailer/Root/Names/Dests; do
      v=$(mutool show "${mu[@]}" "$copy" "$key" 2> /dev/null | head -1)
      [ -z "$v" ] || [ "$v" = "null" ] || problems+=("$key is still there")
    done
  fi
  n_links=$(wc -l < "$work/ln-out.txt")
  n_items=$(wc -l < "$work/ol-out.txt")
  if [ ${#problems[@]} -eq 0 ]; then
    echo "PASS $file: $n_items bookmarks, $n_links links checked${notes:+ (${notes[*]})}"
  else
    echo "FAIL $file: ${problems[*]}"
  fi
  rm -f "$copy" "$work"/ol-*.txt "$work"/ln-*.txt
done < <(tail -n +2 "$manifest")
