"""Real and damaged models: zolfile and the catalogue agree with ZolInfo, file by file."""
import contextlib
import os
import random
import re
import shutil
import sys
import warnings

import pytest

import zolfile
from conftest import report_entries, run, run_zolinfo, snapshot
from zolfile import records

# The time changes from run to run.
TIME = re.compile(r"Time : .*")
# The description of a library exception, or the whole text of a bare one (zlib's).
REFUSAL = re.compile(r"Exception: (?:.*?Description : (.*) \n {7}File : |([^\n]*)\n)", re.S)


def damaged(data, rng):
    """(name, bytes) of hostile variants of one valid model."""
    def flip(*offsets):
        copy = bytearray(data)
        for offset in offsets:
            copy[offset] ^= 1 << rng.randrange(8)
        return bytes(copy)
    size = len(data)
    yield from ((f"cut{n}", data[:n]) for n in (3, 8, 12, 16, 40, 300, size // 2, size - 1))
    yield from ((f"flip{n}", flip(n)) for n in (0, 9, 13, 17, 25, 60, 200, 700, size - 5))
    yield from ((f"random{i}", flip(*rng.sample(range(size), 1 + i % 4))) for i in range(20))
    # A version too new, then a huge index size and a huge entry count.
    for name, at, word in [("too-new", 8, b"9.9\0"), ("huge-index", 12, b"\xff\xff\xff\xff"),
                           ("huge-count", 16, b"\xff\xff\xff\x7f")]:
        yield name, data[:at] + word + data[at + 4:]


@pytest.fixture(scope="module")
def share(models, tmp_path_factory):
    top = tmp_path_factory.mktemp("share")
    rng = random.Random(16)
    for name in ("example", "packed-3comp"):
        for damage, data in damaged(models[name].read_bytes(), rng):
            (top / f"{name}-{damage}").write_bytes(data)
    (top / "garbage").write_bytes(records.MAGIC + rng.randbytes(500))
    (top / "noise").write_bytes(rng.randbytes(500))
    # Named as a model, with its first bytes gone: refused, never invisible.
    (top / "bad4.zol").write_bytes(models["example"].read_bytes()[40:])
    for name, path in models.items():  # the extension doesn't matter
        shutil.copy(path, top / f"{name}.bin")
    return top


def verdict(path, tmp_path):
    """ZolInfo's verdict as the catalogue records it, once zolfile is found to agree."""
    done = run_zolinfo(path, tmp_path / "report.xml", cwd=tmp_path)
    try:
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            model = zolfile.open(str(path))
    except zolfile.Error as error:
        assert done.returncode == 2 and "\n" not in str(error), path
        # A file that isn't there, or isn't a file, is refused before it is opened.
        if not os.path.isfile(path):
            assert error.kind == 9, path
            return "refused", [error.description, None]
        assert str(error).startswith(f"{path}: "), path
        # A bare failure (an inflate's) after its printed message: the message describes it.
        printed, _ = done.stderr.split("\n", 1)[1].split("Exception: ", 1)
        described = "".join(REFUSAL.search(done.stderr).groups(""))
        if error.kind == 9 and "uncompressing" in error.description:
            described = printed.strip()
        assert error.description == described, path
        messages = "".join(f"{w.message}\n" for w in caught)
        return "refused", [error.description, messages or None]
    assert done.returncode == 0, done.stderr
    report = report_entries((tmp_path / "report.xml").read_text())
    run_zolinfo("--ekm-meta-data", path, cwd=tmp_path)
    ekm = report_entries((tmp_path / "ekm-meta-data.xml").read_text())
    assert (model.report(), model.ekm_report()) == (report, ekm), path
    for array in model.arrays():  # each reads or fails with the loader's text
        try:
            array.values()
        except zolfile.Error as error:
            assert str(error), path
    return "loaded", [list(entry) for entry in report]


def is_model(path):
    with contextlib.suppress(OSError), open(path, "rb") as file:
        return file.read(8) == records.MAGIC or path.endswith(".zol")
    return False


def test_zolfile_and_catalogue_agree_with_zolinfo(share, tmp_path):
    stderr = run([sys.executable, "-m", "zolfile"], "catalog", share, "--db",
                 tmp_path / "c.sqlite")
    files, children = snapshot(tmp_path / "c.sqlite")
    recorded = {path: (status, [[n, v] for p, _, n, v in children["entries"] if p == path]
                       if status == "loaded" else [error, messages])
                for path, _, _, status, _, _, error, messages, _, _ in files}
    expected = {str(path): verdict(path, tmp_path)
                for path in [tmp_path / "missing.zol", tmp_path, *sorted(share.iterdir())]}
    assert recorded == {p: v for p, v in expected.items() if is_model(p)}
    statuses = [status for status, _ in recorded.values()]
    assert (f"catalog: {statuses.count('loaded')} loaded, {statuses.count('refused')} refused, "
            "0 failed, 0 timed out, 0 unreadable, 0 skipped, 0 vanished") in stderr
    # Array counts are those of the values.
    for path in share.glob("*.bin"):
        assert [a[-1] for a in children["arrays"] if a[0] == str(path)] == [
            a.values().size for a in zolfile.open(str(path)).arrays()]


def test_heavy_data_is_read_only_for_values(models, tmp_path):
    # Wreck each packed block in turn: the one of the heavy data still opens and lists its
    # arrays, and fails only when values are read, with the inflater's bare failure.
    data = models["packed-3comp"].read_bytes()
    count = len(zolfile.open(str(models["packed-3comp"])).arrays())
    lazy = 0
    for start in (m.start() for m in re.finditer(b"\x78[\x01\x5e\x9c\xda]", data)):
        (tmp_path / "m.zol").write_bytes(data[:start + 2] + bytes(24) + data[start + 26:])
        try:
            arrays = zolfile.open(str(tmp_path / "m.zol")).arrays()
        except zolfile.Error:
            continue
        with pytest.raises(zolfile.Error) as failure:
            [array.values() for array in arrays]
        assert (len(arrays), failure.value.kind) == (count, 9)
        assert re.fullmatch("Error -?[0-9]+ while uncompressing block", failure.value.description)
        lazy += 1
    assert lazy >= 1
