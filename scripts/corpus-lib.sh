# Checks shared by the corpus stages; sourced by a stage, not run.

# check_output IN OUT: appends to the caller's `problems` array what qpdf
# --check finds in OUT (when qpdf is there) and a page count that differs
# from the manifest's (or, where it says "?", from the input's).  Reads the
# caller's `password`, `pages`, `have_qpdf` and `work`.
check_output() {
  local in="$1" out="$2" crc expected got
  if [ "$have_qpdf" = 1 ]; then
    qpdf --check ${password:+--password="$password"} "$out" > "$work/chk.txt" 2>&1
    crc=$?
    [ "$crc" = 0 ] || [ "$crc" = 3 ] || problems+=("qpdf --check: $(grep -m1 -v '^checking\|^PDF Version\|^File is' "$work/chk.txt")")
  fi
  expected="$pages"
  if [ "$expected" = "?" ]; then
    expected="$(pdfinfo ${password:+-upw "$password"} "$in" 2> /dev/null | awk '/^Pages:/{print $2}')"
  fi
  got="$(pdfinfo ${password:+-upw "$password"} "$out" 2> /dev/null | awk '/^Pages:/{print $2}')"
  [ -z "$expected" ] || [ "$got" = "$expected" ] || problems+=("page count $got, expected $expected")
}

# find_program BUILD_DIR NAME: the path of a built program (in its
# subsystem folder or at the top of the build tree), or "" when missing.
find_program() {
  local t
  for t in "$1/frontend/$2" "$1/tools/$2" "$1/$2"; do
    [ -x "$t" ] && { echo "$t"; return; }
  done
  echo ""
}

# psnr A B: the PSNR in dB of two PNM renders of one page ("inf" when
# identical, "size" when their sizes differ).
psnr() {
  cmp -s "$1" "$2" && { echo inf; return; }
  python3 - "$1" "$2" << 'PY'
import math, sys
def read(path):
    data = open(path, 'rb').read()
    fields, pos = [], 0
    while len(fields) < 4:
        while data[pos:pos + 1].isspace():
            pos += 1
        if data[pos:pos + 1] == b'#':
            while data[pos:pos + 1] not in (b'\n', b''):
                pos += 1
            continue
        start = pos
        while not data[pos:pos + 1].isspace():
            pos += 1
        fields.append(data[start:pos])
    return (int(fields[1]), int(fields[2])), data[pos + 1:]
(sa, a), (sb, b) = read(sys.argv[1]), read(sys.argv[2])
if sa != sb or len(a) != len(b):
    print("size"); sys.exit()
if a == b:
    print("inf"); sys.exit()
sq = sum((x - y) * (x - y) for x, y in zip(a, b))
print("%.2f" % (10 * math.log10(255.0 * 255.0 * len(a) / sq)))
PY
}

# judge_psnr PAGE DB THRESHOLD [WHAT]: nothing when DB reaches THRESHOLD;
# otherwise a note when the caller's `known_below` lists "$file:PAGE" with
# a floor that DB reaches (the note gives the listed reason), a problem
# when not.  WHAT (say, the renderer) goes into the message.
judge_psnr() {
  local page="$1" db="$2" threshold="$3" what="${4:+ ($4)}" entry
  [ "$db" = "inf" ] && return 0
  awk -v x="$db" -v t="$threshold" 'BEGIN{exit !(x < t)}' || return 0
  entry="${known_below["$file:$page"]:-}"
  if [ -n "$entry" ] && awk -v x="$db" -v f="${entry%% *}" 'BEGIN{exit !(x >= f)}'; then
    notes+=("page $page at $db dB$what: ${entry#* }")
  else
    problems+=("page $page at $db dB$what")
  fi
}

# read_traits TRAITS: sets `password` (from "userpw=..."), `broken` (a
# "broken-*" trait), `damaged` ("qpdf-check-err") and `unrecoverable`
# (both: files that may be refused cleanly) from a manifest's trait list.
read_traits() {
  local trait list
  password=""; damaged=0; broken=0
  IFS=',' read -ra list <<< "$1"
  for trait in "${list[@]}"; do
    case "$trait" in
      userpw=*) password="${trait#userpw=}" ;;
      broken-*) broken=1 ;;
      qpdf-check-err) damaged=1 ;;
    esac
  done
  [ "$broken" = 1 ] && [ "$damaged" = 1 ] && unrecoverable=1 || unrecoverable=0
}

# jbig2_streams PDF DIR: the JBIG2 images of PDF, one "OBJ W H" line each
# in the order of their object numbers (page order after qpdf --qdf), their
# raw streams written as DIR/OBJ.jb2 and their JBIG2Globals streams as
# DIR/OBJ.glob (through qpdf's uncompressed, object-stream-free form).
# Reads the caller's `password`.
jbig2_streams() {
  qpdf --qdf --object-streams=disable --stream-data=preserve ${password:+--password="$password"} \
    "$1" "$2/q.pdf" > /dev/null 2>&1
  python3 - "$2" << 'PY'
import re, sys
d = sys.argv[1]
data = open(d + '/q.pdf', 'rb').read()
streams = {}
for m in re.finditer(rb'\n(\d+) 0 obj\s*<<(.*?)>>\s*stream\n', data, re.S):
    dic = m.group(2)
    ln = re.search(rb'/Length (\d+)( 0 R)?', dic)
    if not ln:
        continue
    if ln.group(2):
        n = int(re.search(rb'\n%s 0 obj\s*(\d+)' % ln.group(1), data).group(1))
    else:
        n = int(ln.group(1))
    streams[m.group(1)] = (dic, data[m.end():m.end() + n])
for num, (dic, body) in sorted(streams.items(), key=lambda kv: int(kv[0])):
    if b'/JBIG2Decode' not in dic:
        continue
    w = re.search(rb'/Width (\d+)', dic).group(1).decode()
    h = re.search(rb'/Height (\d+)', dic).group(1).decode()
    obj = num.decode()
    open('%s/%s.jb2' % (d, obj), 'wb').write(body)
    g = re.search(rb'/JBIG2Globals (\d+) 0 R', dic)
    if g and g.group(1) in streams:
        open('%s/%s.glob' % (d, obj), 'wb').write(streams[g.group(1)][1])
    print(obj, w, h)
PY
}
