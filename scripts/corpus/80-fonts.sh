#!/usr/bin/env bash
# Fonts: subsetting and embedding on real files.
#
#   - Every corpus file with fonts on its pages goes through
#     examples/lossless-cleanup.tmc (fonts subset, nothing else that changes
#     a page).  It passes when the output gives the same text as the input
#     (pdftotext, whole document), renders pages 1-3 alike (72 dpi; pages
#     whose pixels differ must reach 40 dB, compare-render.sh's "same";
#     pages in `known_below` may go down to their floor), passes
#     `qpdf --check` with no more warnings than the input and keeps its page
#     count, and when pdffonts shows, for every font name but Type 3 fonts:
#       * a font embedded whole in the input is embedded as a subset (its
#         name carries a tag), or still embedded but converted to another
#         font type (a Type 1 program rewritten as CFF, say); no embedded
#         whole program of the input's type is left, and each program of
#         that font in the output is smaller, decoded, than the input's
#         whole program (bench/font-bytes.py --decoded);
#       * a font embedded in the input is still embedded;
#       * no font is listed without embedding more often than in the input.
#   - Files with fonts that are not embedded (the manifest's
#     fonts-nonembedded trait, or a font pdffonts lists with "no" under
#     "emb") go through the same settings with embedding on.  Such a file
#     passes when every font that has a metric-compatible free font on the
#     system (the standard 14, Arial, Times New Roman, Courier New) is then
#     embedded, the text is unchanged, pages 1-3 render at 40 dB or more
#     and `qpdf --check` and the page count hold as above.  Fonts left
#     without embedding are named on the line.
#
# Damaged inputs are skipped (the damaged-file stage covers them), and so
# are files with no font on their pages (pdffonts lists none: scans,
# photos, vector art; a form's default fonts are not drawn).  Files larger
# than FONTS_MAX_BYTES (default 8000000: the 1300-page manual of the
# corpus, whose text extraction, font listing and check alone take half a
# minute) are skipped and named, to keep the stage short.
#
#   80-fonts.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../corpus-lib.sh"
corpus="$1"; build="$2"; work="$3"
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
preset="$root/examples/lossless-cleanup.tmc"
manifest="$corpus/MANIFEST.tsv"
compare="$corpus/../bench/compare-render.sh"
font_bytes="$root/bench/font-bytes.py"
max_bytes="${FONTS_MAX_BYTES:-8000000}"
threshold=40
bin="$(find_program "$build" trimora)"
[ -f "$manifest" ] || { echo "SKIP $corpus: no MANIFEST.tsv"; exit 0; }
[ -n "$bin" ] || { echo "SKIP $corpus: trimora is not built"; exit 0; }
# Run on its own, the stage installs its tools; under corpus-check.sh they
# are there already and this costs a dpkg query.
( source "$root/scripts/common.sh" && install_missing qpdf poppler-utils python3 ) || true
for t in qpdf pdffonts pdftotext pdftoppm pdfinfo python3; do
  command -v "$t" > /dev/null 2>&1 || { echo "SKIP $corpus: $t is missing"; exit 0; }
done

# Embedding on, everything else as in the lossless preset.
embed_settings="$work/embed.tmc"
sed 's|<embed>false</embed>|<embed>true</embed>|' "$preset" > "$embed_settings"
grep -q '<embed>true</embed>' "$embed_settings" || { echo "FAIL $preset: no <embed>false</embed> to turn on"; exit 1; }
grep -q '<subset>true</subset>' "$preset" || { echo "FAIL $preset: it no longer subsets fonts"; exit 1; }

# file:page -> "floor reason" for pages that may render below $threshold.
declare -A known_below=()
# file -> fonts that stay whole because the file draws every glyph they
# have (a subset would be the whole font again).
declare -A known_whole=(
  [amsguide-pdf12.pdf]="MSAM10"  # the guide's symbol tables show all 129 glyphs
)

# joined: the caller's `problems`, separated by "; ".
joined() { local IFS=$'\x1f'; local s="${problems[*]}"; echo "${s//$'\x1f'/; }"; }

# fonts FILE OUT: pdffonts' list of FILE as "name<TAB>type<TAB>emb<TAB>sub"
# lines (names may hold spaces, types do: "Type 1C", "CID TrueType (OT)").
fonts() {
  pdffonts ${password:+-upw "$password"} "$1" 2> /dev/null | python3 -c '
import re, sys
kind = re.compile(r"^(.*?)\s+((?:CID )?(?:Type 1C|Type 1|Type 0C|Type 0|Type 3|TrueType)(?: \(OT\))?|unknown)\s*$")
for line in sys.stdin.read().splitlines()[2:]:
    parts = line.rsplit(None, 6)
    if len(parts) != 7:
        continue
    m = kind.match(parts[0])
    if not m:
        print("?\t?\t%s\t%s" % (parts[2], parts[3])); continue
    print("%s\t%s\t%s\t%s" % (m.group(1), m.group(2), parts[2], parts[3]))
' > "$2"
}

