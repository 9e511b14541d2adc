#!/usr/bin/env python3
"""Makes docs/cost.md and docs/cost.svg of what the benches have kept. Every number of the page is theirs, or reckoned of
theirs here.

    page.py BUILD DOCS      BUILD: the folder of the build that was measured; its bench/results/*.json are read

A bench that was not run has no part of the page. plots.py draws.
"""
import datetime
import json
import pathlib
import re
import sys

import plots

DAY = 24 * 60 * 60
PASSES_OF_A_DAY = DAY // 300  # the scheduled task starts one every five minutes


class Missing(Exception):
    """A bench was not run, or keeps its figures otherwise than this page expects."""


class Results:
    """All tables, by their names and in the order of these."""

    def __init__(self, folder):
        self.files = sorted(folder.glob("*.json"), key=lambda file: file.stem)
        self.tables = {file.stem: json.loads(file.read_text(encoding="utf-8")) for file in self.files}

    def numbers(self, name, row, column):
        """The rows whose first cells match, each with the number in the first column whose head begins like that."""
        table = self.tables.get(name, {"rows": [], "columns": []})
        at = next((i for i, head in enumerate(table["columns"]) if head.startswith(column)), None)
        found = [(cells[0], float(re.search(r"-?[\d.]+", cells[at].replace(",", "")).group()))
                 for cells in table["rows"] if at is not None and re.search(row, cells[0])]
        if not found:
            raise Missing(f"{name} has no {column!r} in a row like {row!r}")
        return found

    def dates(self):
        days = [datetime.date.fromtimestamp(file.stat().st_mtime) for file in self.files]
        return str(min(days)) if min(days) == max(days) else f"{min(days)} to {max(days)}"


def first(pattern, text, otherwise):
    found = re.search(pattern, text, re.M)
    return found.group(1) if found else otherwise


def machine(build):
    """What was measured on, without a name that is one computer's."""
    cpu = pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8")
    kernel = pathlib.Path("/proc/sys/kernel/osrelease").read_text(encoding="utf-8")
    memory = pathlib.Path("/proc/meminfo").read_text(encoding="utf-8")
    compiler = "".join(f.read_text(encoding="utf-8") for f in build.glob("CMakeFiles/*/CMakeCXXCompiler.cmake"))
    kind = first(r"^CMAKE_BUILD_TYPE:\w+=(\w+)", (build / "CMakeCache.txt").read_text(encoding="utf-8"), "unknown")
    cores, gib = len(re.findall(r"^processor\s*:", cpu, re.M)), int(first(r"^MemTotal:\s*(\d+)", memory, "0")) / 2**20
    model, release = first(r"^model name.*: (.+)", cpu, "unknown processor"), first(r"^([0-9.]+)", kernel, "")
    made_by = [first(rf"CMAKE_CXX_COMPILER_{what} .([\w.]+)", compiler, "") for what in ("ID", "VERSION")]
    return f"{cores} cores, {model}, {gib:.0f} GiB, Linux {release}, {' '.join(made_by)}, {kind} build"


def pass_words(results):
    (_, new), *_, (fullest, full) = results.numbers("1-pass", r"^stand-in library, (new file|\d+ rows of a kind)$", "ms cpu")
    (_, nothing), = results.numbers("1-pass-steps", "nothing due", "ms cpu")
    seconds = full * PASSES_OF_A_DAY / 1e3
    return (f"**A pass** takes {new:.1f} ms of a processor when it stores a row of each kind in a new file, {full:.1f} ms "
            f"when the file has {re.search('[0-9]+', fullest).group()} rows of a kind already; with a library of constants "
            f"it is {nothing:.1f} ms when nothing is due, as for most. One starts every five minutes: if all "
            f"{PASSES_OF_A_DAY} of a day were of the dearest kind, they would take {seconds:.1f} s of one core, one part in "
            f"{DAY / seconds:,.0f}. A millisecond less in each pass buys {PASSES_OF_A_DAY / 1e3:.2f} s of a core a day. No "
            "battery feels that; what it buys is that a mistake shows: a pass that suddenly takes twice as long does "
            "something that it need not.")


def upload_words(results):
    (least, start), *_, (most, end) = [(float(row.split()[0]), number) for row, number in
                                       results.numbers("3-upload", r"^\d+ MiB, pass$", "ms processor")]
    each = (end - start) / (most - least)
    return (f"**An upload** of {least:.0f} MiB takes {start:,.0f} ms of a processor, and each further MiB {each:,.0f} ms. "
            "A notebook's files are of kilobytes and go up once a month ([fleet.md](fleet.md)), so it pays for little more "
            "than the connection; the sizes here show what a request costs and that nothing grows faster than the file.")


