#!/usr/bin/env bash
# Stream decoding check: every stream of every file is decoded by tmdecode
# and compared byte for byte with qpdf's own decoding, wherever qpdf decodes
# it (the general filters: Flate, LZW, RunLength, ASCIIHex, ASCII85 and
# their predictors).  A sample of JPEG images is compared with qpdf's JPEG
# decoding too, and CCITT and JBIG2 images with MuPDF's (mutool show -b)
# when it is installed, else they must merely decode without complaint.
#
#   20-streams.sh CORPUS_DIR BUILD_DIR WORK_DIR
set -uo pipefail
corpus="$1"
build="$2"
work="$3"
tool="$build/tools/tmdecode"
if [ ! -x "$tool" ]; then
  echo "SKIP all: $tool was not built"
  exit 0
fi
command -v qpdf >/dev/null || { echo "SKIP all: qpdf is not installed"; exit 0; }

manifest="$corpus/MANIFEST.tsv"
for pdf in "$corpus"/*.pdf; do
  name="$(basename "$pdf")"
  pw=""
  if [ -f "$manifest" ]; then
    pw="$(awk -F'\t' -v f="$name" '$1 == f { if (match($6, /userpw=[^,]*/)) print substr($6, RSTART + 7, RLENGTH - 7) }' "$manifest")"
  fi
  dir="$work/$name.d"
  rm -rf "$dir"
  mkdir -p "$dir/raw" "$dir/dec" "$dir/all" "$dir/ours"
  pwarg=()
  [ -n "$pw" ] && pwarg=(--password="$pw")
  qpdf "${pwarg[@]}" --json=2 --json-key=qpdf --decode-level=none --json-stream-data=file \
    --json-stream-prefix="$dir/raw/s" "$pdf" > "$dir/raw.json" 2> "$dir/qpdf.err"
  rc=$?
  if [ $rc -ne 0 ] && [ $rc -ne 3 ]; then
    echo "SKIP $name: qpdf cannot read it ($(head -c 100 "$dir/qpdf.err" | tr '\n' ' '))"
    rm -rf "$dir"
    continue
  fi
  qpdf "${pwarg[@]}" --json=2 --json-key=qpdf --decode-level=generalized --json-stream-data=file \
    --json-stream-prefix="$dir/dec/s" "$pdf" > "$dir/dec.json" 2>/dev/null
  if grep -q '"/DCTDecode"' "$dir/raw.json"; then
    qpdf "${pwarg[@]}" --json=2 --json-key=qpdf --decode-level=all --json-stream-data=file \
      --json-stream-prefix="$dir/all/s" "$pdf" > "$dir/all.json" 2>/dev/null
  fi
  python3 - "$dir" "$tool" "$name" "$pdf" "$pw" <<'PY'
import json, os, shutil, subprocess, sys

d, tool, name, pdf, pw = sys.argv[1:6]
mutool = shutil.which("mutool")

def load(path):
    try:
        with open(path) as f:
            return json.load(f)["qpdf"][1]
    except Exception:
        return {}

raw, dec, full = load(f"{d}/raw.json"), load(f"{d}/dec.json"), load(f"{d}/all.json")

def resolve(v, objs):
    if isinstance(v, str) and v.endswith(" R"):
        o = objs.get("obj:" + v, {})
        return o.get("value", o.get("stream", {}).get("dict"))
    return v

def as_list(v, objs):
    v = resolve(v, objs)
    if v is None:
        return []
    if isinstance(v, list):
        return [resolve(x, objs) for x in v]
    return [v]

IMAGE = {"/DCTDecode", "/DCT", "/CCITTFaxDecode", "/CCF", "/JBIG2Decode", "/JPXDecode"}
jobs, checks = [], []
dct_sample = 0
counts_image = 0
for key, obj in raw.items():
    st = obj.get("stream") if isinstance(obj, dict) else None
    if not st or "datafile" not in st:
        continue
    sd = st.get("dict", {})
    names = as_list(sd.get("/Filter"), raw)
    if not names or not all(isinstance(n, str) and n.startswith("/") for n in names):
        continue
    parms = as_list(sd.get("/DecodeParms"), raw)
    words = []
    for i, n in enumerate(names):
        words.append(n[1:])
        p = parms[i] if i < len(parms) and isinstance(parms[i], dict) else {}
        for k, v in p.items():
            v = resolve(v, raw)
            if isinstance(v, bool):
                words.append(f"{k[1:]}={int(v)}")
            elif isinstance(v, (int, float)):
                words.append(f"{k[1:]}={v}")
            elif k == "/JBIG2Globals":
                g = raw.get("obj:" + p[k], {}).get("stream", {}).get("datafile")
                if g:
                    words.append(f"globals={g}")
    num = key.split(":")[1].split()[0]
    out = f"{d}/ours/s-{num}"
    dec_st = dec.get(key, {}).get("stream", {})
    full_st = full.get(key, {}).get("stream", {})
    if "/Filter" not in dec_st.get("dict", {}) and "datafile" in dec_st:
        expect, kind = dec_st["datafile"], "general"
    elif any(n in ("/DCTDecode", "/DCT") for n in names) and full_st and "/Filter" not in full_st.get("dict", {}) \
            and dct_sample < 4:
        dct_sample += 1
        expect, kind = full_st["datafile"], "dct"
    elif any(n in IMAGE for n in names) and not any(n == "/JPXDecode" for n in names):
        expect, kind = None, "image"
        if mutool and counts_image < 6:
            counts_image += 1
            expect = f"{d}/all/m-{num}"
            args = [mutool, "show"] + (["-p", pw] if pw else []) + ["-b", "-o", expect, pdf, num]
            if subprocess.run(args, capture_output=True).returncode != 0:
                expect = None
    else:
        continue
    jobs.append(f"{st['datafile']}\t{out}\t{' '.join(words)}")
    checks.append((num, out, expect, kind, " ".join(words)))

if not jobs:
    print(f"SKIP {name}: no decodable streams")
    sys.exit(0)
with open(f"{d}/jobs.txt", "w") as f:
    f.write("\n".join(jobs) + "\n")
res = subprocess.run([tool, "--all", "--batch", f"{d}/jobs.txt"], capture_output=True, text=True)
status = res.stdout.splitlines()
bad = []
counts = {"general": 0, "dct": 0, "image": 0}
damaged = 0
for i, (num, out, expect, kind, words) in enumerate(checks):
    s = status[i] if i < len(status) else "missing"
    counts[kind] += 1
    damaged += s.startswith("corrupt")
    if expect is None:
        if s != "ok":
            bad.append(f"obj {num} [{words}]: {s}")
        continue
    try:
        a = open(out, "rb").read()
        b = open(expect, "rb").read()
    except OSError as e:
        bad.append(f"obj {num}: {e}")
        continue
    if a != b and not (kind == "general" and s.startswith("corrupt") and b.startswith(a)):
        bad.append(f"obj {num} [{words}]: {s}, {len(a)} bytes vs qpdf {len(b)}")
summary = f"{counts['general']} streams, {counts['dct']} jpeg, {counts['image']} other images, {damaged} damaged"
if bad:
    print(f"FAIL {name}: {len(bad)} of {len(checks)} differ; " + "; ".join(bad[:3]))
else:
    print(f"PASS {name}: {summary}")
PY
  rm -rf "$dir"
done
