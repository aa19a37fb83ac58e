"""The catalogue database: schema, batched writes and the bookkeeping of resumed runs.

One connection writes; every file's rows (file, entries, history, arrays) go in within the
transaction of their batch, so a killed run leaves each file either wholly recorded or not
at all. WAL lets other processes query while a run writes.
"""

import sqlite3
import time

from .records import ARRAY_FIELDS, HISTORY_FIELDS, UNREADABLE, VANISHED

# PRAGMA user_version of the schema below; catalogues without one (0) are upgraded.
VERSION = 1

SCHEMA = f"""
CREATE TABLE IF NOT EXISTS files (
    id INTEGER PRIMARY KEY,
    raw_path BLOB NOT NULL UNIQUE,
    path TEXT NOT NULL,
    size INTEGER NOT NULL,
    mtime_ns INTEGER NOT NULL,
    status TEXT NOT NULL,
    version TEXT,
    error_kind INTEGER,
    error TEXT,
    messages TEXT,
    link TEXT,
    last_seen INTEGER NOT NULL);
CREATE TABLE IF NOT EXISTS entries (
    file_id INTEGER NOT NULL REFERENCES files(id),
    seq INTEGER NOT NULL,
    name TEXT NOT NULL,
    value TEXT NOT NULL,
    PRIMARY KEY (file_id, seq)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS history (
    file_id INTEGER NOT NULL REFERENCES files(id),
    seq INTEGER NOT NULL,
    {", ".join(f"{field} TEXT" for field in HISTORY_FIELDS)},
    PRIMARY KEY (file_id, seq)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS arrays (
    file_id INTEGER NOT NULL REFERENCES files(id),
    seq INTEGER NOT NULL,
    {", ".join(f"{field} {'INTEGER' if field in ('kind', 'count') else 'TEXT'}"
               for field in ARRAY_FIELDS)},
    PRIMARY KEY (file_id, seq)) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS entries_by_name ON entries (name, value);
CREATE INDEX IF NOT EXISTS arrays_by_result ON arrays (result);
CREATE INDEX IF NOT EXISTS files_by_status ON files (status);
CREATE INDEX IF NOT EXISTS files_by_path ON files (path);
CREATE INDEX IF NOT EXISTS files_by_size ON files (size);
"""

# The first schema had no byte paths, links or times seen; its paths were all UTF-8.
_UPGRADE_FROM_0 = """
ALTER TABLE files ADD COLUMN raw_path BLOB;
ALTER TABLE files ADD COLUMN link TEXT;
ALTER TABLE files ADD COLUMN last_seen INTEGER NOT NULL DEFAULT 0;
UPDATE files SET raw_path = CAST(path AS BLOB);
CREATE UNIQUE INDEX files_by_raw_path ON files (raw_path);
"""


class TooNew(Exception):
    """The catalogue was made by a later version of this package."""

_CHILDREN = ("entries", "history", "arrays")
FILE_COLUMNS = ("raw_path", "path", "size", "mtime_ns", "status", "version", "error_kind",
                "error", "messages", "link", "last_seen")
_UPSERT = (f"INSERT INTO files ({', '.join(FILE_COLUMNS)}) "
           f"VALUES ({', '.join('?' * len(FILE_COLUMNS))}) ON CONFLICT (raw_path) DO UPDATE SET "
           + ", ".join(f"{c} = excluded.{c}" for c in FILE_COLUMNS[1:]) + " RETURNING id")


def _insert(table, fields):
    return (f"INSERT INTO {table} (file_id, seq, {', '.join(fields)}) "
            f"VALUES ({', '.join('?' * (len(fields) + 2))})")


_INSERT_HISTORY = _insert("history", HISTORY_FIELDS)
_INSERT_ARRAY = _insert("arrays", ARRAY_FIELDS)
_INSERT_ENTRY = _insert("entries", ("name", "value"))


def connect(path, timeout=60.0):
    """The catalogue at path, made or upgraded to this schema; waits up to timeout seconds
    for another run's write to end."""
    database = sqlite3.connect(path, isolation_level=None, timeout=timeout)
    try:
        database.execute("PRAGMA journal_mode = WAL")
        database.execute("PRAGMA synchronous = NORMAL")
        with _transaction(database):
            _make_schema(database)
    except BaseException:
        database.close()
        raise
    return database


def _make_schema(database):
    (version,) = database.execute("PRAGMA user_version").fetchone()
    if version > VERSION:
        raise TooNew(version)
    if version == VERSION:
        return
    if database.execute("SELECT 1 FROM sqlite_master WHERE name = 'files'").fetchone():
        for statement in _UPGRADE_FROM_0.strip().split(";\n"):
            database.execute(statement)
    for statement in SCHEMA.strip().rstrip(";").split(";\n"):
        database.execute(statement)
    database.execute(f"PRAGMA user_version = {VERSION}")


def _prefix_range(top):
    # Every path below directory top sorts between top + "/" and top + "0" ("0" follows "/").
    below = top if top.endswith(b"/") else top + b"/"
    return "(raw_path = ? OR (raw_path >= ? AND raw_path < ?))", (top, below, below[:-1] + b"0")


