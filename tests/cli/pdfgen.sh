# Shared by the CLI tests that source it.

# fail MESSAGE: reports a failure and counts it in $fails.
fails=0
fail() { echo "FAIL: $*"; fails=$((fails + 1)); }

# pages FILE: the page count, through qpdf when present, else a rough count
# of page objects.
pages() {
    if command -v qpdf >/dev/null; then qpdf --show-npages "$1" 2>/dev/null
    else grep -ac '/Type */Page[^s]' "$1"; fi
}

# run ARGS...: runs "$bin" with stdout in out.txt, stderr in err.txt, and
# calls the test's fail when it does not exit with 0.
run() {
    "$bin" "$@" >out.txt 2>err.txt
    local rc=$?
    [ $rc -eq 0 ] || fail "trimora $* exited with $rc: $(tail -5 err.txt)"
}

# write_pdf FILE BODY...: a classic PDF whose objects 1, 2, ... are the
# bodies given (object 1 the catalog), with a correct cross-reference table.
write_pdf() {
    local LC_ALL=C out=$1 body=$'%PDF-1.4\n' offsets=() n=0 o
    shift
    for o in "$@"; do
        n=$((n + 1))
        offsets+=("${#body}")
        body+="$n 0 obj"$'\n'"$o"$'\n'"endobj"$'\n'
    done
    local xref=${#body}
    body+="xref"$'\n'"0 $((n + 1))"$'\n'"0000000000 65535 f "$'\n'
    for o in "${offsets[@]}"; do body+=$(printf '%010d 00000 n ' "$o")$'\n'; done
    body+="trailer"$'\n'"<< /Size $((n + 1)) /Root 1 0 R >>"$'\n'"startxref"$'\n'"$xref"$'\n'"%%EOF"$'\n'
    printf '%s' "$body" > "$out"
}

# make_pdf FILE PAGES [KIDS] [rich]: a small PDF whose page N shows "Page N".  KIDS, when given, replaces
# the page tree's Kids list (the pages are objects 5, 7, 9, ...), to build
# damaged trees.  "rich" adds an outline and a link per page (the pages are
# then objects 7, 10, 13, ...) and gives the font object generation 2, so
# there are dictionaries to pack beside the content streams.
make_pdf() {
    python3 - "$1" "$2" "${3:-}" "${4:-}" <<'PY'
import sys
path, n, kids_override, rich = sys.argv[1], int(sys.argv[2]), sys.argv[3], sys.argv[4] == "rich"
objs = ["<< /Type /Catalog /Pages 2 0 R%s >>" % (" /Outlines 4 0 R" if rich else ""), None,
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"]
if rich:
    objs.append("<< /Type /Outlines /Count 0 >>")
kids = []
for i in range(n):
    content = "BT /F1 24 Tf 72 700 Td (Page %d) Tj ET" % (i + 1)
    objs.append("<< /Length %d >>\nstream\n%s\nendstream" % (len(content), content))
    annots = ""
    if rich:
        objs.append("<< /Type /Annot /Subtype /Link /Rect [72 690 200 720] /Border [0 0 0] "
                    "/A << /S /URI /URI (https://example.org/%d) >> >>" % (i + 1))
        annots = "/Annots [%d 0 R] " % len(objs)
    objs.append("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Contents %d 0 R %s"
                "/Resources << /Font << /F1 3 %d R >> >> >>" % (len(objs) - (1 if rich else 0), annots, 2 if rich else 0))
    kids.append("%d 0 R" % len(objs))
objs[1] = "<< /Type /Pages /Kids [%s] /Count %d >>" % (kids_override or " ".join(kids), n)
gen = lambda i: 2 if rich and i == 2 else 0
out = b"%PDF-1.4\n"
offsets = []
for i, o in enumerate(objs):
    offsets.append(len(out))
    out += ("%d %d obj\n%s\nendobj\n" % (i + 1, gen(i), o)).encode()
xref = len(out)
out += ("xref\n0 %d\n0000000000 65535 f \n" % (len(objs) + 1)).encode()
for i, off in enumerate(offsets):
    out += ("%010d %05d n \n" % (off, gen(i))).encode()
out += ("trailer\n<< /Size %d /Root 1 0 R >>\nstartxref\n%d\n%%%%EOF\n" % (len(objs) + 1, xref)).encode()
open(path, "wb").write(out)
PY
}
