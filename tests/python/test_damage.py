"""Refused and damaged files raise zolfile.Error with ZolInfo's text, and never crash."""
import random
import re

import pytest

import zolfile
from conftest import run_zolinfo

# The time changes from run to run.
TIME = re.compile(r"Time : .*")


def same_text(a, b):
    return TIME.sub("Time", a) == TIME.sub("Time", b)


def refused_cases(models, folder):
    """(name, path) of files ZolInfo refuses or may refuse."""
    data = models["packed-3comp"].read_bytes()
    cases = [("missing", folder / "missing.zol"), ("directory", folder)]
    rng = random.Random(15)
    for cut in (0, 3, 8, 40, len(data) // 2, len(data) - 1):
        cases.append((f"cut-{cut}", data[:cut]))
    for i in range(40):
        damaged = bytearray(data)
        for _ in range(1 + i % 4):
            damaged[rng.randrange(len(damaged))] ^= 1 << rng.randrange(8)
        cases.append((f"flip-{i}", bytes(damaged)))
    for name, content in cases:
        if isinstance(content, bytes):
            (folder / f"{name}.zol").write_bytes(content)
            content = folder / f"{name}.zol"
        yield name, content


def test_refused_files_raise_zolinfos_text(models, tmp_path):
    for name, path in refused_cases(models, tmp_path):
        result = run_zolinfo(path)
        try:
            model = zolfile.open(str(path))
        except zolfile.Error as error:
            assert result.returncode == 2, name
            printed = result.stderr.split("Exception: ", 1)[1]
            assert same_text(str(error) + "\n", printed), name
            if error.kind is not None:
                assert f'Description : {error.description} ' in str(error), name
            continue
        assert result.returncode == 0, name
        # The model opened: every array either reads or fails with the loader's text.
        for array in model.arrays():
            try:
                array.values()
            except zolfile.Error as error:
                assert str(error), name


def test_heavy_data_is_read_only_for_values(models, tmp_path):
    # Wreck each packed block in turn: the one of the heavy data still opens and lists its
    # arrays, and fails only when values are read, with the inflater's bare failure.
    data = models["packed-3comp"].read_bytes()
    count = len(zolfile.open(str(models["packed-3comp"])).arrays())
    lazy = 0
    for start in (m.start() for m in re.finditer(b"\x78[\x01\x5e\x9c\xda]", data)):
        damaged = tmp_path / f"at-{start}.zol"
        damaged.write_bytes(data[:start + 2] + bytes(24) + data[start + 26:])
        try:
            arrays = zolfile.open(str(damaged)).arrays()
        except zolfile.Error:
            continue
        assert len(arrays) == count
        with pytest.raises(zolfile.Error) as failure:
            [array.values() for array in arrays]
        assert failure.value.kind is None and str(failure.value) == "std::exception"
        lazy += 1
    assert lazy >= 1
