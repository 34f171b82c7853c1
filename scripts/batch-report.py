#!/usr/bin/env python3
"""Turns the results of a batch (the JSON lines trimora appends with -json)
into one self-contained HTML page: the totals, a table of every file sorted
by the bytes saved, and a bar chart of the savings per file.

    scripts/batch-report.py RESULTS.jsonl [OUT.html]

Without OUT.html the page goes to standard output.  Lines that are not JSON
objects are counted and listed on the page; they do not stop the report.
Only the standard library is used.
"""

import html
import json
import math
import sys


def esc(value):
    """Any value as text, escaped for HTML text and attribute values."""
    return html.escape("" if value is None else str(value), quote=True)


def as_int(value):
    """An integer byte count, or None (null, missing, or not a number)."""
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        return None
    if isinstance(value, float) and not math.isfinite(value):
        return None
    return int(value)


def as_float(value):
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        return None
    return float(value) if math.isfinite(value) else None


class Entry:
    """One document of the batch, with the values the page shows."""

    def __init__(self, record):
        self.input = record.get("input")
        if not isinstance(self.input, str):
            self.input = "" if self.input is None else json.dumps(self.input)
        self.success = record.get("success") is True
        self.error = record.get("error")
        self.before = as_int(record.get("size_before"))
        self.after = as_int(record.get("size_after")) if self.success else None
        self.elapsed = as_float(record.get("elapsed"))
        self.warnings = as_int(record.get("warnings")) or 0
        self.kept = record.get("kept_input") is True

    @property
    def saved(self):
        """Bytes saved (negative when the file grew); None without both sizes."""
        if self.before is None or self.after is None:
            return None
        return self.before - self.after

    @property
    def percent(self):
        if self.saved is None or not self.before:
            return None
        return 100.0 * self.saved / self.before


def read_results(path):
    """The entries of the file, and the numbers of the lines that were not
    JSON objects.  Blank lines are passed over."""
    entries, bad = [], []
    with open(path, "rb") as f:
        for number, raw in enumerate(f, 1):
            text = raw.decode("utf-8", errors="replace").strip()
            if not text:
                continue
            try:
                record = json.loads(text)
            except ValueError:
                bad.append(number)
                continue
            if not isinstance(record, dict):
                bad.append(number)
                continue
            entries.append(Entry(record))
    return entries, bad


def sort_key(entry):
    # Most bytes saved first; files without sizes (failures) last, by name.
    if entry.saved is None:
        return (1, 0, entry.input)
    return (0, -entry.saved, entry.input)


def size_text(n):
    if n is None:
        return "\u2013"
    return "{:,}".format(n)


def short_size(n):
    """1.2 MB, 340 kB, 12 B: for the totals and the chart's labels."""
    sign = "-" if n < 0 else ""
    n = abs(n)
    for unit, scale in (("GB", 1e9), ("MB", 1e6), ("kB", 1e3)):
        if n >= scale:
            return "{}{:.1f} {}".format(sign, n / scale, unit)
    return "{}{} B".format(sign, n)


def percent_text(p):
    return "\u2013" if p is None else "{:.1f}%".format(p)


def chart_svg(entries):
    """A bar per file with sizes, sorted by the bytes saved, as inline SVG.
    Bars above the axis are savings, bars below it files that grew."""
    values = [(e.input, e.saved) for e in entries if e.saved is not None]
    if not values:
        return "<p>No file has sizes to plot.</p>"
    width, height, pad_left, pad = 900, 300, 80, 20
    top = max(0, max(v for _, v in values))
    bottom = min(0, min(v for _, v in values))
    span = (top - bottom) or 1
    plot_h = height - 2 * pad
    plot_w = width - pad_left - pad

    def y(v):
        return pad + (top - v) * plot_h / span

    step = plot_w / len(values)
    bar = max(step * 0.8, 0.5)
    parts = [
        '<svg xmlns="http://www.w3.org/2000/svg" width="{0}" height="{1}" '
        'viewBox="0 0 {0} {1}" role="img" aria-label="Bytes saved per file">'.format(width, height)
    ]
    for k, (name, v) in enumerate(values):
        y0, y1 = sorted((y(0), y(v)))
        parts.append(
            '<rect class="{}" x="{:.2f}" y="{:.2f}" width="{:.2f}" height="{:.2f}">'
            "<title>{}: {} bytes</title></rect>".format(
                "saved" if v >= 0 else "grown", pad_left + k * step + (step - bar) / 2,
                y0, bar, max(y1 - y0, 0.5), esc(name), esc(size_text(v))))
    axis = y(0)
    parts.append('<line x1="{0}" y1="{2:.2f}" x2="{1}" y2="{2:.2f}" class="axis"/>'.format(
        pad_left, width - pad, axis))
    if top > 0:
        parts.append('<text x="{}" y="{:.2f}" class="label">{}</text>'.format(
            pad_left - 6, y(top) + 4, esc(short_size(top))))
    if bottom < 0:
        parts.append('<text x="{}" y="{:.2f}" class="label">{}</text>'.format(
            pad_left - 6, y(bottom), esc(short_size(bottom))))
    parts.append('<text x="{}" y="{:.2f}" class="label">0</text>'.format(pad_left - 6, axis + 4))
    parts.append("</svg>")
    return "\n".join(parts)


