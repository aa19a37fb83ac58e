"""The catalogue's machinery (walk, pool, database, resume, scale-out) with a scripted reader."""

import contextlib
import os
import signal
import sqlite3
import subprocess
import time

import pytest

from conftest import ENV, SCRIPTED, run, snapshot, write
from zolfile.records import MAGIC


def catalog(tmp_path, *paths, db="c.sqlite", jobs=2, **options):
    return run(SCRIPTED, "catalog", *paths, "--db", tmp_path / db, "--jobs", jobs, "--timeout",
               "1", **options)


def summary(stderr):
    return stderr.strip().splitlines()[-1].rsplit(",", 1)[0]


def test_every_outcome_is_one_row(tmp_path):
    share = tmp_path / "share"
    # File: its word, then its row's status, error kind and error.
    outcomes = {"a.zol": ("one", ("loaded", None, None)), "b.dat": ("two", ("loaded", None, None)),
                "c": ("refuse: too new", ("refused", 3, "refuse: too new")),
                "deep/d.zol": ("crash", ("failed", None, "worker ended by signal SIGSEGV")),
                "e.zol": ("hang", ("timed out", None, "no result within 1 s")),
                "f.zol": ("raise it", ("failed", None, "ValueError: raise it")),
                # Named as a model, its magic gone: refused, not left out.
                "g.ZOL": ("damaged", ("refused", 11, "not a Zol file"))}
    for name, (word, _) in outcomes.items():
        write(share / name, word, magic=b"\x89HBF\r\n\x1a\x0b" if word == "damaged" else MAGIC)
    write(tmp_path / "named.txt", "plain", magic=b"")
    os.mkfifo(share / "fifo")
    stderr = catalog(tmp_path, share, tmp_path / "named.txt")
    assert summary(stderr) == ("catalog: 2 loaded, 2 refused, 2 failed, 1 timed out, "
                               "0 unreadable, 0 skipped, 0 vanished")
    files, children = snapshot(tmp_path / "c.sqlite")
    assert {os.path.relpath(f[0], share): (f[3], f[5], f[6]) for f in files} == {
        name: outcome for name, (_, outcome) in outcomes.items()}
    assert [row[0] for row in children["entries"]] == [str(share / n) for n in ("a.zol", "b.dat")]
    assert summary(catalog(tmp_path, share, "--retry-failed")) == (
        "catalog: 0 loaded, 0 refused, 2 failed, 1 timed out, 0 unreadable, 4 skipped, 0 vanished")


def test_rerun_skips_unchanged_updates_changed_marks_vanished(tmp_path):
    share = tmp_path / "share"
    for name in "abcd":
        write(share / name, name)
    catalog(tmp_path, share)
    first = snapshot(tmp_path / "c.sqlite")
    assert "0 loaded" in summary(catalog(tmp_path, share))
    assert snapshot(tmp_path / "c.sqlite") == first

    write(share / "a", "changed")
    os.remove(share / "b")
    write(share / "e", "new")
    assert summary(catalog(tmp_path, share)) == (
        "catalog: 2 loaded, 0 refused, 0 failed, 0 timed out, 0 unreadable, 2 skipped, 1 vanished")
    files, children = snapshot(tmp_path / "c.sqlite")
    assert [(os.path.basename(f[0]), f[3]) for f in files] == [
        ("a", "loaded"), ("b", "vanished"), ("c", "loaded"), ("d", "loaded"), ("e", "loaded")]
    assert [(os.path.basename(p), v) for p, _, _, v in children["entries"]] == [
        ("a", "changed"), ("c", "c"), ("d", "d"), ("e", "new")]

    # Rows that vanished before, or of a directory beside this one, are left alone; the file's
    # return revives it.
    write(tmp_path / "share2" / "x", "x")
    catalog(tmp_path, tmp_path / "share2")
    assert summary(catalog(tmp_path, share)).endswith("4 skipped, 0 vanished")
    write(share / "b", "b")
    assert "1 loaded" in catalog(tmp_path, share)
    assert {f[3] for f in snapshot(tmp_path / "c.sqlite")[0]} == {"loaded"}


def running(text):
    """The processes whose command line holds text."""
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError), open(f"/proc/{pid}/cmdline", "rb") as cmdline:
            found += [pid] if text in cmdline.read().decode(errors="replace") else []
    return found


def test_killed_run_resumes_to_the_same_catalogue(tmp_path):
    share = tmp_path / "share"
    count = 600
    for number in range(count):
        write(share / f"{number:04}.zol", f"slow {number}")
    database_path = tmp_path / "killed.sqlite"
    process = subprocess.Popen(SCRIPTED + ["catalog", str(share), "--db", str(database_path),
                                           "--jobs", "2"], env=ENV, stderr=subprocess.DEVNULL)
    while process.poll() is None:  # until the first file is recorded
        time.sleep(0.02)
        with sqlite3.connect(database_path) as database:  # reads while the run writes
            with contextlib.suppress(sqlite3.OperationalError):  # no schema yet
                if database.execute("SELECT count(*) FROM files").fetchone()[0]:
                    break
    process.send_signal(signal.SIGKILL)
    process.wait()
    # Its workers don't outlive it.
    deadline = time.monotonic() + 10
    while running(str(database_path)) and time.monotonic() < deadline:
        time.sleep(0.05)
    assert not running(str(database_path))
    # Each recorded file has all its rows: one entry, one translation, one array.
    files, children = snapshot(database_path)
    assert 0 < len(files) < count, "the run was not killed in the middle"
    for rows in children.values():
        assert [row[0] for row in rows] == [row[0] for row in files]
    assert f"{count - len(files)} loaded" in catalog(tmp_path, share, db="killed.sqlite")
    catalog(tmp_path, share, db="clean.sqlite")
    assert snapshot(database_path) == snapshot(tmp_path / "clean.sqlite")


@pytest.mark.parametrize("recipe", ["extract", "parallel"])
def test_scaled_out_extraction_imports_to_the_same_catalogue(tmp_path, recipe):
    share = tmp_path / "share"
    for number, word in enumerate(["refuse: no", "crash", "x & <y>", "\u00e9l\u00e8ve"] * 5):
        write(share / f"sub{number % 3}" / f"{number}.zol", word)
    write(share / "notes.txt", "plain", magic=b"")
    catalog(tmp_path, share)
    part = tmp_path / "part.jsonl"
    with open(part, "a") as out:  # appending, so that the last line follows the workers'
        if recipe == "extract":
            run(SCRIPTED, "extract", share, "--timeout", "1", stdout=out)
        else:
            (tmp_path / "files.txt").write_text("".join(
                f"{path}\n" for path in share.rglob("*") if path.is_file()))
            run(["parallel", "--arg-file", str(tmp_path / "files.txt"), "-n", "4",
                 "--joblog", str(tmp_path / "jobs.log"), "--resume"],
                *SCRIPTED, "extract", "--jobs", "1", stdout=out)
        out.write('{"path": "cut short')
    stderr = run(SCRIPTED, "catalog", "--import", part, "--db", tmp_path / "imported.sqlite")
    assert "part.jsonl:21: not a whole record, skipped" in stderr
    assert snapshot(tmp_path / "imported.sqlite") == snapshot(tmp_path / "c.sqlite")
