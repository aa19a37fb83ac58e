"""The catalogue database: schema, batched writes and the bookkeeping of resumed runs.

One connection writes; every file's rows (file, entries, history, arrays) go in within the
transaction of their batch, so a killed run leaves each file either wholly recorded or not
at all. WAL lets other processes query while a run writes.
"""

import sqlite3
import time

from .records import ARRAY_FIELDS, HISTORY_FIELDS, VANISHED

SCHEMA = f"""
CREATE TABLE IF NOT EXISTS files (
    id INTEGER PRIMARY KEY,
    path TEXT NOT NULL UNIQUE,
    size INTEGER NOT NULL,
    mtime_ns INTEGER NOT NULL,
    status TEXT NOT NULL,
    version TEXT,
    error_kind INTEGER,
    error TEXT,
    messages TEXT);
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
"""

_CHILDREN = ("entries", "history", "arrays")
_FILE_COLUMNS = ("path", "size", "mtime_ns", "status", "version", "error_kind", "error",
                 "messages")
_UPSERT = (f"INSERT INTO files ({', '.join(_FILE_COLUMNS)}) "
           f"VALUES ({', '.join('?' * len(_FILE_COLUMNS))}) ON CONFLICT (path) DO UPDATE SET "
           + ", ".join(f"{c} = excluded.{c}" for c in _FILE_COLUMNS[1:]) + " RETURNING id")


def _insert(table, fields):
    return (f"INSERT INTO {table} (file_id, seq, {', '.join(fields)}) "
            f"VALUES ({', '.join('?' * (len(fields) + 2))})")


_INSERT_HISTORY = _insert("history", HISTORY_FIELDS)
_INSERT_ARRAY = _insert("arrays", ARRAY_FIELDS)
_INSERT_ENTRY = _insert("entries", ("name", "value"))


def connect(path):
    database = sqlite3.connect(path, isolation_level=None)
    database.execute("PRAGMA journal_mode = WAL")
    database.execute("PRAGMA synchronous = NORMAL")
    database.execute("PRAGMA busy_timeout = 60000")
    database.executescript(SCHEMA)
    return database


def _prefix_range(top):
    # Every path below directory top sorts between top + "/" and top + "0" ("0" follows "/").
    below = top if top.endswith("/") else top + "/"
    return "path = ? OR (path >= ? AND path < ?)", (top, below, below[:-1] + "0")


def known_files(database, tops):
    """{path: (size, mtime_ns, status)} of recorded files at or below the given paths."""
    known = {}
    for top in tops:
        where, arguments = _prefix_range(top)
        for path, size, mtime_ns, status in database.execute(
                f"SELECT path, size, mtime_ns, status FROM files WHERE {where}", arguments):
            known[path] = (size, mtime_ns, status)
    return known


def mark_vanished(database, paths):
    with _transaction(database):
        for path in paths:
            (file_id,) = database.execute(
                "UPDATE files SET status = ?, version = NULL, error_kind = NULL, error = NULL, "
                "messages = NULL "
                "WHERE path = ? RETURNING id", (VANISHED, path)).fetchone()
            _delete_children(database, file_id)


class Writer:
    """Gathers records and commits them in batches of a size or an age, whichever comes first."""

    def __init__(self, database, batch_size=500, batch_seconds=2.0):
        self.database = database
        self.batch_size = batch_size
        self.batch_seconds = batch_seconds
        self.batch = []
        self.started = time.monotonic()

    def add(self, record):
        if not self.batch:
            self.started = time.monotonic()
        self.batch.append(record)
        if (len(self.batch) >= self.batch_size
                or time.monotonic() - self.started >= self.batch_seconds):
            self.flush()

    def flush(self):
        if self.batch:
            with _transaction(self.database):
                for record in self.batch:
                    _write(self.database, record)
            self.batch = []


class _transaction:
    def __init__(self, database):
        self.database = database

    def __enter__(self):
        self.database.execute("BEGIN IMMEDIATE")

    def __exit__(self, kind, value, traceback):
        self.database.execute("COMMIT" if kind is None else "ROLLBACK")


def _delete_children(database, file_id):
    for table in _CHILDREN:
        database.execute(f"DELETE FROM {table} WHERE file_id = ?", (file_id,))


def _write(database, record):
    (file_id,) = database.execute(_UPSERT, [record[c] for c in _FILE_COLUMNS]).fetchone()
    _delete_children(database, file_id)
    database.executemany(_INSERT_ENTRY, [(file_id, seq, name, value)
                                         for seq, (name, value) in enumerate(record["entries"])])
    database.executemany(_INSERT_HISTORY, [(file_id, seq, *(t[f] for f in HISTORY_FIELDS))
                                           for seq, t in enumerate(record["history"])])
    database.executemany(_INSERT_ARRAY, [(file_id, seq, *(a[f] for f in ARRAY_FIELDS))
                                         for seq, a in enumerate(record["arrays"])])
