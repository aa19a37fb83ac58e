"""Meshes written by meshio and read back: formats, names, time series, failed writes."""
import os
import subprocess
import sys
import xml.etree.ElementTree as ET

import meshio
import numpy as np
import pytest
from meshio.xdmf import TimeSeriesReader

import zolfile
from conftest import ENV
from test_mesh import BOTTOM, CUBE, POINTS, fake_model
from zolfile.export import clean_names
from zolfile.series import steps, time_of

# Extension -> meshio's format name, and whether meshio reads its cell data back.
FORMATS = {".vtu": ("vtu", True), ".xdmf": ("xdmf", True), ".vtk": ("vtk", True),
           ".e": ("exodus", False), ".msh": ("gmsh22", True)}
# Gmsh's nine tensor components at the places of the six (xx, yy, zz, xy, yz, xz).
SIX_OF_NINE = [0, 4, 8, 1, 5, 2]


def by_type(cells):
    """Type -> rows of every block of that type, in order: what a format that joins blocks of
    one type (MED, meshio's VTU reader) still has to agree on."""
    joined = {}
    for kind, block in cells:
        joined.setdefault(kind, []).extend(np.asarray(block).tolist())
    return joined


def joined(cells, blocks):
    """Type -> the cell data of every block of that type."""
    return {kind: np.concatenate([b for (k, _), b in zip(cells, blocks) if k == kind])
            for kind, _ in cells}


def assert_same_data(back, made, names, cells_kept):
    for name, values in made.point_data.items():
        read = back.point_data[names[name]]
        if read.shape[-1:] == (9,) and values.shape[1] == 6:
            read = read[:, SIX_OF_NINE]
        assert np.array_equal(read.reshape(values.shape), values), name
    if cells_kept:
        for name, blocks in made.cell_data.items():
            read = joined([(c.type, c.data) for c in back.cells], back.cell_data[names[name]])
            for kind, values in joined(made.cells, blocks).items():
                assert np.array_equal(read[kind].reshape(values.shape), values), name


@pytest.mark.parametrize("ext", FORMATS)
@pytest.mark.parametrize("name", ["example", "cast-wheel", "v07-parts", "v06-6comp"])
def test_formats_read_back(mesh_models, tmp_path, name, ext):
    model = zolfile.open(str(mesh_models[name]))
    analysis = model.analyses()[0]
    out = tmp_path / f"{name}{ext}"
    model.convert(analysis, out)
    made = model.mesh(analysis)
    back = meshio.read(out)
    assert np.array_equal(back.points, made.points)
    assert by_type((c.type, c.data) for c in back.cells) == by_type(made.cells)
    file_format, cells_kept = FORMATS[ext]
    names = clean_names([*made.point_data, *made.cell_data], file_format)
    assert_same_data(back, made, names, cells_kept)


# Elements of the unit cube's points of test_mesh, by the type they must get.
TEMPLATES = {"vertex": [1], "line": [1, 2], "triangle": [1, 2, 3], "quad": BOTTOM,
             "tetra": [1, 2, 3, 5], "pyramid": BOTTOM + [13], "wedge": [1, 2, 3, 5, 6, 7],
             "triangle6": [1, 2, 3, 9, 10, 11], "hexahedron": CUBE,
             "quad8": BOTTOM + [9, 10, 11, 12]}


def random_model(seed, kinds):
    """Random elements of the given kinds, on the cube's points turned, moved far from the
    origin and scaled, with sparse shuffled node ids and per-node and per-element results."""
    rng = np.random.default_rng(seed)
    kinds = rng.choice(kinds, size=40)
    ids = dict(zip(POINTS, rng.choice(10**7, size=len(POINTS), replace=False).tolist()))
    turn, _ = np.linalg.qr(rng.normal(size=(3, 3)))
    corners = np.array(list(POINTS.values())) @ turn * rng.uniform(1e-3, 1e3) + \
        rng.uniform(-1e4, 1e4, size=3)
    points = {ids[i]: tuple(corner) for i, corner in zip(POINTS, corners)}
    elements = [[ids[i] for i in TEMPLATES[kind]] for kind in kinds]
    results = [("Temperature", rng.random(len(points), dtype=np.float32)),
               ("Velocity\x1eStep 1", rng.random(3 * len(points), dtype=np.float32)),
               ("Stress\x1eStep 1", rng.random(6 * len(points), dtype=np.float32)),
               ("Element Ids", rng.permutation(len(kinds)).astype(np.float32)),
               ("Plastic Strain\x1eStep 1", rng.random(len(kinds), dtype=np.float32))]
    return fake_model(elements, results, points), kinds


