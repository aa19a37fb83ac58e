"""python3 -m zolfile catalog / extract: many files into an SQLite catalogue or JSON lines.

catalog PATH... --db FILE [--jobs N] [--timeout S]   read new and changed files into FILE
catalog --import PART.jsonl... --db FILE             load the output of extract into FILE
extract PATH... [--jobs N] [--timeout S]             one JSON record per file on stdout
"""

import collections
import json
import os
import sys
import time

from . import pool, records, store

_SUMMARY_ORDER = (records.LOADED, records.REFUSED, records.FAILED, records.TIMED_OUT,
                  "skipped", records.VANISHED)


def add_commands(commands):
    """Adds catalog and extract to the subcommands of `python3 -m zolfile`."""
    parser = commands.add_parser("catalog", help="record Zol files in an SQLite database")
    _common_options(parser)
    parser.add_argument("--db", required=True, metavar="FILE.sqlite")
    parser.add_argument("--import", dest="parts", action="store_true",
                        help="PATHs are JSON-lines files written by extract")
    parser.add_argument("--retry-failed", action="store_true",
                        help="read failed and timed out files again, changed or not")
    parser.set_defaults(run=run_catalog)
    parser = commands.add_parser("extract", help="one JSON line per Zol file on stdout")
    _common_options(parser)
    parser.set_defaults(run=run_extract)


def _common_options(parser):
    parser.add_argument("paths", nargs="+", metavar="PATH")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1, metavar="N")
    parser.add_argument("--timeout", type=float, default=120.0, metavar="SECONDS",
                        help="time limit for reading one file")


def _progress(total):
    try:
        from tqdm import tqdm
    except ImportError:
        return _NoProgress()
    return tqdm(total=total, unit="file", file=sys.stderr, disable=not sys.stderr.isatty())


class _NoProgress:
    def __enter__(self):
        return self

    def __exit__(self, *_):
        return False

    def update(self, _=1):
        pass


def _summary(command, counts, started):
    parts = [f"{counts[key]} {key}" for key in _SUMMARY_ORDER]
    print(f"{command}: {', '.join(parts)}, {time.monotonic() - started:.1f} s", file=sys.stderr)


def read_records(found, read, jobs, timeout):
    """Yields the full record of each (path, stat) as its worker finishes it."""
    with _progress(len(found)) as bar:
        for (path, info), outcome in pool.run(found, read, jobs, timeout):
            record = records.new_record(path, info, outcome["status"])
            record.update(outcome)
            bar.update()
            yield record


def _found(paths):
    return list(dict(records.walk(paths)).items())


def catalog(paths, database, read, jobs, timeout, retry_failed=False):
    found = _found(paths)
    known = store.known_files(database, [os.path.abspath(p) for p in paths])
    seen = {path for path, _ in found}
    vanished = [p for p, (_, _, status) in known.items()
                if p not in seen and status != records.VANISHED]
    store.mark_vanished(database, vanished)
    again = (records.VANISHED, records.FAILED, records.TIMED_OUT) if retry_failed else (
        records.VANISHED,)
    todo = [(path, info) for path, info in found
            if not _unchanged(known.get(path), info, again)]
    counts = collections.Counter(skipped=len(found) - len(todo), vanished=len(vanished))
    _write_all(database, read_records(todo, read, jobs, timeout), counts)
    return counts


def _unchanged(known, info, again):
    return (known is not None and known[2] not in again
            and known[:2] == (info.st_size, info.st_mtime_ns))


def _write_all(database, source, counts):
    writer = store.Writer(database)
    try:
        for record in source:
            writer.add(record)
            counts[record["status"]] += 1
    finally:
        writer.flush()


def import_parts(parts, database):
    counts = collections.Counter()
    _write_all(database, _parsed(parts), counts)
    return counts


def _parsed(parts):
    for part in parts:
        with open(part, encoding="utf-8") as lines:
            for number, line in enumerate(lines, 1):
                try:
                    yield json.loads(line)
                except ValueError:
                    # A part cut short by a killed job ends in a partial line.
                    print(f"{part}:{number}: not a whole record, skipped", file=sys.stderr)


def extract(paths, out, read, jobs, timeout):
    counts = collections.Counter()
    for record in read_records(_found(paths), read, jobs, timeout):
        out.write(json.dumps(record, ensure_ascii=False, separators=(",", ":")) + "\n")
        counts[record["status"]] += 1
    out.flush()
    return counts


def run_catalog(options, read=records.read_model):
    started = time.monotonic()
    database = store.connect(options.db)
    try:
        if options.parts:
            counts = import_parts(options.paths, database)
        else:
            counts = catalog(options.paths, database, read, options.jobs, options.timeout,
                             options.retry_failed)
    finally:
        database.close()
    _summary("catalog", counts, started)


def run_extract(options, read=records.read_model):
    started = time.monotonic()
    counts = extract(options.paths, sys.stdout, read, options.jobs, options.timeout)
    _summary("extract", counts, started)
