"""The explicit mesh: cell types, node id resolution, point data, and meshio/VTU output."""
import subprocess
import sys
from types import SimpleNamespace

import meshio
import numpy as np
import pytest

import zolfile
from conftest import run
from zolfile.mesh import MeshError, mesh


def fake_model(lengths, connectivity, results=()):
    """A model of one geometry with nodes 10, 20, 30, 50, 40 (ids need not be sorted) and the
    given elements."""
    def array(name, values):
        result, _, instance = name.partition("\x1e")
        return SimpleNamespace(analysis="A", geometry="G", name=name, result=result,
                               instance=instance, element_sets=["G"],
                               values=lambda: np.asarray(values))
    arrays = [array(*named) for named in [
        ("Node Ids", np.float32([10, 20, 30, 50, 40])), ("Coordinates", np.float32(range(15))),
        ("Polylength", np.uint32(lengths)), ("Connectivity", np.uint32(connectivity)), *results]]
    return SimpleNamespace(arrays=lambda: arrays)


# Cells by length in the elements' order, or the MeshError that names the bad element.
@pytest.mark.parametrize("lengths, connectivity, cells", [
    ([1, 2, 3, 4], [10, 10, 20, 10, 20, 30, 10, 20, 30, 40],
     [("vertex", [[0]]), ("line", [[0, 1]]), ("triangle", [[0, 1, 2]]),
      ("quad", [[0, 1, 2, 4]])]),
    ([3, 3, 5], [50, 40, 30, 30, 20, 10, 10, 20, 30, 40, 50],
     [("triangle", [[3, 4, 2], [2, 1, 0]]), ("polygon", [[0, 1, 2, 4, 3]])]),
    ([2, 3, 2], [10, 20, 20, 30, 40, 40, 50],
     [("line", [[0, 1]]), ("triangle", [[1, 2, 4]]), ("line", [[4, 3]])]),
    ([0, 2], [10, 20], [("line", [[0, 1]])]),  # elements of no nodes are left out
    ([2, 3], [10, 20, 30, 35, 40], "element 1 of 'G' refers to node 35"),
    ([1], [0], "element 0 of 'G' refers to node 0"),
    ([4], [10, 20], "need 4 node references"),
])
def test_cells(lengths, connectivity, cells):
    if isinstance(cells, str):
        with pytest.raises(MeshError, match=cells):
            mesh(fake_model(lengths, connectivity), "A")
        return
    made = mesh(fake_model(lengths, connectivity), "A")
    assert [(kind, block.tolist()) for kind, block in made.cells] == cells
    assert made.node_ids.tolist() == [10, 20, 30, 50, 40]


def test_point_data_by_components_and_left_out_lengths():
    results = [("Stress\x1eStep 1", np.float32(range(5))),
               ("Displacement\x1eStep 1", np.float32(range(15))),
               ("Element Ids", np.float32([1, 2]))]
    with pytest.warns(UserWarning, match="'Element Ids' of 'G' left out: 2 values for 5"):
        made = mesh(fake_model([2], [10, 20], results), "A")
    assert {k: v.shape for k, v in made.point_data.items()} == {
        "Stress [Step 1]": (5, 1), "Displacement [Step 1]": (5, 3)}


@pytest.mark.parametrize("name", ["example", "v07-parts", "v06-6comp"])
def test_vtu_reads_back(models, tmp_path, name):
    out = tmp_path / f"{name}.vtu"
    run([sys.executable, "-m", "zolfile"], "convert", models[name], out)
    model = zolfile.open(str(models[name]))
    made = model.mesh(model.analyses()[0])
    back = meshio.read(out)
    assert np.array_equal(back.points, made.points)
    # meshio joins neighbouring blocks of one type: compare cell by cell.
    assert [(c.type, row) for c in back.cells for row in c.data.tolist()] == \
        [(kind, row) for kind, block in made.cells for row in block.tolist()]
    assert set(back.point_data) == set(made.point_data)
    for key, values in made.point_data.items():
        assert np.array_equal(back.point_data[key].reshape(values.shape), values)


def test_command_line_failures(models, tmp_path):
    def run(*args):
        return subprocess.run([sys.executable, "-m", "zolfile", *map(str, args)],
                              capture_output=True, text=True)
    refused = run("report", tmp_path / "none.zol")
    assert refused.returncode == 2 and refused.stderr.startswith("Exception: ")
    missing = run("convert", models["example"], tmp_path / "x.vtu", "--analysis", "Nope")
    assert missing.returncode == 1 and "no analysis 'Nope'" in missing.stderr
