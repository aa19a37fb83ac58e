"""zolfile.diff and `python3 -m zolfile diff` give what ZolDiff gives."""
import json
import os
import subprocess
import sys

import numpy as np
import pytest

import zolfile
from conftest import ENV, SOURCE, ZOLGEN

ZOLDIFF = os.environ.get("ZOLDIFF_EXE", str(SOURCE / "build" / "ZolDiff"))


@pytest.fixture(scope="module")
def pair(tmp_path_factory):
    """Two models of one name that differ by their noise, in folders of their own."""
    folder = tmp_path_factory.mktemp("pair")
    paths = []
    for seed in (1, 2):
        path = folder / str(seed) / "model.zol"
        path.parent.mkdir()
        subprocess.run([ZOLGEN, "-o", path, "--nodes", "50", "--elements", "20", "--results",
                        "2", "--components", "3", "--compressed", "--seed", str(seed)],
                       check=True, capture_output=True)
        paths.append(path)
    return paths


def zoldiff(*args):
    return subprocess.run([ZOLDIFF, *map(str, args)], capture_output=True)


@pytest.mark.parametrize("options, settings", [
    ([], {}),
    (["--rtol", "0.01", "--max-report", "2"], {"rtol": 0.01, "max_report": 2}),
    (["--tolerance", "Stress=atol:1,rtol:0", "--ignore", "Coord*"],
     {"tolerance": {"Stress": {"atol": 1, "rtol": 0}}, "ignore": "Coord*"}),
    (["--ulps", "3", "--match", "order", "--ignore-entry", "Model*"],
     {"ulps": 3, "match": "order", "ignore_entry": ["Model*"]}),
])
def test_diff_is_zoldiff_json(pair, options, settings):
    expected = zoldiff(*options, "--json", "-", *pair)
    assert expected.returncode in (0, 1)
    report = zolfile.diff(*pair, **settings)
    assert report == json.loads(expected.stdout)
    assert report["equal"] == (expected.returncode == 0)


def test_planted_difference_is_placed(pair):
    report = zolfile.diff(pair[0], pair[0])
    assert report["equal"] and report["values_compared"] > 0
    report = zolfile.diff(*pair, max_report=1)
    stress = next(a for a in report["arrays"] if a["result"] == "Stress")
    assert stress["id_kind"] == "node" and len(stress["first"]) == 1
    worst = stress["max_abs"]
    # The values are written as the shortest text of their 32-bit floats.
    a, b = (float(np.float32(worst[key])) for key in ("a", "b"))
    assert worst["value"] == abs(a - b)
    largest = max(a["max_abs"]["value"] for a in report["arrays"] if a["result"] == "Stress")
    loose = zolfile.diff(*pair, tolerance={"Stress": {"atol": largest * 1.001}})
    assert not any(a["result"] == "Stress" for a in loose["arrays"])


@pytest.mark.parametrize("args", [["--rtol", "1e-3"], ["--json", "-"], ["--quiet"], ["--bogus"],
                                  ["--json", "-", "--ignore", "Stress"]])
def test_module_command_is_zoldiff(pair, args):
    expected = zoldiff(*args, *pair)
    got = subprocess.run([sys.executable, "-m", "zolfile", "diff", *args, *map(str, pair)],
                         capture_output=True, env=ENV)
    assert (got.returncode, got.stdout, got.stderr) == (expected.returncode, expected.stdout,
                                                        expected.stderr)


def test_errors(pair, tmp_path):
    with pytest.raises(ValueError, match="--atol"):
        zolfile.diff(*pair, atol=-1)
    with pytest.raises(zolfile.Error, match="missing.zol"):
        zolfile.diff(pair[0], tmp_path / "missing.zol")
    with pytest.raises(TypeError):
        zolfile.diff(*pair, tolerence=1)


def test_path_that_is_not_utf8(pair, tmp_path):
    odd = os.path.join(os.fsencode(tmp_path), b"\xff-model.zol")
    with open(odd, "wb") as copy, open(pair[0], "rb") as original:
        copy.write(original.read())
    report = zolfile.diff(os.fsdecode(odd), pair[0], ignore_entry="Model File*")
    assert report["a"] == os.fsdecode(odd)
    assert report["equal"]