# subset_problems IN-LIST OUT-LIST [WHOLE-NAMES]: one line per font of
# IN-LIST whose embedding the output lost, or that is still embedded whole
# (but for the names in WHOLE-NAMES).
subset_problems() {
  python3 - "$1" "$2" "${3:-}" << 'PY'
import re, sys
def load(path):
    rows = []
    for line in open(path, encoding='utf-8', errors='replace'):
        name, kind, emb, sub = line.rstrip('\n').split('\t')
        if kind == 'Type 3' or name == '[none]':
            continue  # glyphs drawn by content streams: nothing to subset
        tagged = bool(re.match(r'^[A-Z]{6}\+', name))
        rows.append((re.sub(r'^[A-Z]{6}\+', '', name), kind, emb == 'yes', tagged or sub == 'yes'))
    return rows
inp, out = load(sys.argv[1]), load(sys.argv[2])
found = {}
def say(what, item):
    found.setdefault(what, []).append(item)
for base in sorted({r[0] for r in inp}):
    i = [r for r in inp if r[0] == base]
    o = [r for r in out if r[0] == base]
    whole_kinds = {r[1] for r in i if r[2] and not r[3]}
    if any(r[2] for r in i) and not any(r[2] for r in o):
        say('no longer embedded' if o else 'gone', base)
        continue
    if sum(not r[2] for r in o) > sum(not r[2] for r in i):
        say('lost its embedding in places', base)
    left = sorted({r[1] for r in o if r[2] and not r[3] and r[1] in whole_kinds})
    if base in sys.argv[3].split():
        left = []
    if left:
        say('still embedded whole', '%s (%s)' % (base, ', '.join(left)))
for what, items in found.items():
    print('%s: %s' % (what, ', '.join(items)))
PY
}

# shrunk IN-LIST IN-PROGRAMS OUT-PROGRAMS: one line per font embedded
# whole in the input (IN-LIST) whose program in the output is not smaller,
# once decoded, than the input's whole program.  A subset tag alone proves
# nothing: a subsetter that falls back to copying the whole program must
# not pass.  Decoded sizes, as recompression alone shrinks stored bytes.
shrunk() {
  python3 - "$1" "$2" "$3" << 'PY'
import re, sys
tag = re.compile(r'^[A-Z]{6}\+')
whole = set()
for line in open(sys.argv[1], encoding='utf-8', errors='replace'):
    name, kind, emb, sub = line.rstrip('\n').split('\t')
    if emb == 'yes' and sub == 'no' and kind != 'Type 3' and not tag.match(name):
        whole.add(name)
def programs(path):
    rows = []
    lines = open(path, encoding='utf-8', errors='replace').read().splitlines()
    if not lines or lines[0].startswith('error'):
        return None
    for line in lines[1:]:
        _, number, key, stored, size, names = line.split('\t')
        rows.append((key, int(size) if size.isdigit() else None, names.split(' ')))
    return rows
inp, out = programs(sys.argv[2]), programs(sys.argv[3])
if inp is None or out is None:
    print('font programs unreadable'); sys.exit()
larger = []
for name in sorted(whole):
    before = [r for r in inp if name in r[2] and r[1] is not None]
    if not before:
        continue  # its descriptor gives another name; pdffonts judged it
    size_before, kinds_before = max(r[1] for r in before), {r[0] for r in before}
    for key, size, names in out:
        if not any(tag.sub('', n) == name for n in names):
            continue
        if name in names and key in kinds_before:
            continue  # left whole, untouched: the pdffonts check names it
        if size is None or size >= size_before:
            larger.append('%s (%s, %d before)' % (name, size if size is not None else 'unreadable', size_before))
if larger:
    print('not made smaller (decoded bytes): %s' % ', '.join(larger))
PY
}

# unembedded OUT-LIST: the names of the fonts OUT-LIST shows without
# embedding, one a line, "!" before those that a metric-compatible system
# font could stand in for (which must have been embedded).
unembedded() {
  python3 - "$1" << 'PY'
import re, sys
standard = re.compile(r'^((Times|Helvetica|Courier|Arial|ArialMT|TimesNewRoman(PS)?(MT)?|CourierNew(PS)?(MT)?)([-,].*)?'
                      r'|Symbol|ZapfDingbats)$')
names = []
for line in open(sys.argv[1], encoding='utf-8', errors='replace'):
    name, kind, emb, sub = line.rstrip('\n').split('\t')
    if emb == 'yes' or kind == 'Type 3':
        continue
    plain = re.sub(r'^[A-Z]{6}\+', '', name).replace(' ', '')
    entry = ('!' if standard.match(plain) else '') + name
    if entry not in names:
        names.append(entry)
print('\n'.join(names))
PY
}

