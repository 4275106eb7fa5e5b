#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-Tarnix
"""Turns the output of the benchmarks into tables and a picture.

usage: report.py RESULTS PAGE FULL PICTURE

RESULTS is a directory with the output of the programs of bench/ (*.json) and facts.txt, lines of
"name<tab>value" about the build. PAGE (docs/performance.md) gets the headline rows between its two
marks. FULL (docs/performance-results.md) and PICTURE are written whole. The exit status is 1 if a row
is below its target or was not measured.
"""
import html
import json
import pathlib
import re
import sys

BEGIN = "<!-- figures: written by scripts/bench -->"
END = "<!-- end of figures -->"
FULL_HEAD = """# All results of the benchmarks

Written by `scripts/bench`. [Speed](performance.md) explains how a row is measured and which rows are
below their target. A ratio is the peer's time divided by the library's: above 1 the library is faster.
A ratio in bold is below its target.

Peers without a library's name: `raw` is a loop of system calls, `popen` and `stdio` are the calls of
the C library, `table` and `switch` are loops over a table and with a switch, `by_hand` is a reader and
a writer for that one format, `std` uses the standard library, and `icu_uncut` is ICU without the search
for the terminator.
"""

# row, the peer that it is measured against, the target for the ratio (None: only shown), the work.
# "name/argument" is one argument of a benchmark; "name" includes "name_kind" for every kind.
ROWS = [
    ("Commands", [
        ("start", "raw", 0.95, "start and end of /bin/true"),
        ("start_1gib", "raw", 0.95, "the same, caller with 1 GiB resident"),
        ("start_fds", "raw", 0.95, "the same, descriptor limit up to 100,000"),
        ("start_user", "plain", 0.40, "/bin/true as another user, against a plain start"),
        ("start_user", "setpriv", 1.0, "/bin/true as another user"),
        ("lines", "popen", 1.4, "a million lines of 40 bytes, against the best peer"),
        ("lines", "raw", 0.90, "a million lines of 40 bytes"),
        ("lines_size", "raw", None, "up to a million lines or 40 MB, bytes a line"),
        ("lines_1gib", "raw", None, "1 GiB in lines of 200 bytes"),
    ]),
    ("Digest and hex text", [
        ("md5", "openssl", 1.0, "MD5: object, digest and text"),
        ("hex", "table", 0.80, "binary2str, bytes"),
        ("hex_wide", "table", 0.80, "binary2wstr, bytes"),
        ("hex_uid", "table", 0.80, "binary2uid, bytes"),
        ("hex_digest", "table", 0.80, "a digest's text"),
    ]),
    ("Trace and configuration", [
        ("trace_line", "raw", 0.90, "trace line written"),
        ("trace_dropped", "spdlog", 0.50, "trace line dropped"),
        ("config_import/10000", "ace", 0.75, "settings import, values: each line is checked"),
        ("config_section/20000", "ace", 0.95, "settings import, values in one section"),
        ("config_export/10000", "ace", 0.80, "settings export, values: what ACE writes is checked"),
        ("config_get", "ace", None, "settings, one value by name"),
    ]),
    ("Bounded functions", [
        ("sscanf_header", "glibc", 2.5, "TX_sscanf, a message's header"),
        ("sscanf_argument", "glibc", 2.5, "TX_sscanf, an argument's tag"),
        ("sscanf_numbers", "glibc", 2.5, "TX_sscanf, numbers"),
        ("strtoimax", "glibc", 1.0, "TX_strtoimax"),
        ("strtoumax", "glibc", 1.0, "TX_strtoumax"),
        ("snprintf", "glibc", 0.95, "TX_snprintf"),
    ]),
    ("Text", [
        ("read_number", "std", 0.90, "readNumber, against std::from_chars"),
        ("read_hex", "std", 0.90, "readHex, against std::from_chars"),
        ("str2ustr_ascii/20", "icu", 1.0, "short ASCII to UTF-16"),
        ("str2ustr_ascii/65536", "icu", 3.0, "ASCII to UTF-16"),
        ("str2ustr", "icu", 1.0, "UTF-8 to UTF-16"),
        ("ustr2str_ascii/20", "icu", 1.0, "UTF-16 to short ASCII"),
        ("ustr2str_ascii/65536", "icu", 3.0, "UTF-16 to ASCII"),
        ("ustr2str", "icu", 1.0, "UTF-16 to UTF-8"),
        ("str2wstr", "glibc", 0.90, "locale's encoding to wide"),
        ("wstr2str", "glibc", 0.90, "wide to locale's encoding"),
        ("str2tstr", "glibc", 0.90, "locale's encoding to tstr"),
        ("tstr2str", "glibc", 0.90, "tstr to locale's encoding"),
        ("searchreplace", "std", 0.90, "searchreplace"),
        ("xml_escape", "std", 0.90, "XML escapes"),
        ("xml_unescape", "std", 0.90, "XML escapes undone"),
        ("tokenize", "std", 0.90, "tokenize"),
        ("compare_no_case", "std", 0.90, "CompareNoCase"),
        ("tostrlower", "std", 0.90, "tostrlower"),
    ]),
    ("Messages", [
        ("format_placeholders", "icu", 0.95, "formatMessage, two placeholders"),
        ("format_plural", "icu", 0.95, "formatMessage, plural"),
        ("format_literal", "icu", 0.95, "formatMessage, text only"),
        ("lookup", "icu", 0.20, "lookup through the manager"),
        ("lookup_list", "plain", None, "lookup by a list, against one by a language"),
        ("serialize", "by_hand", 0.70, "serialize, arguments"),
        ("serialize_text", "by_hand", 0.70, "serialize, one text"),
        ("deserialize", "by_hand", 0.70, "deserialize, arguments"),
        ("deserialize_text", "by_hand", 0.70, "deserialize, one text"),
    ]),
    ("XML", [
        ("sax", "xerces", 0.95, "all character data of 10 MiB, entries"),
        ("sax_declarations", "xerces", 0.95, "the same with declarations, entries"),
    ]),
]
NEEDS_ROOT = {"start_user"}  # not measured by another user, and not in every container
# The rows of PAGE: row and label in ROWS. Of a row with two peers the last one.
HEADLINES = [
    ("start", ""), ("start_user", ""), ("lines", ""),
    ("md5", "1,024"), ("hex", "1,024"), ("trace_line", ""),
    ("trace_dropped", ""), ("config_import/10000", "10,000"), ("config_export/10000", "10,000"),
    ("sscanf_header", ""), ("str2ustr_ascii/65536", "65,536"),
    ("str2ustr", "mixed, 65,536"), ("searchreplace", "few, 65,536"),
    ("format_placeholders", ""), ("lookup", ""), ("serialize", "1,000"), ("deserialize", "1,000"),
    ("sax", "66,000"),
]
# Shown for every argument, as the cost of one item.
GROWTH = [
    ("start_caller", "raw", "MiB resident, one start"),
    ("threads", "raw", "runners in threads, one start"),
    ("lines_growth", "raw", "lines, each"),
    ("serialize", "by_hand", "arguments, each"),
    ("deserialize", "by_hand", "arguments, each"),
    ("serialize_text", "by_hand", "bytes of text, each"),
    ("deserialize_text", "by_hand", "bytes of text, each"),
    ("config_import", "ace", "values, each"),
    ("config_export", "ace", "values, each"),
    ("tokenize_growth", "std", "delimiters, each"),
    ("searchreplace_growth", "std", "matches, each"),
    ("sax_growth", "xerces", "entries, each"),
]


