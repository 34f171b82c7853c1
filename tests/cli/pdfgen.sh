# Shared by the CLI tests that source it: make_pdf FILE PAGES [KIDS] writes a
# small PDF whose page N shows "Page N".  KIDS, when given, replaces the page
# tree's Kids list (the pages are objects 5, 7, 9, ...), to build
# damaged trees.
make_pdf() {
    python3 - "$1" "$2" "${3:-}" <<'PY'
import sys
path, n, kids_override = sys.argv[1], int(sys.argv[2]), sys.argv[3]
objs = ["<< /Type /Catalog /Pages 2 0 R >>", None,
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"]
kids = []
for i in range(n):
    content = "BT /F1 24 Tf 72 700 Td (Page %d) Tj ET" % (i + 1)
    objs.append("<< /Length %d >>\nstream\n%s\nendstream" % (len(content), content))
    objs.append("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Contents %d 0 R "
                "/Resources << /Font << /F1 3 0 R >> >> >>" % (len(objs)))
    kids.append("%d 0 R" % len(objs))
objs[1] = "<< /Type /Pages /Kids [%s] /Count %d >>" % (kids_override or " ".join(kids), n)
out = b"%PDF-1.4\n"
offsets = []
for i, o in enumerate(objs):
    offsets.append(len(out))
    out += ("%d 0 obj\n%s\nendobj\n" % (i + 1, o)).encode()
xref = len(out)
out += ("xref\n0 %d\n0000000000 65535 f \n" % (len(objs) + 1)).encode()
for off in offsets:
    out += ("%010d 00000 n \n" % off).encode()
out += ("trailer\n<< /Size %d /Root 1 0 R >>\nstartxref\n%d\n%%%%EOF\n" % (len(objs) + 1, xref)).encode()
open(path, "wb").write(out)
PY
}