@pytest.mark.parametrize("seed", [1, 2, 3])
def test_random_models_read_back(tmp_path, seed):
    # meshio's Gmsh reader gives element data of several cell types to every block, and fails;
    # among cells of other types its XDMF reader misreads vertices (it takes their node count
    # for a node) and doesn't know second-order cells.
    for ext, (file_format, cells_kept) in list(FORMATS.items())[:-1]:
        model, kinds = random_model(seed, [kind for kind in TEMPLATES if ext != ".xdmf" or
                                           kind not in ("vertex", "triangle6", "quad8")])
        made = zolfile.mesh(model, "A")
        assert [kind for kind, block in made.cells for _ in block] == list(kinds)
        out = tmp_path / f"random{ext}"
        zolfile.Model.convert(model, "A", out)
        back = meshio.read(out)
        assert np.array_equal(back.points, made.points), ext
        assert by_type((c.type, c.data) for c in back.cells) == by_type(made.cells), ext
        names = clean_names([*made.point_data, *made.cell_data], file_format)
        assert_same_data(back, made, names, cells_kept)


@pytest.mark.parametrize("file_format, names, cleaned", [
    ("vtk", ["Stress [Step 1]", "Stress_[Step_1]"], ["Stress_[Step_1]", "Stress_[Step_1]~2"]),
    ("vtu", ['a"b<c>&d e'], ["a_b_c__d e"]),
    ("med", ["Stress [Step 1 / Inc 2]"], ["Stress [Step 1 _ Inc 2]"]),
    ("gmsh22", ['say "hi"'], ["say _hi_"]),
    ("exodus", ["Spannung über " + "x" * 30, "Spannung uber " + "x" * 40],
     ["Spannung uber " + "x" * 18, "Spannung uber " + "x" * 16 + "~2"]),
    ("xdmf", ["caf\udce9 [Step 1]"], ["caf\ufffd [Step 1]"]),
])
def test_clean_names(file_format, names, cleaned):
    assert list(clean_names(names, file_format).values()) == cleaned


@pytest.mark.parametrize("instance, time", [
    ("Time 0.25", 0.25), ("t=1e-3", 0.001), ("TIME: 2 s", 2.0), ("0.5", 0.5),
    ("Step 3 / Time 1.5", 1.5), ("Step 2", None), ("Load Step 1", None), ("Mode 3", None),
])
def test_time_of(instance, time):
    assert time_of(instance) == time


# Instances in order of appearance -> the steps' (time, instance), in time order.
@pytest.mark.parametrize("instances, expected", [
    (["Time 2", "Time 0.5"], [(0.5, "Time 0.5"), (2.0, "Time 2")]),
    (["Time 2", "Step 9"], [(0.0, "Time 2"), (1.0, "Step 9")]),  # not all hold a time
    (["t=1", "Time 1"], [(0.0, "t=1"), (1.0, "Time 1")]),  # nor distinct ones
    ([""], [(0.0, "")]),
])
def test_steps_order(instances, expected):
    made = zolfile.Mesh(np.zeros((1, 3)), np.zeros(1))
    for number, instance in enumerate(instances):
        name = f"R{number}"
        made.point_data[name] = np.zeros((1, 1))
        made.origins[name] = ("R", instance)
    made.point_data["Constant"] = np.ones((1, 1))
    made.origins["Constant"] = ("Constant", "")
    series = steps(made)
    assert [(s.time, s.instance) for s in series] == expected
    assert all("Constant" in s.point_data for s in series)


def read_series(path):
    """(time, instance, point data) of each step of an XDMF series."""
    names = [info.get("Value") for info in ET.parse(path).iter("Information")]
    with TimeSeriesReader(path) as reader:
        reader.read_points_cells()
        return [(*reader.read_data(k)[:2], name) for k, name in enumerate(names)]


