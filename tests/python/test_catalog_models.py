"""The catalogue of real and damaged models against ZolInfo's own verdict, file by file."""

import os
import random
import re
import shutil
import subprocess
import sys

import pytest
import zolfile

from catalog_support import ROOT, run, snapshot
from zolfile import records

if not hasattr(zolfile, "open"):
    pytest.skip("the zolfile extension module is not built", allow_module_level=True)
ZOLINFO = os.environ.get("ZOLINFO_EXE", os.path.join(ROOT, "build", "ZolInfo"))
ZOLGEN = os.environ.get("ZOLGEN_EXE", os.path.join(ROOT, "build", "zolgen"))
WHEEL = os.path.join(ROOT, "examples", "wheel.zol")
ATTRIBUTE = re.compile(r'^\s*<attribute name="(.*)" value="(.*)"/>$', re.M)
# The description of a library exception, or the whole text of a bare one (zlib's).
REFUSAL = re.compile(r"Exception: (?:.*?Description : (.*) \n {7}File : |([^\n]*)\n)", re.S)


def damaged(data):
    """(name, bytes) of hostile variants of one valid model."""
    rng = random.Random(16)
    yield from ((f"cut{n}", data[:n]) for n in (4, 12, 16, 40, 300, len(data) - 1))
    for offset in (0, 9, 13, 17, 25, 60, 200, 700, len(data) - 5):
        flipped = bytearray(data)
        flipped[offset] ^= 1 << rng.randrange(8)
        yield f"flip{offset}", bytes(flipped)
    yield "garbage", records.MAGIC + rng.randbytes(500)
    yield "noise", rng.randbytes(500)
    yield "too-new", data[:8] + b"9.9\0" + data[12:]
    yield "huge-index", data[:12] + b"\xff\xff\xff\xff" + data[16:]
    yield "huge-count", data[:16] + b"\xff\xff\xff\x7f" + data[20:]


@pytest.fixture(scope="module")
def share(tmp_path_factory):
    top = tmp_path_factory.mktemp("share")
    shutil.copy(WHEEL, top / "wheel.zol")
    for seed, (version, packing) in enumerate([("0.6", "--plain"), ("0.7", "--compressed"),
                                               ("1.1", "--compressed"), ("1.1", "--plain")]):
        subprocess.run([ZOLGEN, "-o", str(top / f"gen{seed}.bin"), "--nodes", "300",
                        "--elements", "200", "--results", "3", "--parts", "2",
                        "--version", version, packing, "--seed", str(seed)],
                       check=True, stdout=subprocess.DEVNULL)
    with open(WHEEL, "rb") as f:
        wheel = f.read()
    (top / "damaged").mkdir()
    for name, data in damaged(wheel):
        (top / "damaged" / name).write_bytes(data)
    return top


def zolinfo(path, tmp_path):
    out = tmp_path / "report.xml"
    done = subprocess.run([ZOLINFO, path, str(out)], capture_output=True, text=True,
                          env=dict(os.environ, MORLANE_TEMP_PATH=str(tmp_path)))
    if done.returncode == 2:
        # What the library printed before the refusal is the record's messages.
        printed = done.stderr.split("\n", 1)[1].split("Exception: ")[0] or None
        return "refused", ["".join(REFUSAL.search(done.stderr).groups("")), printed]
    assert done.returncode == 0, done.stderr
    return "loaded", [list(entry) for entry in ATTRIBUTE.findall(out.read_text())]


def test_catalogue_agrees_with_zolinfo(share, tmp_path):
    stderr = run([sys.executable, "-m", "zolfile"], "catalog", str(share), "--db",
                 str(tmp_path / "c.sqlite"))
    files, children = snapshot(tmp_path / "c.sqlite")
    recorded = {path: (status, [error, messages])
                for path, _, _, status, _, _, error, messages in files}
    entries = {}
    for path, _, name, value in children["entries"]:
        entries.setdefault(path, []).append([name, value])
    expected = {}
    for directory, _, names in os.walk(share):
        for path in (os.path.join(directory, name) for name in names):
            if records.is_zol(path):
                expected[path] = zolinfo(path, tmp_path)
    assert {p: s for p, (s, _) in recorded.items()} == {p: s for p, (s, _) in expected.items()}
    for path, (status, text) in expected.items():
        assert (entries.get(path) if status == "loaded" else recorded[path][1]) == text, path
    statuses = [status for status, _ in recorded.values()]
    assert (f"catalog: {statuses.count('loaded')} loaded, {statuses.count('refused')} refused, "
            "0 failed, 0 timed out, 0 skipped, 0 vanished") in stderr


def test_array_counts_are_those_of_the_values(share):
    for name in ("wheel.zol", "gen0.bin", "gen2.bin"):
        model = zolfile.open(str(share / name))
        record = records.read_model(str(share / name))
        assert [a["count"] for a in record["arrays"]] == [
            len(a.values()) for a in model.arrays()]
