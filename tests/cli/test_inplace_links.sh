#!/usr/bin/env bash
# In-place runs on links: a symbolic link stays a link and the file it
# points to (in another folder, through a relative link, or a chain of
# links) is replaced; a file with several hard links is replaced under the
# name given, with a warning, while its other names keep the old content.
#   bash test_inplace_links.sh TRIMORA_BINARY BUILD_DIR
set -u
bin=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
command -v python3 >/dev/null || { echo "SKIP: python3 is needed to build the fixtures"; exit 0; }
. "$(dirname "$0")/pdfgen.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/tmlinks.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
make_pdf orig.pdf 2
mkdir -p data links

# --- a relative symbolic link into another folder
cp orig.pdf data/doc.pdf
chmod 640 data/doc.pdf
ln -s ../data/doc.pdf links/doc.pdf
run links/doc.pdf
[ -L links/doc.pdf ] || fail "symlink: the link was replaced by a file"
[ "$(readlink links/doc.pdf)" = "../data/doc.pdf" ] || fail "symlink: the link text changed"
cmp -s data/doc.pdf orig.pdf && fail "symlink: the target was not optimised"
[ "$(pages data/doc.pdf)" = 2 ] || fail "symlink: the target has $(pages data/doc.pdf) pages"
[ "$(stat -c %a data/doc.pdf)" = 640 ] || fail "symlink: the target's mode changed to $(stat -c %a data/doc.pdf)"
[ "$(ls -A links)" = "doc.pdf" ] || fail "symlink: files left beside the link: $(ls -A links)"
[ "$(ls -A data)" = "doc.pdf" ] || fail "symlink: files left beside the target: $(ls -A data)"
grep -q "Warning" err.txt && fail "symlink: unexpected warning: $(cat err.txt)"

# --- a chain of two links, the last one absolute
cp orig.pdf data/chain.pdf
ln -s "$work/data/chain.pdf" data/abs.pdf
ln -s data/abs.pdf chain.pdf
run chain.pdf
[ -L chain.pdf ] && [ -L data/abs.pdf ] || fail "chain: a link was replaced"
cmp -s data/chain.pdf orig.pdf && fail "chain: the final target was not optimised"

# --- -o naming a symbolic link writes through it as well
ln -s data/out-target.pdf out-link.pdf
run orig.pdf -o out-link.pdf
[ -L out-link.pdf ] || fail "output link: the link was replaced"
[ "$(pages data/out-target.pdf)" = 2 ] || fail "output link: no output at the link's target"

# --- a hard-linked file: new inode under this name, other name keeps the old content, warning
cp orig.pdf hard.pdf
ln hard.pdf other-name.pdf
run hard.pdf
cmp -s other-name.pdf orig.pdf || fail "hard link: the other name's content changed"
cmp -s hard.pdf orig.pdf && fail "hard link: the file was not optimised"
[ "$(stat -c %h hard.pdf)" = 1 ] || fail "hard link: expected a new inode"
grep -q "^Warning: hard.pdf has 1 other hard link(s); they keep the original content" err.txt ||
    fail "hard link: no warning line: $(cat err.txt)"

# --- a failed run through a link leaves link and target as they were
cp orig.pdf data/keep.pdf
ln -s ../data/keep.pdf links/keep.pdf
TRIMORA_TEST_FAIL_SAVE=1 "$bin" links/keep.pdf >out.txt 2>err.txt
[ -L links/keep.pdf ] || fail "failed save: the link was replaced"
cmp -s data/keep.pdf orig.pdf || fail "failed save: the target changed"

if [ $fails -ne 0 ]; then
    echo "$fails failure(s)"
    exit 1
fi
echo "all link tests passed"