def known(database, path):
    """(size, mtime_ns, status) of the recorded file at path, or None."""
    return database.execute("SELECT size, mtime_ns, status FROM files WHERE raw_path = ?",
                            (path,)).fetchone()


def sweep(database, tops, blind, seen_since):
    """Marks vanished the recorded files at or below tops not seen since seen_since (ns),
    except those at or below a blind directory; returns how many. The rows of what could not
    be looked at and is no longer met are dropped: they never held a model."""
    count = 0
    for top in tops:
        where, arguments = _prefix_range(top)
        last = 0
        while True:
            rows = database.execute(
                f"SELECT id, raw_path, status FROM files WHERE {where} AND last_seen < ? AND "
                "status != ? AND id > ? ORDER BY id LIMIT 1000",
                (*arguments, seen_since, VANISHED, last)).fetchall()
            if not rows:
                break
            last = rows[-1][0]
            gone = [(file_id, status) for file_id, path, status in rows
                    if not _under_any(path, blind)]
            with _transaction(database):
                for file_id, status in gone:
                    if status == UNREADABLE:
                        database.execute("DELETE FROM files WHERE id = ?", (file_id,))
                        continue
                    count += 1
                    database.execute("UPDATE files SET status = ?, version = NULL, "
                                     "error_kind = NULL, error = NULL, messages = NULL "
                                     "WHERE id = ?", (VANISHED, file_id))
                    _delete_children(database, file_id)
    return count


def _under_any(path, directories):
    return any(path == d or path.startswith(d.rstrip(b"/") + b"/") for d in directories)


def optimize(database):
    # On a new catalogue PRAGMA optimize may see nothing to do; the planner needs the
    # statistics to take the index on file_id over the one on result (quadratic otherwise).
    database.execute("PRAGMA analysis_limit = 1000")
    database.execute("ANALYZE")


class Writer:
    """Gathers records and commits them in batches of a size or an age, whichever comes first;
    also the times seen of files that are skipped."""

    def __init__(self, database, batch_size=500, batch_seconds=2.0):
        self.database = database
        self.batch_size = batch_size
        self.batch_seconds = batch_seconds
        self.batch = []
        self.seen = []
        self.started = time.monotonic()

    def add(self, record):
        self._append(self.batch, record)

    def touch(self, path, seen_ns):
        self._append(self.seen, (seen_ns, path))

    def _append(self, rows, row):
        if not self.batch and not self.seen:
            self.started = time.monotonic()
        rows.append(row)
        if (len(self.batch) + len(self.seen) >= self.batch_size
                or time.monotonic() - self.started >= self.batch_seconds):
            self.flush()

    def flush(self):
        if self.batch or self.seen:
            with _transaction(self.database):
                _write(self.database, self.batch)
                self.database.executemany("UPDATE files SET last_seen = ? WHERE raw_path = ?",
                                          self.seen)
            self.batch = []
            self.seen = []


class _transaction:
    def __init__(self, database):
        self.database = database

    def __enter__(self):
        self.database.execute("BEGIN IMMEDIATE")

    def __exit__(self, kind, value, traceback):
        if kind is None:
            self.database.execute("COMMIT")
        elif self.database.in_transaction:  # SQLite ends it itself on a full disk
            self.database.execute("ROLLBACK")


def _delete_children(database, file_id):
    for table in _CHILDREN:
        database.execute(f"DELETE FROM {table} WHERE file_id = ?", (file_id,))


def records(database):
    """Every file's record, as a run makes it, one at a time."""
    for row in database.execute(f"SELECT id, {', '.join(FILE_COLUMNS)} FROM files ORDER BY id"):
        record = dict(zip(FILE_COLUMNS, row[1:]))
        for table, fields in (("entries", ("name", "value")), ("history", HISTORY_FIELDS),
                              ("arrays", ARRAY_FIELDS)):
            record[table] = database.execute(
                f"SELECT {', '.join(fields)} FROM {table} WHERE file_id = ? ORDER BY seq",
                row[:1]).fetchall()
        yield record


def last_seen(database, path):
    row = database.execute("SELECT last_seen FROM files WHERE raw_path = ?", (path,)).fetchone()
    return row[0] if row else None


def _write(database, batch):
    # One statement per table for the whole batch: per file, they cost the run more than
    # the reading. A path met twice (an import of repeated parts) keeps its last record.
    latest = list({record["raw_path"]: record for record in batch}.values())
    ids = [database.execute(_UPSERT, [record[c] for c in FILE_COLUMNS]).fetchone()[0]
           for record in latest]
    for table in _CHILDREN:
        database.executemany(f"DELETE FROM {table} WHERE file_id = ?", [(i,) for i in ids])
    for table, insert in (("entries", _INSERT_ENTRY), ("history", _INSERT_HISTORY),
                          ("arrays", _INSERT_ARRAY)):
        database.executemany(insert, [(file_id, seq, *row) for file_id, record in zip(ids, latest)
                                      for seq, row in enumerate(record[table])])
