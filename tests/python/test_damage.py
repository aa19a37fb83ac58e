"""Real and damaged models: zolfile and the catalogue agree with ZolInfo, file by file."""
import random
import re
import shutil
import sys

import pytest

import zolfile
from conftest import run, run_zolinfo, snapshot
from zolfile import records

# The time changes from run to run.
TIME = re.compile(r"Time : .*")
ATTRIBUTE = re.compile(r'^\s*<attribute name="(.*)" value="(.*)"/>$', re.M)
# The description of a library exception, or the whole text of a bare one (zlib's).
REFUSAL = re.compile(r"Exception: (?:.*?Description : (.*) \n {7}File : |([^\n]*)\n)", re.S)


def damaged(name, data, rng):
    """(name, bytes) of hostile variants of one valid model."""
    yield from ((f"{name}-cut{n}", data[:n]) for n in (3, 8, 12, 16, 40, 300, len(data) // 2,
                                                       len(data) - 1))
    for offset in (0, 9, 13, 17, 25, 60, 200, 700, len(data) - 5):
        flipped = bytearray(data)
        flipped[offset] ^= 1 << rng.randrange(8)
        yield f"{name}-flip{offset}", bytes(flipped)
    for i in range(20):
        flipped = bytearray(data)
        for _ in range(1 + i % 4):
            flipped[rng.randrange(len(data))] ^= 1 << rng.randrange(8)
        yield f"{name}-random{i}", bytes(flipped)
    yield f"{name}-too-new", data[:8] + b"9.9\0" + data[12:]
    yield f"{name}-huge-index", data[:12] + b"\xff\xff\xff\xff" + data[16:]
    yield f"{name}-huge-count", data[:16] + b"\xff\xff\xff\x7f" + data[20:]


@pytest.fixture(scope="module")
def share(models, tmp_path_factory):
    top = tmp_path_factory.mktemp("share")
    rng = random.Random(16)
    (top / "damaged").mkdir()
    for name in ("example", "packed-3comp"):
        for damage, data in damaged(name, models[name].read_bytes(), rng):
            (top / "damaged" / damage).write_bytes(data)
    (top / "damaged" / "garbage").write_bytes(records.MAGIC + rng.randbytes(500))
    (top / "damaged" / "noise").write_bytes(rng.randbytes(500))
    for name, path in models.items():  # the extension doesn't matter
        shutil.copy(path, top / f"{name}.bin")
    return top


def zolinfo(path, tmp_path):
    """ZolInfo's verdict as the catalogue records it."""
    out = tmp_path / "report.xml"
    done = run_zolinfo(path, out, cwd=tmp_path)
    if done.returncode == 2:
        # What the library printed before the refusal is the record's messages.
        printed = done.stderr.split("\n", 1)[1].split("Exception: ")[0] or None
        return "refused", ["".join(REFUSAL.search(done.stderr).groups("")), printed]
    assert done.returncode == 0, done.stderr
    return "loaded", [list(entry) for entry in ATTRIBUTE.findall(out.read_text())]


def test_refused_files_raise_zolinfos_text(share, tmp_path):
    for path in [tmp_path / "missing.zol", tmp_path, *sorted((share / "damaged").iterdir())]:
        result = run_zolinfo(path)
        try:
            model = zolfile.open(str(path))
        except zolfile.Error as error:
            assert result.returncode == 2, path
            printed = result.stderr.split("Exception: ", 1)[1]
            assert TIME.sub("", str(error) + "\n") == TIME.sub("", printed), path
            if error.kind is not None:
                assert f'Description : {error.description} ' in str(error), path
            continue
        assert result.returncode == 0, path
        # The model opened: every array either reads or fails with the loader's text.
        for array in model.arrays():
            try:
                array.values()
            except zolfile.Error as error:
                assert str(error), path


def test_catalogue_agrees_with_zolinfo(share, tmp_path):
    stderr = run([sys.executable, "-m", "zolfile"], "catalog", share, "--db",
                 tmp_path / "c.sqlite")
    files, children = snapshot(tmp_path / "c.sqlite")
    recorded = {path: (status, [error, messages])
                for path, _, _, status, _, _, error, messages in files}
    entries = {}
    for path, _, name, value in children["entries"]:
        entries.setdefault(path, []).append([name, value])
    expected = {str(p): zolinfo(p, tmp_path) for p in share.rglob("*")
                if p.is_file() and records.is_zol(str(p))}
    assert {p: s for p, (s, _) in recorded.items()} == {p: s for p, (s, _) in expected.items()}
    for path, (status, text) in expected.items():
        assert (entries.get(path) if status == "loaded" else recorded[path][1]) == text, path
    statuses = [status for status, _ in recorded.values()]
    assert (f"catalog: {statuses.count('loaded')} loaded, {statuses.count('refused')} refused, "
            "0 failed, 0 timed out, 0 skipped, 0 vanished") in stderr
    # Array counts are those of the values.
    for name in ("example.bin", "v06-6comp.bin", "packed-3comp.bin"):
        arrays = zolfile.open(str(share / name)).arrays()
        assert [a[-1] for a in children["arrays"] if a[0] == str(share / name)] == [
            len(a.values()) for a in arrays]


def test_heavy_data_is_read_only_for_values(models, tmp_path):
    # Wreck each packed block in turn: the one of the heavy data still opens and lists its
    # arrays, and fails only when values are read, with the inflater's bare failure.
    data = models["packed-3comp"].read_bytes()
    count = len(zolfile.open(str(models["packed-3comp"])).arrays())
    lazy = 0
    for start in (m.start() for m in re.finditer(b"\x78[\x01\x5e\x9c\xda]", data)):
        damaged_path = tmp_path / f"at-{start}.zol"
        damaged_path.write_bytes(data[:start + 2] + bytes(24) + data[start + 26:])
        try:
            arrays = zolfile.open(str(damaged_path)).arrays()
        except zolfile.Error:
            continue
        assert len(arrays) == count
        with pytest.raises(zolfile.Error) as failure:
            [array.values() for array in arrays]
        assert failure.value.kind is None and str(failure.value) == "std::exception"
        lazy += 1
    assert lazy >= 1
