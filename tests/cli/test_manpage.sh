#!/usr/bin/env bash
# The manual page: every option the usage lists has an entry in its OPTIONS
# section, and the page renders without a single formatter warning.
#   bash test_manpage.sh TRIMORA_BINARY BUILD_DIR
set -u
bin="$1"
page="$(cd "$(dirname "$0")/../.." && pwd)/docs/trimora.1"
. "$(dirname "$0")/pdfgen.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/tmman.XXXXXX")
trap 'rm -rf "$work"' EXIT

[ -f "$page" ] || { echo "FAIL: no manual page at $page"; exit 1; }

# The options of the usage: its lines that start with two blanks and a dash.
"$bin" -h >/dev/null 2>"$work/usage"
sed -n 's/^  \(-[^ ]*\).*/\1/p' "$work/usage" | sort -u > "$work/listed"
[ "$(wc -l < "$work/listed")" -ge 20 ] || fail "too few options read from the usage: $(tr '\n' ' ' < "$work/listed")"
# -json is read before the option table and is not in the usage.
echo "-json" >> "$work/listed"

# The option entries of the page: the tag line after each .TP inside the
# OPTIONS section, with font escapes, quotes and \- undone; every word of
# the tag that starts with a dash is an option ("-h, -help" gives two).
awk '
    /^\.SH/ { inopts = ($0 ~ /^\.SH +"?OPTIONS"?$/); next }
    inopts && tag { print; tag = 0; next }
    inopts && /^\.TP/ { tag = 1 }
' "$page" |
    sed 's/\\-/-/g; s/\\f[BIRP]//g; s/"//g; s/,/ /g; s/^\.[A-Z]* //' |
    tr ' ' '\n' | grep '^-' | sort -u > "$work/documented"

while read -r opt; do
    grep -qxF -- "$opt" "$work/documented" || fail "option $opt is not documented in docs/trimora.1"
done < "$work/listed"

# Rendering: groff with every warning on, then man itself when present.
if command -v groff >/dev/null; then
    groff -man -Tutf8 -ww -z "$page" > "$work/groff" 2>&1
    [ -s "$work/groff" ] && fail "groff warns: $(head -5 "$work/groff")"
    if command -v man >/dev/null; then
        LC_ALL=C MANWIDTH=80 man --warnings -l "$page" > "$work/man" 2> "$work/manerr"
        [ -s "$work/manerr" ] && fail "man -l warns: $(head -5 "$work/manerr")"
        grep -q '^OPTIONS' "$work/man" || fail "man -l shows no OPTIONS section"
    fi
else
    echo "SKIP: groff is not installed, the page's rendering is not checked"
fi

if [ $fails -ne 0 ]; then
    echo "$fails failure(s)"
    exit 1
fi
echo "manual page: $(wc -l < "$work/listed") options documented, renders cleanly"
