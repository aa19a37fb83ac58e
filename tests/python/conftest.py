import html
import os
import re
import sqlite3
import subprocess
import sys
from pathlib import Path

import pytest

from zolfile import records

HERE = Path(__file__).parent
SOURCE = Path(os.environ.get("ZOL_SOURCE_DIR", HERE.parents[1]))
ZOLINFO = os.environ.get("ZOLINFO_EXE", str(SOURCE / "build" / "ZolInfo"))
ZOLGEN = os.environ.get("ZOLGEN_EXE", str(SOURCE / "build" / "python" / "zolgen"))
EXAMPLE = SOURCE / "examples" / "wheel.zol"
CAST_WHEEL = SOURCE / "examples" / "cast-wheel.zol"
# The source tree comes last: a build tree on PYTHONPATH holds the extension module too.
ENV = dict(os.environ, PYTHONPATH=os.pathsep.join(
    [os.environ.get("PYTHONPATH", ""), str(HERE), str(SOURCE / "python")]))
SCRIPTED = [sys.executable, str(HERE / "scripted_reader.py")]
ENTRY = re.compile(r'<(?:attribute|data) name="([^"]*)" value="([^"]*)"/>')


def run_zolinfo(*args, cwd=None):
    env = dict(os.environ, MORLANE_TEMP_PATH=str(cwd or "/tmp"))
    return subprocess.run([ZOLINFO, *map(str, args)], capture_output=True, text=True,
                          errors="surrogateescape", cwd=cwd, env=env)


def report_entries(text):
    """(name, value) of each entry of a report or EKM file."""
    return [(html.unescape(k), html.unescape(v)) for k, v in ENTRY.findall(text)]


def run(command, *arguments, stdout=None, status=0, env=None):
    """Runs a catalog or extract command line; returns its standard error."""
    done = subprocess.run(list(command) + [a if isinstance(a, bytes) else str(a)
                                           for a in arguments], env=dict(ENV, **env or {}),
                          stdout=stdout, stderr=subprocess.PIPE, text=True,
                          errors="surrogateescape")
    assert done.returncode == status, done.stderr
    return done.stderr


def write(path, word, magic=records.MAGIC):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(magic + word.encode())


def snapshot(database_path):
    """Everything a catalogue holds, keyed by path so that row ids don't matter."""
    with sqlite3.connect(database_path) as database:
        files = database.execute("SELECT path, size, mtime_ns, status, version, error_kind, "
                                 "error, messages, raw_path, link FROM files "
                                 "ORDER BY raw_path").fetchall()
        children = {table: [row[:1] + row[2:] for row in database.execute(
            f"SELECT f.path, c.* FROM {table} c JOIN files f ON f.id = c.file_id "
            "ORDER BY f.raw_path, c.seq")]
            for table in ("entries", "history", "arrays")}
    return files, children


@pytest.fixture(scope="session")
def mesh_models(models):
    """The models of the mesh tests: those above and the larger example."""
    return {**models, "cast-wheel": CAST_WHEEL}


@pytest.fixture(scope="session")
def models(tmp_path_factory):
    """Name -> path: the bundled example and zolgen's models of various versions and layouts."""
    folder = tmp_path_factory.mktemp("models")
    paths = {"example": EXAMPLE}
    for name, options in {
        "plain-1part": "--nodes 40 --elements 12 --results 2 --plain",
        "packed-3comp": "--nodes 64 --elements 30 --results 3 --components 3 --compressed"
                        " --seed 7",
        "v06-6comp": "--nodes 30 --elements 9 --components 6 --version 0.6",
        "v07-parts": "--nodes 90 --elements 40 --parts 3 --version 0.7 --compressed --seed 11",
    }.items():
        paths[name] = folder / f"{name}.zol"
        subprocess.run([ZOLGEN, "-o", paths[name], *options.split()], check=True,
                       capture_output=True)
    return paths
