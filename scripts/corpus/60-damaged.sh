#!/usr/bin/env bash
# Damaged copies of every corpus file: cut at 40% and 95% of its length, and
# with 64 bytes overwritten at a fixed pseudo-random spread ($DAMAGED_KINDS,
# default "cut40 cut95 bytes", picks among them).  trimora must
# end every run in time, with exit status 0 and either a summary or an
# "Error during processing" line, never a crash; an output it writes must
# pass `qpdf --check` without errors, unless qpdf finds errors in the
# damaged input as well (damaged stream data is copied as it is).  The input copy must be unchanged when
# the run failed.
#
#   60-damaged.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
corpus="$1"; build="$2"; work="$3"
bin="$build/frontend/trimora"
[ -x "$bin" ] || { echo "FAIL damaged: $bin is missing"; exit 0; }
have_qpdf=1; command -v qpdf > /dev/null 2>&1 || have_qpdf=0

# make_variant IN OUT KIND: writes a damaged copy.
make_variant() {
  python3 - "$1" "$2" "$3" <<'EOF'
import random, sys
src, dst, kind = sys.argv[1], sys.argv[2], sys.argv[3]
data = bytearray(open(src, "rb").read())
if kind == "cut40":
    data = data[: len(data) * 40 // 100]
elif kind == "cut95":
    data = data[: len(data) * 95 // 100]
else:
    rnd = random.Random(len(data))  # the same damage on every run
    for _ in range(64):
        data[rnd.randrange(len(data))] = rnd.randrange(256)
open(dst, "wb").write(bytes(data))
EOF
}

for pdf in "$corpus"/*.pdf; do
  name="$(basename "$pdf" .pdf)"
  # Encrypted files need their password; damage there tests the same paths.
  grep -q "^$name.pdf.*encrypted" "$corpus/MANIFEST.tsv" 2> /dev/null && continue
  for kind in ${DAMAGED_KINDS:-cut40 cut95 bytes}; do
    in="$work/$name-$kind.pdf"
    out="$work/$name-$kind-out.pdf"
    make_variant "$pdf" "$in" "$kind"
    before="$(md5sum < "$in")"
    timeout -k 5 120 "$bin" "$in" -o "$out" > "$work/log" 2>&1
    status=$?
    if [ "$status" -ne 0 ]; then
      echo "FAIL $name ($kind): exit status $status: $(tail -n 2 "$work/log" | tr '\n' ' ')"
    elif grep -q "Error during processing" "$work/log"; then
      if [ "$(md5sum < "$in")" != "$before" ]; then
        echo "FAIL $name ($kind): the input changed after a failed run"
      else
        echo "PASS $name ($kind): refused: $(grep "Error during processing" "$work/log" | head -n 1)"
      fi
    elif ! grep -q "elapsed time" "$work/log"; then
      echo "FAIL $name ($kind): no summary: $(tail -n 2 "$work/log" | tr '\n' ' ')"
    else
      check=0
      # qpdf exits 3 for warnings only, 2 for errors.
      [ "$have_qpdf" -eq 1 ] && { qpdf --check "$out" > "$work/check" 2>&1; check=$?; }
      if [ "$check" -ne 0 ] && [ "$check" -ne 3 ]; then
        # Damaged stream data is copied as it is: an error the damaged
        # input shows as well is inherited, not made.
        qpdf --check "$in" > /dev/null 2>&1
        incheck=$?
        if [ "$incheck" -eq 0 ] || [ "$incheck" -eq 3 ]; then
          echo "FAIL $name ($kind): qpdf --check: $(grep -v '^WARNING' "$work/check" | tail -n 2 | tr '\n' ' ')"
        else
          echo "PASS $name ($kind): qpdf finds errors in the damaged input and the output alike"
        fi
      else
        echo "PASS $name ($kind)"
      fi
    fi
    rm -f "$in" "$out"
  done
done