class Figures:
    """Medians by row, peer and argument, in nanoseconds."""

    def __init__(self, folder):
        self.rows = {}
        self.context = {}
        self.spread = {}
        for path in sorted(folder.glob("*.json")):
            data = json.loads(path.read_text())
            self.context.update(data["context"])
            for entry in data["benchmarks"]:
                self.take(entry, path.name)

    def take(self, entry, source):
        if entry.get("error_occurred"):
            sys.exit(f"{source}: {entry['name']}: {entry.get('error_message')}")
        aggregate = entry.get("aggregate_name")
        if aggregate not in ("median", "cv"):
            return
        parts = entry["run_name"].split("/")
        row, _, peer = parts[0].partition(":")
        argument = "/".join(p for p in parts[1:] if re.fullmatch(r"(\w+:)?\d+", p)
                            and not p.startswith(("threads:", "repeats:", "iterations:",
                                                  "min_time:")))
        argument = re.sub(r"\w+:", "", argument)
        clock = "real_time" if "real_time" in parts else "cpu_time"
        if aggregate == "cv":
            self.spread[row, peer, argument] = entry[clock]
            return
        scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[entry["time_unit"]]
        self.rows.setdefault(row, {}).setdefault(argument, {})[peer] = entry[clock] * scale


def time_text(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def number_text(argument):
    return f"{int(argument):,}" if argument.isdigit() else argument


def variants(figures, name):
    """(label, times by peer) for each kind and argument of a row of ROWS, sorted."""
    row, _, only = name.partition("/")
    listed = {one[0].partition("/")[0] for _, rows in ROWS for one in rows} | {
        one[0] for one in GROWTH}
    for known in sorted(figures.rows):
        kind = known[len(row) + 1:]
        if known != row and (not known.startswith(row + "_") or known in listed):
            continue
        for argument, times in sorted(figures.rows[known].items(),
                                      key=lambda one: (len(one[0]), one[0])):
            if only in ("", argument):
                yield ", ".join(filter(None, (kind.replace("_", " "),
                                              argument and number_text(argument)))), times


def ratios(figures):
    """(section, row, label, target, what, times, base) of all rows, and the names of missing rows."""
    found, missing = [], []
    for section, rows in ROWS:
        for row, base, target, what in rows:
            before = len(found)
            for label, times in variants(figures, row):
                if base in times and "tarnix" in times:
                    found.append((section, row, label, target, what, times, base))
                else:
                    missing.append(f"{row} {label}")
            if len(found) == before and row not in NEEDS_ROOT:
                missing.append(row)
    return found, missing


TABLE_HEAD = ["| Work | library | measured against | ratio | target | other peers |",
              "|---|---|---|---|---|---|"]


def below(target, ratio):
    return target is not None and round(ratio, 2) < target


def table_row(kind, target, what, times, base):
    ratio = times[base] / times["tarnix"]
    mark = "**" if below(target, ratio) else ""
    others = ", ".join(f"{peer} {times[base] / time:.2f}"
                       for peer, time in sorted(times.items(), key=lambda one: one[1])
                       if peer not in ("tarnix", base))
    label = what + (f" ({kind})" if kind else "")
    return (f"| {label} | {time_text(times['tarnix'])} | {base} {time_text(times[base])} "
            f"| {mark}{ratio:.2f}{mark} | {'' if target is None else target} | {others} |")


def main_table(found):
    lines, short, section_now = [], [], None
    for section, row, kind, target, what, times, base in found:
        if section != section_now:
            lines += ["", f"## {section}", ""] + TABLE_HEAD
            section_now = section
        ratio = times[base] / times["tarnix"]
        if below(target, ratio):
            short.append(f"{row} {kind}: {ratio:.2f} < {target}")
        lines.append(table_row(kind, target, what, times, base))
    return lines, short


def headline_table(found):
    """The rows of HEADLINES, and the names of those that were not found."""
    rows = {(row, kind): table_row(kind, target, what, times, base)
            for _, row, kind, target, what, times, base in found}
    lines = [rows[one] for one in HEADLINES if one in rows]
    return TABLE_HEAD + lines, [" ".join(one) for one in HEADLINES
                                if one not in rows and one[0] not in NEEDS_ROOT]


def growth_table(figures):
    lines = ["| Row | n | library, per item | peer, per item | ratio |", "|---|---|---|---|---|"]
    missing = []
    for row, base, what in GROWTH:
        if row not in figures.rows:
            missing.append(row)
        one_item = what.endswith("one start")
        for argument, times in sorted(figures.rows.get(row, {}).items(),
                                      key=lambda one: int(one[0] or 0)):
            if not argument:
                continue
            if base not in times or "tarnix" not in times:
                missing.append(f"{row}/{argument}")
                continue
            items = figures_per_item(row, argument, one_item)
            lines.append(f"| {row}: {what} | {number_text(argument)} "
                         f"| {time_text(times['tarnix'] / items)} "
                         f"| {base} {time_text(times[base] / items)} "
                         f"| {times[base] / times['tarnix']:.2f} |")
    return lines, missing


STARTS_A_THREAD = 5


def figures_per_item(row, argument, one_item):
    if row == "threads":
        return int(argument) * STARTS_A_THREAD
    return 1 if one_item else int(argument)


def picture(found):
    """A bar for the lowest ratio of each row, with a mark at its target."""
    lowest = {}
    for _, row, _, target, what, times, base in found:
        ratio = times[base] / times["tarnix"]
        if target is not None and ratio < lowest.get(row, (0, 0, float("inf")))[2]:
            lowest[row] = (what, base, ratio, target)
    bars = list(lowest.values())
    left, width, step, top = 300, 480, 20, 46
    longest = 3.0
    scale = width / longest
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 130}" '
           f'height="{top + step * len(bars) + 14}" font-family="sans-serif" font-size="12">',
           '<rect width="100%" height="100%" fill="#ffffff"/>',
           f'<text x="{left}" y="18" font-size="14" fill="#222">How many times as fast as what it '
           'is measured against (red mark: target)</text>']
    for tick in range(int(longest) + 1):
        x = left + tick * scale
        out.append(f'<line x1="{x}" y1="{top - 8}" x2="{x}" y2="{top + step * len(bars)}" '
                   f'stroke="{"#888" if tick == 1 else "#ddd"}"/>')
        out.append(f'<text x="{x}" y="{top - 12}" text-anchor="middle" fill="#555">{tick}</text>')
    for i, (what, base, ratio, target) in enumerate(bars):
        y = top + i * step
        long = min(ratio, longest) * scale
        mark = left + min(target, longest) * scale
        colour = "#2f6f8f" if round(ratio, 2) >= target else "#b5792b"
        out.append(f'<text x="{left - 8}" y="{y + 13}" text-anchor="end" fill="#222">'
                   f'{html.escape(what)}</text>')
        out.append(f'<rect x="{left}" y="{y + 3}" width="{long:.1f}" height="{step - 7}" '
                   f'fill="{colour}"/>')
        out.append(f'<line x1="{mark:.1f}" y1="{y + 1}" x2="{mark:.1f}" y2="{y + step - 2}" '
                   'stroke="#c0392b" stroke-width="2"/>')
        out.append(f'<text x="{left + max(long, mark - left) + 6:.1f}" y="{y + 13}" fill="#555">'
                   f'{ratio:.2f} {html.escape(base)}</text>')
    out.append("</svg>")
    return "\n".join(out) + "\n"


