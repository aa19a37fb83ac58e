"""python3 -m zolfile catalog / extract: many files into an SQLite catalogue or JSON lines.

catalog PATH... --db FILE [--jobs N] [--timeout S]   read new and changed files into FILE
catalog --import PART.jsonl... --db FILE             load the output of extract into FILE
catalog --merge OTHER.sqlite... --db FILE            take the newer records of other catalogues
extract PATH... [--jobs N] [--timeout S]             one JSON record per file on stdout
"""

import argparse
import collections
import errno
import os
import signal
import sqlite3
import sys
import time

from . import records, store, walk, workers
from .records import FAILED, TIMED_OUT, UNREADABLE, VANISHED

# Exit statuses besides 0; argparse takes 2 for a wrong command line.
INCOMPLETE = 3  # a PATH missing or empty, a directory not listed, a part not read
LOCKED = 4  # another program held the database past the busy timeout
DISK_FULL = 5  # the database or the output could not be written
UNUSABLE_DB = 6  # --db (or a catalogue to merge) is no catalogue this package can use
INTERRUPTED = 130  # Ctrl-C; what was done is kept

# How long a run waits for another program's write to the database to end.
BUSY_SECONDS = 60.0

_SUMMARY_ORDER = (records.LOADED, records.REFUSED, FAILED, TIMED_OUT, UNREADABLE, "skipped",
                  VANISHED)


def add_commands(commands):
    """Adds catalog and extract to the subcommands of `python3 -m zolfile`."""
    parser = commands.add_parser("catalog", help="record Zol files in an SQLite database")
    _common_options(parser)
    parser.add_argument("--db", required=True, metavar="FILE.sqlite")
    sources = parser.add_mutually_exclusive_group()
    sources.add_argument("--import", dest="parts", action="store_true",
                         help="PATHs are JSON-lines files written by extract")
    sources.add_argument("--merge", action="store_true",
                         help="PATHs are catalogues made elsewhere; the newer record of a "
                         "path wins")
    parser.add_argument("--retry-failed", action="store_true",
                        help="read failed and timed out files again, changed or not")
    parser.set_defaults(run=run_catalog)
    parser = commands.add_parser("extract", help="one JSON line per Zol file on stdout")
    _common_options(parser)
    parser.set_defaults(run=run_extract)


def _common_options(parser):
    parser.add_argument("paths", nargs="+", metavar="PATH")
    parser.add_argument("--jobs", type=_at_least_one(int), default=os.cpu_count() or 1,
                        metavar="N")
    parser.add_argument("--timeout", type=_at_least_one(float), default=120.0,
                        metavar="SECONDS", help="time limit for reading one file")


def _at_least_one(kind):
    def parse(text):
        value = kind(text)
        if not value >= 1:
            raise argparse.ArgumentTypeError(f"{text} is below 1")
        return value
    parse.__name__ = kind.__name__
    return parse


class _Run:
    """The counts, warnings and exit status of one command."""

    def __init__(self, command):
        self.command = command
        self.started = time.monotonic()
        self.counts = collections.Counter()
        self.status = 0

    def warn(self, text, status=INCOMPLETE):
        print(f"{self.command}: warning: {text}", file=sys.stderr, flush=True)
        self.status = self.status or status

    def fail(self, text, status):
        print(f"{self.command}: {text}", file=sys.stderr, flush=True)
        return status

    def summary(self):
        parts = [f"{self.counts[key]} {key}" for key in _SUMMARY_ORDER]
        print(f"{self.command}: {', '.join(parts)}, {time.monotonic() - self.started:.1f} s",
              file=sys.stderr, flush=True)


def _progress():
    try:
        from tqdm import tqdm
    except ImportError:
        return _NoProgress()
    return tqdm(unit="file", file=sys.stderr, disable=not sys.stderr.isatty())


class _NoProgress:
    def __enter__(self):
        return self

    def __exit__(self, *_):
        return False

    def update(self, _=1):
        pass


def _looked(look, run, unchanged=None):
    """The walk's items to read; the others are counted (and their records made) here."""
    for item in look:
        if item.error is not None:
            yield item, records.new_record(item, UNREADABLE, time.time_ns(), item.error)
        elif unchanged is not None and unchanged(item):
            run.counts["skipped"] += 1
        else:
            yield item, None


def read_records(look, read, jobs, timeout, run, unchanged=None):
    """Yields the full record of each model met by the walk, as its worker finishes it."""
    made = []  # the records of files that could not be looked at, waiting their turn
    pending = _looked(look, run, unchanged)

    def to_read():
        for item, record in pending:
            if record is None:
                yield item
            else:
                made.append(record)

    with _progress() as bar:
        for item, outcome in workers.read_all(to_read(), read, jobs, timeout):
            yield from _drain(made, bar)
            if outcome:  # empty for a file that is no model
                record = records.new_record(item, outcome["status"], time.time_ns())
                record.update(outcome)
                bar.update()
                yield record
        yield from _drain(made, bar)


def _drain(made, bar):
    while made:
        bar.update()
        yield made.pop(0)


def _warn_of(look, run):
    for path, reason in look.problems:
        run.warn(f"{records.readable(path)}: {reason}; no recorded file below it is marked "
                 "vanished")


