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
                "g.ZOL": ("damaged", ("refused", 11, "not a Zol file")),
                # Reached by a link from the share: once, by its own path.
                "../outside.zol": ("out", ("loaded", None, None))}
    for name, (word, _) in outcomes.items():
        write(share / name, word, magic=b"\x89HBF\r\n\x1a\x0b" if word == "damaged" else MAGIC)
    write(tmp_path / "named.txt", "plain", magic=b"")
    os.mkfifo(share / "fifo")
    for name, target in [("in.zol", "a.zol"), ("out.zol", "../outside.zol"),
                         ("out2.zol", "../outside.zol"), ("dangling.zol", "nothing")]:
        os.symlink(target, share / name)
    stderr = catalog(tmp_path, share, tmp_path / "named.txt")
    assert summary(stderr) == ("catalog: 3 loaded, 2 refused, 2 failed, 1 timed out, "
                               "0 unreadable, 0 skipped, 0 vanished")
    files, children = snapshot(tmp_path / "c.sqlite")
    assert {os.path.relpath(f[0], share): (f[3], f[5], f[6]) for f in files} == {
        name: outcome for name, (_, outcome) in outcomes.items()}
    assert [f[-1] for f in files if f[-1]] == [str(share / "out.zol")]
    assert [row[0] for row in children["entries"]] == [
        str(tmp_path / "outside.zol")] + [str(share / n) for n in ("a.zol", "b.dat")]
    assert summary(catalog(tmp_path, share, "--retry-failed")) == (
        "catalog: 0 loaded, 0 refused, 2 failed, 1 timed out, 0 unreadable, 5 skipped, 0 vanished")


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


def test_a_failed_look_marks_nothing_vanished(tmp_path):
    share = tmp_path / "share"
    for name in ("sub/a", "sub/b", "c", "d"):
        write(share / name, name)
    catalog(tmp_path, share)
    write(share / "c", "changed")
    stderr = catalog(tmp_path, share, status=3,
                     env={"UNREADABLE": f"{share / 'sub'}:{share / 'c'}"})
    assert f"warning: {share / 'sub'}: could not be listed (Permission denied)" in stderr
    assert summary(stderr).endswith("0 loaded, 0 refused, 0 failed, 0 timed out, "
                                    "2 unreadable, 1 skipped, 0 vanished")
    files, _ = snapshot(tmp_path / "c.sqlite")
    assert [(os.path.relpath(f[0], share), f[3], f[6]) for f in files] == [
        ("c", "unreadable", "Permission denied"), ("d", "loaded", None),
        ("sub", "unreadable", "could not be listed: Permission denied"),
        ("sub/a", "loaded", None), ("sub/b", "loaded", None)]
    # A PATH that is gone, or empty as an unmounted share is.
    (tmp_path / "mount").mkdir()
    for path in (share / "sub" / "gone", tmp_path / "mount"):
        stderr = catalog(tmp_path, path, status=3)
        assert "no recorded file below it is marked vanished" in stderr
    assert "0 vanished" in summary(catalog(tmp_path, share))


@pytest.mark.parametrize("jobs", [1, 2])
def test_a_worker_dying_between_files_costs_nothing(tmp_path, jobs):
    share = tmp_path / "share"
    for number in range(30):
        write(share / f"{number:02}.zol", "slow" if number % 3 else "leave")
    stderr = catalog(tmp_path, share, jobs=jobs)
    assert summary(stderr) == ("catalog: 30 loaded, 0 refused, 0 failed, 0 timed out, "
                               "0 unreadable, 0 skipped, 0 vanished")
    assert any(say in stderr for say in ("between two files", "pool broke", "reading it again"))


# Files go to the workers in batches of 4 until their time is known. Number: word, and the
# status and error of its row where it isn't loaded.
@pytest.mark.parametrize("words, failures, said", [
    ({5: "hang"}, {5: ("timed out", "no result within 1 s")}, "no result within 1 s"),
    ({5: "crash"}, {5: ("failed", "worker ended by signal SIGSEGV")},
     "worker ended by signal SIGSEGV"),
    # Files within the limit in a batch beyond it.
    (dict.fromkeys(range(4, 8), "wait"), {}, "no result within 1 s"),
])
def test_a_failed_batch_costs_only_the_failing_file(tmp_path, words, failures, said):
    share = tmp_path / "share"
    for number in range(12):
        write(share / f"{number:02}.zol", words.get(number, f"file {number}"))
    stderr = catalog(tmp_path, share)
    assert f"{said} during a batch of 4 files; reading it again file by file" in stderr
    files, children = snapshot(tmp_path / "c.sqlite")
    assert [(f[3], f[6]) for f in files] == [
        failures.get(number, ("loaded", None)) for number in range(12)]
    assert [os.path.basename(row[0]) for row in children["entries"]] == [
        f"{number:02}.zol" for number in range(12) if number not in failures]


