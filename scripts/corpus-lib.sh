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