def catalog(options, database, writer, read, run):
    since = time.time_ns()
    look = walk.Walk(options.paths)
    again = (VANISHED, UNREADABLE) + ((FAILED, TIMED_OUT) if options.retry_failed else ())

    def unchanged(item):
        known = store.known(database, item.path)
        if (known is None or known[2] in again
                or known[:2] != (item.info.st_size, item.info.st_mtime_ns)):
            return False
        writer.touch(item.path, time.time_ns())
        return True

    for record in read_records(look, read, options.jobs, options.timeout, run, unchanged):
        writer.add(record)
        run.counts[record["status"]] += 1
    writer.flush()
    _warn_of(look, run)
    run.counts[VANISHED] = store.sweep(database, look.tops, look.blind, since)


def import_parts(parts, writer, run):
    for part in parts:
        try:
            lines = open(part, "rb")
        except OSError as error:
            run.warn(f"{part}: {error.strerror}; not imported")
            continue
        with lines:
            for number, line in enumerate(lines, 1):
                try:
                    record = records.from_json(line.decode("utf-8"))
                except ValueError:
                    # A part cut short by a killed job ends in a partial line.
                    print(f"{part}:{number}: not a whole record, skipped", file=sys.stderr)
                    continue
                if record["last_seen"] is None:
                    record["last_seen"] = time.time_ns()
                writer.add(record)
                run.counts[record["status"]] += 1


class _Unusable(Exception):
    """A catalogue to merge that can't be used; args: its name and the reason."""


def merge(others, database, writer, run):
    for other in others:
        try:
            source = store.connect(other, BUSY_SECONDS)
        except (sqlite3.Error, store.TooNew) as error:
            raise _Unusable(other, error) from error
        try:
            for record in store.records(source):
                mine = store.last_seen(database, record["raw_path"])
                if mine is not None and mine >= record["last_seen"]:
                    run.counts["skipped"] += 1
                    continue
                writer.add(record)
                run.counts[record["status"]] += 1
        finally:
            source.close()
        # A path in two of the others is weighed against what the first gave.
        writer.flush()


def run_catalog(options, read=records.read_model):
    run = _Run("catalog")
    database = None
    try:
        database = store.connect(options.db, BUSY_SECONDS)
        writer = store.Writer(database)
        try:
            if options.parts:
                import_parts(options.paths, writer, run)
            elif options.merge:
                merge(options.paths, database, writer, run)
            else:
                catalog(options, database, writer, read, run)
        finally:
            # What was read is kept, even on Ctrl-C; a second one mustn't cut the commit.
            signal.signal(signal.SIGINT, signal.SIG_IGN)
            writer.flush()
        store.optimize(database)
    except KeyboardInterrupt:
        run.summary()
        return run.fail("interrupted; what was read is recorded, the next run reads the rest",
                        INTERRUPTED)
    except _Unusable as error:
        return _database_failure(run, *error.args)
    except (sqlite3.Error, store.TooNew) as error:
        return _database_failure(run, options.db, error)
    finally:
        if database is not None:
            database.close()
    run.summary()
    return run.status


def _database_failure(run, name, error):
    if isinstance(error, store.TooNew):
        return run.fail(f"{name} was made by a later version of zolfile (schema "
                        f"{error.args[0]}); use that version or another --db", UNUSABLE_DB)
    code = (getattr(error, "sqlite_errorcode", None) or 0) & 0xFF
    if code in (sqlite3.SQLITE_BUSY, sqlite3.SQLITE_LOCKED):
        return run.fail(f"{name} stayed locked by another program for {BUSY_SECONDS:g} s; run "
                        "again when it is done (what was committed is kept)", LOCKED)
    if code in (sqlite3.SQLITE_FULL, sqlite3.SQLITE_IOERR):
        return run.fail(f"could not write {name} ({error}); free some space and run again "
                        "(what was committed is kept)", DISK_FULL)
    if code in (sqlite3.SQLITE_CANTOPEN, sqlite3.SQLITE_NOTADB, sqlite3.SQLITE_READONLY,
                sqlite3.SQLITE_PERM, sqlite3.SQLITE_CORRUPT, sqlite3.SQLITE_AUTH):
        return run.fail(f"can't use {name} as a catalogue ({error}); give a writable SQLite "
                        "file, or a new one", UNUSABLE_DB)
    raise error


def run_extract(options, read=records.read_model):
    run = _Run("extract")
    look = walk.Walk(options.paths)
    try:
        for record in read_records(look, read, options.jobs, options.timeout, run):
            sys.stdout.write(records.to_json(record) + "\n")
            run.counts[record["status"]] += 1
        sys.stdout.flush()
    except KeyboardInterrupt:
        run.summary()
        return run.fail("interrupted; the records written are whole", INTERRUPTED)
    except OSError as error:
        if error.errno != errno.ENOSPC:
            raise
        return run.fail(f"could not write standard output ({error.strerror}); free some space "
                        "and run again", DISK_FULL)
    for path, reason in look.problems:
        run.warn(f"{records.readable(path)}: {reason}")
    run.summary()
    return run.status