def test_series_of_every_analysis(mesh_models, tmp_path):
    command = [sys.executable, "-m", "zolfile", "convert", str(mesh_models["cast-wheel"]),
               str(tmp_path / "wheel.xdmf"), "--all-instances"]
    done = subprocess.run(command, env=ENV, capture_output=True, text=True, check=True)
    assert done.stdout.split() == [str(tmp_path / "wheel-Static.xdmf"),
                                   str(tmp_path / "wheel-Transient.xdmf")]
    model = zolfile.open(str(mesh_models["cast-wheel"]))
    made = model.mesh("Transient")
    series = read_series(tmp_path / "wheel-Transient.xdmf")
    names = [f"Time {0.0005 * k:g}" for k in range(1, 13)]
    assert [(t, name) for t, _, name in series] == [(float(n[5:]), n) for n in names]
    for time, data, name in series:
        for result in ("Displacement", "Von Mises Stress"):
            expected = made.point_data[f"{result} [{name}]"]
            assert np.array_equal(data[result].reshape(expected.shape), expected)
    (time, data, name), = read_series(tmp_path / "wheel-Static.xdmf")
    assert name == "Load Step 1" and data["Stress"].shape == (len(made.points), 6)


def test_series_by_step_index(models, tmp_path):
    # The bundled example's instances hold no time: they are steps 0 and 1, in their order. A
    # name that is not UTF-8 can't be written into the XDMF text: the .h5 beside it gets one.
    out = tmp_path / os.fsdecode(b"caf\xe9.xdmf")
    zolfile.open(str(models["example"])).write_series("Static", out)
    assert sorted(p.name for p in tmp_path.iterdir()) == ["caf_.h5", out.name]
    series = read_series(out)
    assert [(t, sorted(data), name) for t, data, name in series] == [
        (0.0, ["Stress"], "Step 1 / Increment 10"), (1.0, ["Displacement", "Stress"], "Step 2")]


def test_failed_write_leaves_nothing(tmp_path):
    model = fake_model([list(range(1, 8))])  # a polygon, which Exodus can't hold
    (tmp_path / "kept.e").write_text("before")
    for out in ("new.e", "kept.e"):
        with pytest.raises(zolfile.MeshError, match="exodus: the format has no cell type "
                                                    "'polygon'"):
            zolfile.Model.convert(model, "A", tmp_path / out)
    assert [p.name for p in tmp_path.iterdir()] == ["kept.e"]
    assert (tmp_path / "kept.e").read_text() == "before"


@pytest.mark.parametrize("arguments, message", [
    (["out.e", "--cell-type", "8=polygon"], "can't write {out}/out.e as exodus: the format has no "
                                            "cell type 'polygon'"),
    (["out.vtu", "--cell-type", "8=tetra"], "a tetra has 4 nodes, not 8"),
    (["out.vtu", "--cell-type", "eight=hexahedron"], "bad cell type 'eight=hexahedron'"),
    (["out.vtu", "--all-instances"], "a time series is written as XDMF"),
    (["out.abc"], "no format for the extension '.abc'"),
    (["missing/out.vtu"], "can't write {out}/missing/out.vtu: No such file or directory"),
])
def test_command_line_refusals(models, tmp_path, arguments, message):
    arguments[0] = str(tmp_path / arguments[0])
    done = subprocess.run([sys.executable, "-m", "zolfile", "convert", str(models["example"]),
                           *arguments], env=ENV, capture_output=True, text=True)
    assert done.returncode == 1
    assert done.stderr.count("\n") == 1 and message.format(out=tmp_path) in done.stderr
    assert list(tmp_path.iterdir()) == []


def test_command_line_cell_types(models, tmp_path):
    out = tmp_path / "flat.vtu"
    subprocess.run([sys.executable, "-m", "zolfile", "convert", str(models["example"]),
                    str(out), "--cell-type", "8=polygon"], env=ENV, check=True)
    assert [c.type for c in meshio.read(out).cells] == ["polygon"]
    refused = subprocess.run([sys.executable, "-m", "zolfile", "report",
                              str(tmp_path / "none.zol")], env=ENV, capture_output=True)
    assert refused.returncode == 2 and refused.stderr.startswith(b"Exception: ")
