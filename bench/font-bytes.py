#!/usr/bin/env python3
"""Stored size of the embedded font programs of PDF files.

    font-bytes.py [--password PW] [--list [--decoded]] FILE...

For every FILE, one line "BYTES<TAB>PROGRAMS<TAB>FILE": the bytes that the
font program streams (/FontFile, /FontFile2 and /FontFile3 of every font
descriptor) take in the file as written, that is their /Length, still
compressed and, in an encrypted file, still encrypted; and how many such
streams there are.  A stream that several descriptors share counts once.

Only objects that the document reaches from its trailer count, so font
programs that an incremental update or an earlier edit left behind
unreferenced do not inflate the input's figure (a clean-up that merely
drops them is not a font gain).

--list adds, under each file's line, one indented line per font program:
object number, key (FontFile, FontFile2, FontFile3/Subtype), stored bytes,
decoded bytes ("-" without --decoded) and the /FontName of the descriptors
that use it.  Decoded bytes do not depend on how well a stream was
compressed, so they tell a subset from a whole program that was merely
recompressed; they cost one more qpdf run per program.

The file is read through `qpdf --json` (JSON version 2, qpdf 11 or later),
which parses object streams, cross-reference streams, damaged
cross-reference tables and encryption, so this script reads no PDF syntax
itself.  Exit status 1 when qpdf could not read a file (its line then says
"error").
"""
import json
import re
import signal
import subprocess
import sys

REF = re.compile(r'^(\d+) (\d+) R$')
FONT_KEYS = ('/FontFile', '/FontFile2', '/FontFile3')


def load(path, password):
    cmd = ['qpdf', '--json=2', '--json-key=qpdf', '--json-stream-data=none']
    if password:
        cmd.append('--password=' + password)
    cmd.append(path)
    run = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    # 3 is qpdf's "done, with warnings": damaged files still give full JSON.
    if run.returncode not in (0, 3) or not run.stdout:
        lines = run.stderr.decode('utf-8', 'replace').strip().splitlines()
        raise RuntimeError(lines[-1] if lines else 'qpdf exit status %d' % run.returncode)
    objects = json.loads(run.stdout)['qpdf'][1]
    return objects


def body(entry):
    """The dictionary, array or scalar of an object entry; a stream's dict."""
    if entry is None:
        return None
    if 'stream' in entry:
        return entry['stream'].get('dict', {})
    return entry.get('value')


def measure(objects):
    """[(objnum, key, subtype, bytes, names)] for every reachable font program."""
    def resolve(value):
        if isinstance(value, str):
            m = REF.match(value)
            if m:
                return body(objects.get('obj:%s %s R' % (m.group(1), m.group(2))))
        return value

    programs = {}  # object key -> [key, subtype, bytes, set of names]
    seen = set()
    stack = [objects.get('trailer', {}).get('value')]
    while stack:
        value = stack.pop()
        if isinstance(value, str):
            m = REF.match(value)
            if m:
                key = 'obj:%s %s R' % (m.group(1), m.group(2))
                if key not in seen:
                    seen.add(key)
                    stack.append(body(objects.get(key)))
            continue
        if isinstance(value, list):
            stack.extend(value)
            continue
        if not isinstance(value, dict):
            continue
        for font_key in FONT_KEYS:
            ref = value.get(font_key)
            m = REF.match(ref) if isinstance(ref, str) else None
            if not m:
                continue  # a font program is always an indirect stream
            obj_key = 'obj:%s %s R' % (m.group(1), m.group(2))
            entry = objects.get(obj_key)
            if not entry or 'stream' not in entry:
                continue
            stream_dict = entry['stream'].get('dict', {})
            length = resolve(stream_dict.get('/Length'))
            if not isinstance(length, int):
                length = 0
            subtype = stream_dict.get('/Subtype') if font_key == '/FontFile3' else None
            record = programs.setdefault(obj_key, [font_key[1:], subtype, length, set()])
            name = value.get('/FontName')
            if isinstance(name, str) and name.startswith('/'):
                record[3].add(name[1:])
        stack.extend(value.values())

    result = []
    for obj_key, (key, subtype, length, names) in programs.items():
        m = REF.match(obj_key[4:])
        result.append((int(m.group(1)), int(m.group(2)), key + (subtype or ''), length, sorted(names)))
    result.sort()
    return result


def decoded_size(path, password, number, generation):
    """Bytes of a stream once its filters are undone, or None."""
    cmd = ['qpdf', '--show-object=%d,%d' % (number, generation), '--filtered-stream-data']
    if password:
        cmd.append('--password=' + password)
    cmd.append(path)
    run = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    return len(run.stdout) if run.returncode in (0, 3) else None


def main(argv):
    args = argv[1:]
    password = ''
    listing = False
    decoded = False
    files = []
    while args:
        a = args.pop(0)
        if a == '--password':
            password = args.pop(0) if args else ''
        elif a.startswith('--password='):
            password = a.split('=', 1)[1]
        elif a == '--list':
            listing = True
        elif a == '--decoded':
            decoded = True
        elif a in ('-h', '--help'):
            print(__doc__.strip())
            return 0
        else:
            files.append(a)
    if not files:
        print(__doc__.strip().splitlines()[2].strip(), file=sys.stderr)
        return 2
    status = 0
    for path in files:
        try:
            programs = measure(load(path, password))
        except (RuntimeError, ValueError, KeyError, IndexError, OSError) as e:
            print('error\terror\t%s\t%s' % (path, e))
            status = 1
            continue
        print('%d\t%d\t%s' % (sum(p[3] for p in programs), len(programs), path))
        if listing:
            for number, generation, key, length, names in programs:
                size = decoded_size(path, password, number, generation) if decoded else None
                print('\t%d\t%s\t%d\t%s\t%s' % (number, key, length, '-' if size is None else size,
                                                  ' '.join(names) or '-'))
    return status


if __name__ == '__main__':
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # quiet when piped into head
    sys.exit(main(sys.argv))
