#!/usr/bin/python3
"""Writes bench/results.md from the rows of bench/run and the timings of bench/alternate.py.

    table.py ROWS.tsv TIMES_DIR RESULTS.md RUN.log [MACHINE.txt]
"""
import json
import re
import sys

CLASSIC, NC4 = "ncdump -v classic | pipe", "ncdump -v netCDF-4 | pipe"
# Each row is set against peers of the same model: (peer label, compared quantity, wording); a
# quantity named "/nsv" is the peer's ns/value over this row's, how many times fewer this needs.
AGAINST = {
    "metadata report": [("ncdump -h", "median", "× the time of ncdump -h")],
    "EKM report": [("metadata report", "median", "× the metadata report")],
    "dump | pipe": [(CLASSIC, "rate", "× the text rate of ncdump -v classic"),
                    (CLASSIC, "/nsv", "× fewer ns/value than it"),
                    (NC4, "rate", "× the text rate of ncdump -v netCDF-4")],
    "dump | pipe, 1 thread": [("dump | pipe", "median", "× the time on all cores")],
    "dump | pipe, 12 parts": [("dump | pipe, 1 part", "median", "× the time of one part")],
    "dump > file": [("dump | pipe", "median", "× the time into a pipe")],
    "dump > /dev/null": [("dump | pipe", "median", "× the time into a pipe")],
}
# Lines of the run's log that go under the table.
KEEP = ("plane decode", "dump value lines", "  OutputBuffer", "  iostream", "  ratio", "float text",
        "  every 257th", "  dump-like mix", "    text", "    field", "small:", "10M:", "medium:",
        "large:", "check ")


def read_rows(rows_path, times_dir):
    rows = []
    for line in open(rows_path):
        model, label, nbytes, count, zol, largest = line.rstrip("\n").split("\t")
        t = json.load(open("%s/%s.json" % (times_dir, model)))[label]
        median, nbytes, count = t["median"], int(nbytes), int(count)
        rows.append(dict(model=model, label=label, median=median, low=min(t["seconds"]),
                         high=max(t["seconds"]), rss=t["peak_kib"] / 1024.0, zol=int(zol),
                         budget=int(largest) / 2**20 + 64,
                         rate=nbytes / median / 1e6,
                         nsv=median * 1e9 / count if count else None))
    return rows


def table(rows):
    by = {(r["model"], r["label"]): r for r in rows}
    lines = ["| model | Zol file | command | median s (min–max) | text MB/s | ns/value "
             "| peak RSS MiB (budget) | ratios |", "|---|---|---|---|---|---|---|---|"]
    for r in rows:
        notes = []
        for label, key, words in AGAINST.get(r["label"], []):
            peer = by.get((r["model"], label))
            if peer and key == "/nsv" and r["nsv"]:
                notes.append("%.2f%s" % (peer["nsv"] / r["nsv"], words))
            elif peer and key != "/nsv" and peer[key]:
                notes.append("%.2f%s" % (r[key] / peer[key], words))
        rate = "%.0f" % r["rate"] if r["rate"] >= 10 else "%.2f" % r["rate"]
        # A bar inside a cell would end it.
        label = r["label"].replace("|", "\\|")
        # ZolInfo's own peaks against its budget: the largest unpacked block plus 64 MiB.
        peak = "%.0f" % r["rss"]
        if "ncdump" not in label:
            peak += " (%.0f)%s" % (r["budget"], "" if r["rss"] <= r["budget"] else " OVER")
        lines.append("| %s | %.1f MiB | %s | %.3f (%.3f–%.3f) | %s | %s | %s | %s |" % (
            r["model"], r["zol"] / 2**20, label, r["median"], r["low"], r["high"], rate,
            "%.1f" % r["nsv"] if r["nsv"] else "–", peak, "; ".join(notes)))
    return "\n".join(lines)


def main():
    rows_path, times_dir, out_path, log_path = sys.argv[1:5]
    machine = open(sys.argv[5]).read().splitlines() if len(sys.argv) > 5 else []
    text = table(read_rows(rows_path, times_dir))
    plain = (re.sub(r"\x1b\[[0-9;]*m", "", l).rstrip() for l in open(log_path))
    micro = [l for l in plain if l.startswith(KEEP)]
    doc = ["# ZolInfo benchmark results", "",
           "Made by `bench/run`; every ratio comes from the same run on the same machine, on "
           "which the commands of one model were taken in turn, round after round "
           "(`bench/alternate.py`).", ""] + ["- " + line for line in machine] + ["",
           "## Whole processes (median of the rounds; peak RSS of the largest process)", "",
           text, "",
           "Budget: ZolInfo's peak may be at most the model's largest unpacked block plus "
           "64 MiB (bench/LargestBlock.cpp). "
           "ns/value: time per number printed (the dump's node, element and value fields; the "
           "values of one variable for ncdump -v). Text MB/s: bytes of output per second. "
           "`| pipe` is `| cat >/dev/null`, as a reading program sees it. The 10M model holds "
           "the 10 million floats (3 components) of the NetCDF variable, beside its mesh.",
           "", "## Micro-benchmarks, generated models and checks", "", "```"] + micro + ["```", ""]
    open(out_path, "w").write("\n".join(doc))
    print(text)


if __name__ == "__main__":
    main()