STYLE = """
body { font-family: sans-serif; margin: 2em; color: #222; }
table { border-collapse: collapse; }
th, td { padding: 0.2em 0.6em; border-bottom: 1px solid #ddd; text-align: left; }
td.num, th.num { text-align: right; font-variant-numeric: tabular-nums; }
tr.failed td { color: #a00; }
.totals td:first-child { font-weight: bold; }
svg rect.saved { fill: #3a7; }
svg rect.grown { fill: #c44; }
svg line.axis { stroke: #444; stroke-width: 1; }
svg text.label { font-size: 11px; text-anchor: end; fill: #444; }
"""


def render(source, entries, bad):
    ok = [e for e in entries if e.success]
    sized = [e for e in ok if e.saved is not None]
    before = sum(e.before for e in sized)
    after = sum(e.after for e in sized)
    saved_pct = 100.0 * (before - after) / before if before else None
    totals = [
        ("Files", "{:,}".format(len(entries))),
        ("Succeeded", "{:,}".format(len(ok))),
        ("Failed", "{:,}".format(len(entries) - len(ok))),
        ("Bytes before", "{} ({})".format(size_text(before), short_size(before))),
        ("Bytes after", "{} ({})".format(size_text(after), short_size(after))),
        ("Bytes saved", "{} ({})".format(size_text(before - after), short_size(before - after))),
        ("Percent saved", percent_text(saved_pct)),
        ("Inputs kept (output was larger)", "{:,}".format(sum(1 for e in ok if e.kept))),
        ("Warnings", "{:,}".format(sum(e.warnings for e in entries))),
    ]
    if bad:
        shown = ", ".join(str(n) for n in bad[:20]) + (", ..." if len(bad) > 20 else "")
        totals.append(("Unreadable lines", "{:,} (line {})".format(len(bad), shown)))

    out = [
        "<!DOCTYPE html>",
        '<html lang="en"><head><meta charset="utf-8">',
        "<title>Batch report: {}</title>".format(esc(source)),
        "<style>{}</style></head><body>".format(STYLE),
        "<h1>Batch report</h1>",
        "<p>Results read from <code>{}</code>. Sizes and savings count the "
        "files that succeeded.</p>".format(esc(source)),
        '<table class="totals">',
    ]
    for name, value in totals:
        out.append('<tr><td>{}</td><td class="num">{}</td></tr>'.format(esc(name), esc(value)))
    out.append("</table>")

    ordered = sorted(entries, key=sort_key)
    out.append("<h2>Bytes saved per file</h2>")
    out.append(chart_svg(ordered))

    out.append("<h2>Files</h2>")
    out.append("<table><thead><tr><th>Input</th><th class=\"num\">Before</th>"
               "<th class=\"num\">After</th><th class=\"num\">Percent saved</th>"
               "<th class=\"num\">Elapsed (s)</th><th class=\"num\">Warnings</th>"
               "<th>Error or note</th></tr></thead><tbody>")
    for e in ordered:
        note = e.error if not e.success else ("input kept" if e.kept else "")
        out.append(
            '<tr{}><td>{}</td><td class="num">{}</td><td class="num">{}</td>'
            '<td class="num">{}</td><td class="num">{}</td><td class="num">{}</td>'
            "<td>{}</td></tr>".format(
                "" if e.success else ' class="failed"', esc(e.input), esc(size_text(e.before)),
                esc(size_text(e.after)), esc(percent_text(e.percent)),
                esc("\u2013" if e.elapsed is None else "{:.2f}".format(e.elapsed)),
                esc(e.warnings), esc(note)))
    out.append("</tbody></table>")
    out.append("</body></html>")
    return "\n".join(out) + "\n"


def main(argv):
    if len(argv) not in (2, 3) or argv[1] in ("-h", "--help"):
        sys.stderr.write("usage: batch-report.py RESULTS.jsonl [OUT.html]\n")
        return 2
    try:
        entries, bad = read_results(argv[1])
    except OSError as e:
        sys.stderr.write("batch-report.py: cannot read {}: {}\n".format(argv[1], e.strerror))
        return 1
    page = render(argv[1], entries, bad)
    if len(argv) == 3:
        with open(argv[2], "w", encoding="utf-8") as f:
            f.write(page)
    else:
        sys.stdout.buffer.write(page.encode("utf-8"))
    if bad:
        sys.stderr.write("batch-report.py: {} line(s) of {} are not JSON records and were passed over\n"
                         .format(len(bad), argv[1]))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