# same_text IN OUT: adds to `problems` when the two files' text differs.
same_text() {
  pdftotext -q ${password:+-upw "$password"} "$1" "$work/a.txt" 2> /dev/null
  pdftotext -q ${password:+-upw "$password"} "$2" "$work/b.txt" 2> /dev/null
  [ -s "$work/a.txt" ] || [ ! -s "$work/b.txt" ] || { problems+=("text appeared where the input has none"); return; }
  cmp -s "$work/a.txt" "$work/b.txt" ||
    problems+=("text differs from line $(cmp "$work/a.txt" "$work/b.txt" 2> /dev/null | sed -n 's/.* line \([0-9]*\).*/\1/p')")
}

# same_look IN OUT: pages 1-3 at 72 dpi, every one at $threshold dB or more.
# Pages that render to the same pixels pass at once; only when some differ
# does compare-render.sh (the same renderer and resolution) measure them,
# which keeps the stage quick as most outputs draw identically.
same_look() {
  local page db verdict a b identical=1
  rm -f "$work"/ra-* "$work"/rb-*
  pdftoppm -q -r 72 -f 1 -l 3 ${password:+-upw "$password"} "$1" "$work/ra" 2> /dev/null
  pdftoppm -q -r 72 -f 1 -l 3 ${password:+-upw "$password"} "$2" "$work/rb" 2> /dev/null
  [ "$(ls "$work" | grep -c '^ra-')" = "$(ls "$work" | grep -c '^rb-')" ] || identical=0
  for a in "$work"/ra-*; do
    [ -e "$a" ] || break
    cmp -s "$a" "$work/rb-${a##*/ra-}" || identical=0
  done
  if [ "$identical" = 1 ]; then
    rm -f "$work"/ra-* "$work"/rb-*; return
  fi
  if [ -f "$compare" ]; then
    bash "$compare" -r 72 -n 3 ${password:+-p "$password" -q "$password"} "$1" "$2" > "$work/look.tsv" 2> /dev/null
    [ -s "$work/look.tsv" ] || problems+=("pages do not render")
    while IFS=$'\t' read -r page _ _ _ _ db verdict; do
      [ "$page" = page ] && continue
      case "$verdict" in DIFFERENT\ \(*) problems+=("page $page: ${verdict#DIFFERENT }"); continue ;; esac
      judge_psnr "$page" "$db" "$threshold"
    done < "$work/look.tsv"
  else
    # Without the shared comparison script: the same measure, page by page.
    for a in "$work"/ra-*; do
      [ -e "$a" ] || break
      b="$work/rb-${a##*/ra-}"; page="$(echo "${a##*/ra-}" | sed 's/\..*//; s/^0*//')"
      [ -e "$b" ] || { problems+=("page $page did not render"); continue; }
      db="$(psnr "$a" "$b")"
      [ "$db" = size ] && { problems+=("page $page: page size"); continue; }
      judge_psnr "$page" "$db" "$threshold"
    done
  fi
  rm -f "$work"/ra-* "$work"/rb-*
}

# sound IN OUT: `qpdf --check` with no more warnings than the input, and
# the input's page count.
sound() {
  local rc in_rc
  qpdf --check ${password:+--password="$password"} "$2" > "$work/chk-out.txt" 2>&1; rc=$?
  if [ "$rc" = 3 ]; then
    qpdf --check ${password:+--password="$password"} "$1" > "$work/chk-in.txt" 2>&1; in_rc=$?
    [ "$(grep -c -i 'warning' "$work/chk-out.txt")" -le "$(grep -c -i 'warning' "$work/chk-in.txt")" ] ||
      problems+=("qpdf --check warns: $(grep -m1 -i 'warning' "$work/chk-out.txt")")
  elif [ "$rc" != 0 ]; then
    problems+=("qpdf --check: $(grep -m1 -v '^checking\|^PDF Version\|^File is' "$work/chk-out.txt")")
  fi
  local a b
  a="$(pdfinfo ${password:+-upw "$password"} "$1" 2> /dev/null | awk '/^Pages:/{print $2}')"
  b="$(pdfinfo ${password:+-upw "$password"} "$2" 2> /dev/null | awk '/^Pages:/{print $2}')"
  [ "$a" = "$b" ] || problems+=("page count $b, expected $a")
}

# optimise IN OUT SETTINGS: 0 when trimora ran and saved; `why` says why not.
optimise() {
  local rc
  rm -f "$2"
  timeout -k 5 120 nice -n 5 "$bin" -f "$3" ${password:+-openPass "$password"} -o "$2" "$1" \
    > "$work/out.txt" 2> "$work/err.txt"
  rc=$?
  if [ "$rc" -ne 0 ]; then why="exit status $rc"; return 1; fi
  if grep -q "Error during processing" "$work/out.txt" "$work/err.txt"; then
    why="$(grep -h -m1 'Error during processing' "$work/out.txt" "$work/err.txt" | head -n 1)"; return 1
  fi
  [ -s "$2" ] || { why="no output"; return 1; }
  return 0
}

while IFS=$'\t' read -r file _ _ _ _ traits; do
  in="$corpus/$file"
  [ -f "$in" ] || { echo "SKIP $file: not in the corpus folder"; continue; }
  read_traits "$traits"
  [ "$broken" = 0 ] || { echo "SKIP $file: damaged input (the damaged-file stage covers it)"; continue; }
  size=$(stat -c %s "$in")
  [ "$size" -le "$max_bytes" ] || { echo "SKIP $file: $size bytes, above FONTS_MAX_BYTES=$max_bytes"; continue; }
  fonts "$in" "$work/fonts-in.txt"
  [ -s "$work/fonts-in.txt" ] || { echo "SKIP $file: no font on its pages"; continue; }

  problems=(); notes=(); why=""
  out="$work/out.pdf"
  if ! optimise "$in" "$out" "$preset"; then
    echo "FAIL $file: $why"; continue
  fi
  sound "$in" "$out"
  same_text "$in" "$out"
  same_look "$in" "$out"
  fonts "$out" "$work/fonts-out.txt"
  while IFS= read -r p; do problems+=("$p"); done < <(subset_problems "$work/fonts-in.txt" "$work/fonts-out.txt" "${known_whole[$file]:-}")
  listed=$(wc -l < "$work/fonts-in.txt")
  whole=$(awk -F'\t' '$3 == "yes" && $4 == "no" && $2 != "Type 3" && $1 != "[none]"' "$work/fonts-in.txt" | wc -l)
  if [ "$whole" -gt 0 ]; then
    python3 "$font_bytes" --list --decoded ${password:+--password="$password"} "$in" > "$work/programs-in.txt" 2> /dev/null
    python3 "$font_bytes" --list --decoded ${password:+--password="$password"} "$out" > "$work/programs-out.txt" 2> /dev/null
    line="$listed fonts, $whole embedded whole; font program bytes $(head -n 1 "$work/programs-in.txt" | cut -f1) -> $(head -n 1 "$work/programs-out.txt" | cut -f1)"
    while IFS= read -r p; do problems+=("$p"); done < <(shrunk "$work/fonts-in.txt" "$work/programs-in.txt" "$work/programs-out.txt")
  else
    line="$listed fonts, none embedded whole"
  fi
  [ ${#notes[@]} -eq 0 ] || line="$line; ${notes[*]}"
  if [ ${#problems[@]} -eq 0 ]; then echo "PASS $file: $line"; else echo "FAIL $file: $(joined)"; fi

  # Embedding, for files that show fonts without it.
  case ",$traits," in *,fonts-nonembedded,*) nonemb=1 ;; *) nonemb=0 ;; esac
  awk -F'\t' '$3 == "no"' "$work/fonts-in.txt" | grep -q . && nonemb=1
  [ "$nonemb" = 1 ] || continue
  problems=(); notes=()
  if ! optimise "$in" "$out" "$embed_settings"; then
    echo "FAIL $file (embedding): $why"; continue
  fi
  sound "$in" "$out"
  same_text "$in" "$out"
  same_look "$in" "$out"
  fonts "$out" "$work/fonts-out.txt"
  mapfile -t left < <(unembedded "$work/fonts-out.txt" | grep .)
  missed=(); kept=()
  for name in "${left[@]}"; do
    if [ "${name:0:1}" = "!" ]; then missed+=("${name:1}"); else kept+=("$name"); fi
  done
  [ ${#missed[@]} -eq 0 ] || problems+=("not embedded though a system font fits: $(printf '%s, ' "${missed[@]}" | sed 's/, $//')")
  line="$(wc -l < "$work/fonts-out.txt") fonts, $( [ ${#kept[@]} -gt 0 ] && echo "left without embedding: $(printf '%s, ' "${kept[@]}" | sed 's/, $//')" || echo "all embedded")"
  [ ${#notes[@]} -eq 0 ] || line="$line; ${notes[*]}"
  if [ ${#problems[@]} -eq 0 ]; then echo "PASS $file (embedding): $line"; else echo "FAIL $file (embedding): $(joined)"; fi
done < <(tail -n +2 "$manifest")
rm -f "$work"/out.pdf "$work"/*.txt "$work"/look.tsv