def test_unusable_databases_end_in_one_line(tmp_path):
    (tmp_path / "text.sqlite").write_text("not a database " * 100)
    with sqlite3.connect(tmp_path / "new.sqlite") as database:
        database.execute("PRAGMA user_version = 99")
    for db, words in [("missing/c.sqlite", "unable to open"), ("text.sqlite", "not a database"),
                      ("new.sqlite", "later version")]:
        stderr = catalog(tmp_path, tmp_path, db=db, status=6)
        assert len(stderr.splitlines()) == 1 and words in stderr, stderr


def running(text):
    """The processes whose command line holds text."""
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError), open(f"/proc/{pid}/cmdline", "rb") as cmdline:
            found += [pid] if text in cmdline.read().decode(errors="replace") else []
    return found


@pytest.mark.parametrize("kill", [signal.SIGKILL, signal.SIGINT])
def test_killed_run_resumes_to_the_same_catalogue(tmp_path, kill):
    share = tmp_path / "share"
    count = 600
    for number in range(count):
        write(share / f"{number:04}.zol", f"slow {number}")
    database_path = tmp_path / "killed.sqlite"
    process = subprocess.Popen(SCRIPTED + ["catalog", str(share), "--db", str(database_path),
                                           "--jobs", "2"], env=ENV, stderr=subprocess.PIPE,
                               text=True)
    while process.poll() is None:  # until the first file is recorded
        time.sleep(0.02)
        with sqlite3.connect(database_path) as database:  # reads while the run writes
            with contextlib.suppress(sqlite3.OperationalError):  # no schema yet
                if database.execute("SELECT count(*) FROM files").fetchone()[0]:
                    break
    process.send_signal(kill)
    stderr = process.communicate()[1]
    if kill == signal.SIGINT:  # what was read is committed, and said
        assert process.returncode == 130
        assert summary(stderr).startswith("catalog: ") and "interrupted" in stderr
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
    with sqlite3.connect(database_path) as database:
        assert database.execute("PRAGMA integrity_check").fetchall() == [("ok",)]
    catalog(tmp_path, share, db="clean.sqlite")
    assert snapshot(database_path) == snapshot(tmp_path / "clean.sqlite")


@pytest.mark.parametrize("recipe", ["extract", "parallel", "merge"])
def test_scaled_out_extraction_imports_to_the_same_catalogue(tmp_path, recipe):
    share = tmp_path / "share"
    words = ["refuse: no", "crash", "x & <y>", "\u00e9l\u00e8ve"] * 5
    # Names that are not UTF-8, hold a newline or start with a dash.
    names = [os.fsdecode(b"\xff%d.zol" % n) if n % 3 == 0 else
             f"new\nline{n}.zol" if n % 3 == 1 else f"-dash{n}.zol" for n in range(len(words))]
    for number, (word, name) in enumerate(zip(words, names)):
        write(share / f"sub{number % 3}" / name, word)
    write(share / "notes.txt", "plain", magic=b"")
    write(share / "sub0" / "kill.zol", "kill run")
    (share / "sub0" / "kill.zol.killed").touch()  # only the GNU parallel recipe's run is killed
    catalog(tmp_path, share)
    part = tmp_path / "part.jsonl"
    with open(part, "ab") as out:  # appending, so that the last line follows the workers'
        # A part cut inside a character, and lines that are not records, come first.
        out.write('{"path": "\u00e9'.encode()[:-1] + b"\n[1, 2]\n" + b'{"path": 3}\n')
        out.flush()
        if recipe == "extract":
            run(SCRIPTED, "extract", share, "--timeout", "1", stdout=out)
        elif recipe == "parallel":
            # The README's recipe; the job that is killed runs again on the second go.
            files = subprocess.run(f"find {share} -type f -print0 | sort -z", shell=True,
                                   check=True, capture_output=True).stdout
            (tmp_path / "files").write_bytes(files)
            os.remove(share / "sub0" / "kill.zol.killed")
            for _ in range(2):
                subprocess.run(["parallel", "-0", "--arg-file", str(tmp_path / "files"), "-n",
                                "4", "--joblog", str(tmp_path / "jobs.log"), "--resume-failed",
                                *SCRIPTED, "extract", "--jobs", "1", "--"], env=ENV,
                               stdout=out, stderr=subprocess.DEVNULL)
        out.write(b'{"path": "cut short')
    if recipe == "merge":
        catalog(tmp_path, share / "sub0", db="a.sqlite")
        catalog(tmp_path, share / "sub1", share / "sub2", db="b.sqlite")
        stderr = run(SCRIPTED, "catalog", "--merge", tmp_path / "a.sqlite", tmp_path / "b.sqlite",
                     "--db", tmp_path / "imported.sqlite")
    else:
        stderr = run(SCRIPTED, "catalog", "--import", part, "--db", tmp_path / "imported.sqlite")
        assert [line for line in stderr.splitlines() if "not a whole record" in line] == [
            f"{part}:{n}: not a whole record, skipped"
            for n in (1, 2, 3, part.read_bytes().count(b"\n") + 1)]
    assert snapshot(tmp_path / "imported.sqlite") == snapshot(tmp_path / "c.sqlite")