def facts_lines(folder):
    facts = [line.split("\t", 1) for line in (folder / "facts.txt").read_text().splitlines()]
    return ["| What | Value |", "|---|---|"] + [f"| {name} | {value} |" for name, value in facts]


def conditions(figures):
    context = figures.context
    peers = [f"{name[5:]} {value}" for name, value in sorted(context.items())
             if name.startswith("peer ")]
    spreads = sorted(figures.spread.values())
    middle = spreads[len(spreads) // 2] * 100 if spreads else 0
    return [f"Measured on {context['num_cpus']} cores of {context['mhz_per_cpu'] / 1000:.1f} GHz, "
            f"{context['date'][:10]}. Medians of 9 repetitions in random order, interleaved with "
            f"all other rows of the program. The median row has a coefficient of variation of "
            f"{middle:.1f} %.", "", "Peers: " + "; ".join(peers) + "."]


def between_marks(page, lines):
    """The text of PAGE with `lines` between its marks."""
    text = page.read_text()
    before, begin, rest = text.partition(BEGIN)
    _, end, after = rest.partition(END)
    if not begin or not end:
        sys.exit(f"{page} has no marks for the figures")
    return before + "\n".join([BEGIN, ""] + lines + ["", END]) + after


def main():
    folder, page, full, image = (pathlib.Path(argument) for argument in sys.argv[1:5])
    figures = Figures(folder)
    found, missing = ratios(figures)
    table, short = main_table(found)
    headlines, missing_headlines = headline_table(found)
    growth, missing_growth = growth_table(figures)
    page.write_text(between_marks(page, headlines))
    full.write_text("\n".join(
        [FULL_HEAD] + conditions(figures) + table + ["", "## How cost grows", ""] + growth
        + ["", "## Build, size and load", ""] + facts_lines(folder)) + "\n")
    image.write_text(picture(found))
    print("\n".join(table + [""] + growth))
    missing += missing_headlines + missing_growth
    for row in missing:
        print(f"NOT MEASURED: {row}")
    for row in short:
        print(f"BELOW TARGET: {row}")
    return 1 if short or missing else 0


if __name__ == "__main__":
    sys.exit(main())
