"""zolfile as users of h5py expect it: paths, closing, reprs, slicing, errors and warnings."""
import errno
import importlib.metadata
import os
import pickle
import re
import threading
import warnings
from pathlib import Path

import numpy as np
import pytest

import zolfile
from conftest import SOURCE


@pytest.fixture(scope="module")
def odd_name(models, tmp_path_factory):
    """The 3-component model under a name that isn't UTF-8, as os.listdir(bytes) gives it."""
    folder = tmp_path_factory.mktemp("odd")
    name = os.path.join(os.fsencode(folder), b"caf\xe9.zol")
    with open(name, "wb") as f:
        f.write(models["packed-3comp"].read_bytes())
    return name


def test_every_kind_of_path_opens_the_same_model(models, odd_name):
    path = models["packed-3comp"]
    reports = {kind: zolfile.open(given).report() for kind, given in {
        "str": str(path), "Path": Path(path), "bytes": os.fsencode(path), "odd bytes": odd_name,
        "odd str": os.fsdecode(odd_name)}.items()}
    assert all(report == reports["str"] for report in reports.values())
    model = zolfile.open(odd_name)
    assert repr(model) == f"<zolfile.Model {os.fsdecode(odd_name)!r}>"
    with pytest.raises(TypeError):
        zolfile.open(12)


def test_closed_models_and_arrays_refuse_everything(models):
    with zolfile.open(models["example"]) as model:
        arrays = model.arrays()
        assert model.arrays()[0] is arrays[0] and not model.closed
        values = arrays[0].values()
    assert model.closed and repr(model).startswith("<closed zolfile.Model")
    assert repr(arrays[0]) == "<closed zolfile.Array 'Coordinates'>"
    for use in (model.report, model.ekm_report, model.arrays, lambda: model.version,
                lambda: model.translations, arrays[0].values, lambda: arrays[1][0],
                lambda: np.asarray(arrays[2]), model.__enter__):
        with pytest.raises(ValueError, match="closed"):
            use()
    model.close()  # again: nothing happens
    assert values.shape == arrays[0].shape  # what was read stays


def test_shapes_types_and_lookup(models):
    model = zolfile.open(models["example"])
    described = [(a.name.split("\x1e")[0], a.shape, a.dtype.str, a.components, a.size, len(a))
                 for a in model.arrays()]
    assert [d[:4] for d in described] == [
        ("Coordinates", (8, 3), "<f4", 3), ("Node Ids", (8,), "<f4", 1),
        ("Polylength", (1,), "<u4", 1), ("Connectivity", (8,), "<u4", 1),
        ("Stress", (8,), "<f4", 1), ("Stress", (8,), "<f4", 1),
        ("Displacement", (8, 3), "<f4", 3)]
    assert all(size == np.prod(shape) and n == shape[0] for _, shape, _, _, size, n in described)
    coordinates = model["Coordinates"]
    assert repr(coordinates) == "<zolfile.Array 'Coordinates': shape (8, 3), type '<f4'>"
    assert "Coordinates" in model and "Nothing" not in model
    assert np.asarray(coordinates) is coordinates.values()
    assert np.asarray(coordinates, dtype=np.float64).dtype == np.float64
    with pytest.raises(KeyError):
        model["Nothing"]


# Keys as numpy takes them, on a 3-component (n, 3) array and a 1-component (n,) one.
KEYS = [np.s_[:], np.s_[10:20], np.s_[-5:], np.s_[::7], np.s_[50:3:-4], np.s_[::-1],
        np.s_[5:5], np.s_[70:80], np.s_[3], np.s_[-1], np.s_[np.int64(2)], np.s_[...],
        np.s_[..., 0], np.s_[2:9, 1], np.s_[4, 2], np.s_[4, 1:], np.s_[[1, 5, 2]],
        np.s_[:, ::2]]


@pytest.mark.parametrize("key", KEYS, ids=repr)
def test_slices_match_the_whole_values(models, key):
    model = zolfile.open(models["packed-3comp"])
    for array in (a for a in model.arrays() if a.result in ("Stress", "Node Ids")):
        whole = array.values()
        try:
            expected = whole[key]
        except IndexError:
            with pytest.raises(IndexError):
                array[key]
            continue
        got = array[key]
        assert np.shape(got) == np.shape(expected) and np.array_equal(got, expected), array


def test_out_of_range_indices(models):
    array = zolfile.open(models["packed-3comp"])["Node Ids"]
    for key in (len(array), -len(array) - 1, (0, 0), "a"):
        with pytest.raises((IndexError, TypeError)):
            array[key]


def test_arrays_read_from_threads_at_once(models):
    model = zolfile.open(models["v07-parts"])
    expected = [a.values().copy() for a in model.arrays()]
    failures = []

    def read(order):
        try:
            for i in order * 20:
                assert np.array_equal(model.arrays()[i][:], expected[i])
        except Exception as error:  # reported in the main thread
            failures.append(error)
    threads = [threading.Thread(target=read, args=(order,)) for order in (
        list(range(len(expected))), list(reversed(range(len(expected)))))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert failures == []


def test_missing_files_and_things_that_are_no_files(tmp_path):
    missing = tmp_path / "none.zol"
    with pytest.raises(FileNotFoundError) as failure:
        zolfile.open(missing)
    error = failure.value
    assert isinstance(error, zolfile.Error) and isinstance(error, OSError)
    assert (error.errno, error.filename) == (errno.ENOENT, str(missing))
    assert str(error) == f"[Errno 2] No such file or directory: {str(missing)!r}"
    assert error.kind is not None and error.description
    os.mkfifo(tmp_path / "fifo")
    # A FIFO with no writer would block an open() forever: the refusal comes at once.
    for path in (tmp_path / "fifo", tmp_path, "/dev/null"):
        with pytest.raises(zolfile.Error) as failure:
            zolfile.open(path)
        assert not isinstance(failure.value, FileNotFoundError)
        assert failure.value.filename == str(path) and "\n" not in str(failure.value)


def test_damaged_payload_fails_in_one_line_and_pickles(models, tmp_path):
    # Wreck the packed block of the heavy data: the model opens, its values fail.
    data = models["packed-3comp"].read_bytes()
    path = tmp_path / "m.zol"
    for start in reversed([m.start() for m in re.finditer(b"\x78[\x01\x5e\x9c\xda]", data)]):
        path.write_bytes(data[:start + 2] + bytes(24) + data[start + 26:])
        try:
            model = zolfile.open(path)
            break
        except zolfile.Error:
            continue
    with pytest.raises(zolfile.Error) as failure:
        [array[:1] for array in model.arrays()]
    error = failure.value
    assert error.kind == 9 and error.description.endswith("while uncompressing block")
    assert str(error).startswith(f"{path}: ") and "\n" not in str(error)
    assert error.filename == str(path)
    copy = pickle.loads(pickle.dumps(error))
    assert (type(copy), str(copy), copy.kind, copy.description, copy.where, copy.filename) == (
        type(error), str(error), error.kind, error.description, error.where, error.filename)


def test_library_messages_are_warnings(capfd):
    # A shape that isn't in its group: ZolInfo prints the failure and reports all the same.
    path = SOURCE / "tests/data/golden/lonely-shape.zol"
    with pytest.warns(RuntimeWarning) as caught:
        model = zolfile.open(path)
    assert [str(w.message) for w in caught] == [f"{path}: Element Not Found"]
    assert caught[0].filename == __file__  # the line that opened it
    assert model.report()
    assert capfd.readouterr().err == ""  # nothing printed behind Python's back


def test_version_is_the_distributions():
    assert zolfile.__version__ == importlib.metadata.version("zolfile")
