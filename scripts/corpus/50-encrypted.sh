#!/usr/bin/env bash
# Encrypted inputs: every file of the corpus marked encrypted-* must open
# with its user password (trait userpw=..., else the empty password) and
# load all of its objects; a wrong password must be refused with the
# password message.  Uses the inspection tool.
#
#   50-encrypted.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../corpus-lib.sh"
corpus="$1"; build="$2"; work="$3"
manifest="$corpus/MANIFEST.tsv"
mkdir -p "$work"

tool="$(find_program "$build" tminspect)"

[ -f "$manifest" ] || { echo "SKIP $corpus: no MANIFEST.tsv"; exit 0; }

# file <TAB> bytes <TAB> pages <TAB> version <TAB> origin <TAB> traits
tail -n +2 "$manifest" | while IFS=$'\t' read -r file _ _ _ _ traits; do
  case ",$traits," in *,encrypted-*) ;; *) continue ;; esac
  if [ -z "$tool" ]; then
    echo "SKIP $file: tminspect is not built"
    continue
  fi
  read_traits "$traits"
  out="$work/$file.txt"
  if ! timeout 300 "$tool" "$corpus/$file" --password "$password" --load-all > "$out" 2>&1; then
    echo "FAIL $file: does not open with its password ($(tail -n 1 "$out"))"
    continue
  fi
  if grep -qi 'routine not yet implemented' "$out"; then
    echo "SKIP $file: the inspection tool cannot read files yet"
    continue
  fi
  if ! grep -q ' encrypted' "$out"; then
    echo "FAIL $file: not seen as encrypted"
    continue
  fi
  # Every row of the table but the free object 0 must load.
  objects="$(sed -n 's/^objects: //p' "$out")"
  loaded="$(sed -n 's/^loaded: //p' "$out")"
  if [ -z "$loaded" ] || [ "$loaded" -le 0 ] || [ "$loaded" -lt $((objects - 1)) ]; then
    echo "FAIL $file: loaded ${loaded:-none} of $objects objects"
    continue
  fi
  wrong="$work/$file.wrong.txt"
  timeout 300 "$tool" "$corpus/$file" --password "not-${password}-x" > "$wrong" 2>&1
  if ! grep -q 'this document requires a password' "$wrong"; then
    echo "FAIL $file: a wrong password was not refused"
    continue
  fi
  echo "PASS $file: opens with its password, loads $loaded objects, refuses a wrong one"
done
