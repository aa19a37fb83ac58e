"""The explicit mesh: cell types from node counts and geometry, node id resolution, point and
cell data, and the node order of the example and generated meshes."""
from types import SimpleNamespace

import numpy as np
import pytest

import zolfile
from zolfile.mesh import MeshError, mesh

# Unit cube corners in VTK's hexahedron order (ids 1 to 8), the bottom face's edge midpoints
# (9 to 12) and an apex above the bottom face (13).
POINTS = {1: (0, 0, 0), 2: (1, 0, 0), 3: (1, 1, 0), 4: (0, 1, 0), 5: (0, 0, 1), 6: (1, 0, 1),
          7: (1, 1, 1), 8: (0, 1, 1), 9: (.5, 0, 0), 10: (1, .5, 0), 11: (.5, 1, 0),
          12: (0, .5, 0), 13: (.5, .5, 1)}


def fake_model(elements, results=(), points=POINTS):
    """A model of one geometry with the given elements (lists of node ids) and results."""
    def array(name, values):
        result, _, instance = name.partition("\x1e")
        return SimpleNamespace(analysis="A", geometry="G", name=name, result=result,
                               instance=instance, element_sets=["G"],
                               values=lambda: np.asarray(values))
    ids = list(points)
    arrays = [array(*named) for named in [
        ("Node Ids", np.float32(ids)), ("Coordinates", np.float32([points[i] for i in ids])),
        ("Polylength", np.uint32([len(e) for e in elements])),
        ("Connectivity", np.uint32([i for e in elements for i in e])), *results]]
    return SimpleNamespace(arrays=lambda: arrays)


def hexahedron_volumes(points, block):
    """Six times each volume, as VTK reckons it: six tetrahedra around the diagonal 0-6."""
    p = points[block].astype(np.float64)
    ring = [1, 2, 3, 7, 4, 5, 1]
    return sum(np.einsum("ij,ij->i", np.cross(p[:, a] - p[:, 0], p[:, b] - p[:, 0]),
                         p[:, 6] - p[:, 0]) for a, b in zip(ring, ring[1:]))


CUBE, BOTTOM = [1, 2, 3, 4, 5, 6, 7, 8], [1, 2, 3, 4]


# Elements -> cell blocks in the elements' order, with a caller's overrides.
@pytest.mark.parametrize("elements, overrides, blocks", [
    ([[1], [1, 2], [1, 2, 3]], {}, [("vertex", 1), ("line", 1), ("triangle", 1)]),
    ([BOTTOM, [1, 2, 3, 5], [1, 2, 4, 8], BOTTOM], {},
     [("quad", 1), ("tetra", 2), ("quad", 1)]),
    ([BOTTOM + [13], [1, 2, 3, 5, 6, 7], [1, 2, 3, 9, 10, 11]], {},
     [("pyramid", 1), ("wedge", 1), ("triangle6", 1)]),
    ([CUBE, BOTTOM + [9, 10, 11, 12], CUBE], {},
     [("hexahedron", 1), ("quad8", 1), ("hexahedron", 1)]),
    ([list(range(1, 11)), list(range(1, 13)) + CUBE, list(range(1, 8)), list(range(1, 10))],
     {}, [("tetra10", 1), ("hexahedron20", 1), ("polygon", 1), ("polygon", 1)]),
    ([[1, 1, 1, 5]], {}, [("tetra", 1)]),  # a first face without area is no plane
    ([BOTTOM, [1, 2, 3, 5]], {4: "quad"}, [("quad", 2)]),
    ([CUBE, CUBE], {8: "polygon"}, [("polygon", 2)]),
])
def test_cell_types(elements, overrides, blocks):
    made = mesh(fake_model(elements), "A", overrides)
    assert [(kind, len(block)) for kind, block in made.cells] == blocks
    rows = [row for _, block in made.cells for row in block.tolist()]
    assert rows == [[i - 1 for i in element] for element in elements]


@pytest.mark.parametrize("elements, overrides, error", [
    ([[1, 2], [1, 35]], {}, "element 1 of 'G' refers to node 35"),
    ([[0]], {}, "element 0 of 'G' refers to node 0"),
    ([CUBE], {8: "tetra"}, "a tetra has 4 nodes, not 8"),
    ([CUBE], {8: "cube"}, "unknown cell type 'cube'"),
])
def test_refused(elements, overrides, error):
    with pytest.raises((MeshError, ValueError), match=error):
        mesh(fake_model(elements), "A", overrides)


def test_lookup_of_sparse_and_unsorted_ids():
    # Ids far apart take the sorted search instead of the table.
    points = {7_000_000: (0, 0, 0), 3: (1, 0, 0), 90_000: (0, 1, 0)}
    made = mesh(fake_model([[90_000, 3, 7_000_000]], points=points), "A")
    assert made.cells[0][1].tolist() == [[2, 1, 0]]
    with pytest.raises(MeshError, match="refers to node 4"):
        mesh(fake_model([[3, 4, 90_000]], points=points), "A")


def test_data_by_length():
    # Five nodes, two elements: per node, per element, element ids, and a length of neither.
    results = [("Stress\x1eStep 1", np.float32(range(5))),
               ("Displacement\x1eStep 1", np.float32(range(15))),
               ("Element Ids", np.float32([101.0, 102.9])),
               ("Strain\x1eStep 1", np.float32(range(12))),
               ("Odd\x1eStep 1", np.float32(range(7)))]
    points = {i: POINTS[i] for i in range(1, 6)}
    with pytest.warns(UserWarning, match="'Odd \\[Step 1\\]' of 'G' left out: 7 values"):
        made = mesh(fake_model([[1, 2, 3], [1, 2, 3, 5, 4]], results, points), "A")
    assert {k: v.shape for k, v in made.point_data.items()} == {
        "Stress [Step 1]": (5, 1), "Displacement [Step 1]": (5, 3)}
    assert [b.tolist() for b in made.cell_data["Element Ids"]] == [[101], [102]]
    assert [b.shape for b in made.cell_data["Strain [Step 1]"]] == [(1, 6), (1, 6)]
    assert [b.tolist() for b in made.cell_data["Element Set"]] == [[0], [0]]
    assert made.origins["Displacement [Step 1]"] == ("Displacement", "Step 1")


@pytest.mark.parametrize("name", ["example", "cast-wheel", "plain-1part", "v07-parts",
                                  "packed-3comp"])
def test_hexahedra_have_positive_volumes(mesh_models, name):
    model = zolfile.open(str(mesh_models[name]))
    for analysis in model.analyses():
        made = model.mesh(analysis)
        hexahedra = [block for kind, block in made.cells if kind == "hexahedron"]
        assert hexahedra and all(kind == "hexahedron" for kind, _ in made.cells)
        assert min(hexahedron_volumes(made.points, block).min() for block in hexahedra) > 0


def test_pieces_are_element_sets(mesh_models):
    model = zolfile.open(str(mesh_models["cast-wheel"]))
    made = model.mesh("Static")
    assert made.element_sets == ["Hub", "Web", "Rim"]
    sets = np.concatenate(made.cell_data["Element Set"])
    ids = np.concatenate(made.cell_data["Element Ids"])
    assert len(ids) >= 10_000 and len(np.unique(ids)) == len(ids)
    assert np.array_equal(np.unique(sets), [0, 1, 2]) and np.all(np.diff(sets) >= 0)