def call_words(results):
    (_, median), = results.numbers("4-calls", "^1 client", "median")
    (_, rate), = results.numbers("4-calls", "^1 client", "service")
    return (f"**A call** of an application is answered in {median * 1e3:,.0f} µs: the median of one client, which makes "
            f"{rate:,.0f} a second so. An application asks a few times in its life, so its user waits for nothing. What a "
            "microsecond less buys is room: of many clients at once each waits for all the others, since the service takes "
            "one call at a time.")


WORDS = [pass_words, upload_words, call_words]


def paragraphs(results):
    for words in WORDS:
        try:
            yield words(results)
        except Missing as missing:
            print(f"page.py: left out: {missing}", file=sys.stderr)


def table(rows, right):
    """Markdown. `right` says by its number whether a column stands to the right."""
    def cell(text):
        return f"{int(text):,}" if re.fullmatch(r"\d{5,}", text) else text.replace("|", "\\|")
    line = ["---:" if right(i) else "---" for i in range(len(rows[0]))]
    return ["| " + " | ".join(map(cell, cells)) + " |" for cells in [rows[0], line, *rows[1:]]]


def shown(number):
    return f"{number:,.0f}" if abs(number) >= 100 else f"{number:,.2f}".rstrip("0").rstrip(".")


def aim_rows(aims):
    for aim in aims:
        limit = ("at least " if aim["atLeast"] else "at most ") + shown(aim["limit"])
        yield [aim["what"], limit, shown(aim["value"]), "held" if aim["held"] else "**missed**"]


def page(results, build):
    aims = [aim for part in results.tables.values() for aim in part["aims"]]
    missed = [aim["what"] for aim in aims if not aim["held"]]
    lines = ["# What it costs", "",
             "What a pass, an upload and a call take of a notebook, beside plain programs that do the same work and nothing "
             "else, as `./dev bench` measures it. All figures and the picture are the benches' own: this page is made by "
             "`bench/page.py`, so change it there.", "",
             f"Measured on {machine(build)}, {results.dates()}. Times are wall times unless they say processor; figures "
             "of another machine differ, and ratios to the plain program less.", ""]
    for words in paragraphs(results):
        lines += [words, ""]
    if aims:
        lines += [f"Of {len(aims)} aims {len(aims) - len(missed)} are held" + (", all but these:" if missed else "."), ""]
        lines += [f"- {what}" for what in missed] + ([""] if missed else [])
    lines += ["![All plots of this page: " + "; ".join(p["title"] for p in all_plots(results)) + "](cost.svg)", "",
              "    ./dev bench [RUNS [DIR]]         all of it, and this page anew",
              "    ./dev bench PART [RUNS [DIR]]    pass, idle, upload, calls, windows, records, programs or growth alone",
              "    ./dev bench page                 this page of what was measured last", ""]
    for part in results.tables.values():
        head, _, rest = re.split(r"([,:.] |$)", part["title"], maxsplit=1)
        lines += ["## " + head, ""] + ([rest[0].upper() + rest[1:] + ".", ""] if rest else [])
        lines += table([part["columns"], *part["rows"]], lambda i: i > 0) + [""]
        lines += [f"- {text.rstrip('.')}." for text in part["texts"]]
        lines += [""] if part["texts"] else []
        if part["aims"]:
            lines += table([["Wanted", "", "Measured", ""], *aim_rows(part["aims"])], lambda i: i == 2) + [""]
    return "\n".join(lines).rstrip() + "\n"


def all_plots(results):
    """Ours before what they are compared with, so that both look the same in each."""
    plots_of_all = [plot for part in results.tables.values() for plot in part["plots"] if plot["curves"]]
    for plot in plots_of_all:
        plot["curves"] = dict(sorted(plot["curves"].items(), key=lambda c: bool(re.search("plain|bare|same|shell", c[0]))))
    return plots_of_all


def main():
    build, docs = map(pathlib.Path, sys.argv[1:3])
    results = Results(build / "bench" / "results")
    if not results.tables:
        sys.exit("page.py: no bench has left its figures")
    (docs / "cost.md").write_text(page(results, build), encoding="utf-8")
    (docs / "cost.svg").write_text(plots.picture(all_plots(results)), encoding="utf-8")


if __name__ == "__main__":
    main()
