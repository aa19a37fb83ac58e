"""Helpers shared by the catalogue's tests: writing scripted files, running, comparing."""

import os
import sqlite3
import subprocess
import sys

from zolfile import records

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
# The source tree comes last: a build tree on PYTHONPATH holds the extension module too.
ENV = dict(os.environ, PYTHONPATH=os.pathsep.join(
    [os.environ.get("PYTHONPATH", ""), HERE, os.path.join(ROOT, "python")]))
SCRIPTED = [sys.executable, os.path.join(HERE, "scripted_reader.py")]


def write(path, word, magic=records.MAGIC):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(magic + word.encode())


def run(command, *arguments, stdout=None):
    """Runs a catalog or extract command line; returns its standard error."""
    done = subprocess.run(list(command) + list(arguments), env=ENV, stdout=stdout,
                          stderr=subprocess.PIPE, text=True, check=True)
    return done.stderr


def snapshot(database_path):
    """Everything a catalogue holds, keyed by path so that row ids don't matter."""
    with sqlite3.connect(database_path) as database:
        files = database.execute("SELECT path, size, mtime_ns, status, version, error_kind, "
                                 "error, messages FROM files ORDER BY path").fetchall()
        children = {table: [row[:1] + row[2:] for row in database.execute(
            f"SELECT f.path, c.* FROM {table} c JOIN files f ON f.id = c.file_id "
            "ORDER BY f.path, c.seq")]
            for table in ("entries", "history", "arrays")}
    return files, children


def statuses(database_path):
    with sqlite3.connect(database_path) as database:
        return dict(database.execute(
            "SELECT status, count(*) FROM files GROUP BY status").fetchall())
