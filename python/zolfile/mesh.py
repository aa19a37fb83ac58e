"""The mesh of one analysis, made explicit for numpy and meshio.

Each Geometry of the analysis that has node ids and coordinates is one piece; the points of
the pieces follow one another. An element of length 1, 2, 3 or 4 is a vertex, a line, a
triangle or a quad, a longer one a polygon; runs of elements of one length make one cell
block, so the cells keep the order of the elements. Connectivity entries are node ids of the
piece. A result with q values per node is point data of q columns.
"""
import re
import warnings
from dataclasses import dataclass, field

import numpy as np

# The arrays that make the mesh rather than results on it.
MESH_ARRAYS = ("Node Ids", "Coordinates", "Connectivity", "Polylength")
CELL_TYPES = {1: "vertex", 2: "line", 3: "triangle", 4: "quad"}


class MeshError(ValueError):
    """The arrays of an analysis don't make a mesh."""


@dataclass
class Mesh:
    points: np.ndarray  # N x 3 float32
    node_ids: np.ndarray  # N int64
    cells: list = field(default_factory=list)  # (cell type, k x n indices into points)
    point_data: dict = field(default_factory=dict)  # name -> N x q


def analyses(model):
    """The analysis names, in the data dump's order."""
    names = {array.analysis for array in model.arrays()}
    return sorted(names, key=lambda name: name.encode("utf-8", "surrogateescape"))


def data_name(array):
    """Result and instance as one name; separators inside an instance become " / ", since
    XML formats such as VTU can't hold control characters."""
    name = f"{array.result} [{array.instance}]" if array.instance else array.result
    return re.sub(r"[\x00-\x1f]", " / ", name)


def _pieces(model, analysis):
    """Geometry name -> {array name: array} for the analysis, in order of appearance."""
    pieces = {}
    for array in model.arrays():
        if array.analysis != analysis:
            continue
        for geometry in array.element_sets:
            pieces.setdefault(geometry, {})[array.name if array.result in MESH_ARRAYS
                                            else data_name(array)] = array
    return pieces


def _resolve(node_ids, connectivity, lengths, geometry):
    """Indices into the piece's points for the connectivity entries; names a bad element."""
    order = np.argsort(node_ids, kind="stable")
    ordered = node_ids[order]
    entries = connectivity.astype(np.int64)
    found = np.searchsorted(ordered, entries)
    clipped = np.minimum(found, len(ordered) - 1) if len(ordered) else found
    good = (found < len(ordered)) & (ordered[clipped] == entries) if len(ordered) else \
        np.zeros(len(entries), dtype=bool)
    if not good.all():
        bad = int(np.argmin(good))
        element = int(np.searchsorted(np.cumsum(lengths, dtype=np.int64), bad, side="right"))
        raise MeshError(f"element {element} of {geometry!r} refers to node {entries[bad]}, "
                        f"which is none of its node ids")
    return order[found]


def _cells(lengths, indices, offset, geometry):
    """Cell blocks of the runs of equal length."""
    cells, start = [], 0
    bounds = np.flatnonzero(np.diff(lengths)) + 1
    for run in np.split(lengths, bounds):
        if len(run) == 0:
            continue
        n, count = int(run[0]), len(run)
        block = indices[start:start + n * count].reshape(count, n) + offset
        start += n * count
        if n == 0:
            warnings.warn(f"{count} elements of length 0 of {geometry!r} left out")
            continue
        cells.append((CELL_TYPES.get(n, "polygon"), block))
    return cells


def _flat(array):
    """The values in one row, whatever shape the array has."""
    return np.ravel(array.values())


def _piece(geometry, arrays, offset):
    ids = _flat(arrays["Node Ids"])
    count = len(ids)
    coordinates = _flat(arrays["Coordinates"])
    if len(coordinates) < 3 * count:
        raise MeshError(f"{geometry!r} has {count} nodes but {len(coordinates)} coordinates")
    node_ids = np.trunc(ids).astype(np.int64)
    piece = Mesh(coordinates[:3 * count].reshape(count, 3), node_ids)
    if "Polylength" in arrays and "Connectivity" in arrays:
        lengths = _flat(arrays["Polylength"]).astype(np.int64)
        connectivity = _flat(arrays["Connectivity"])
        if lengths.sum() > len(connectivity):
            raise MeshError(f"the elements of {geometry!r} need {lengths.sum()} node "
                            f"references, its connectivity holds {len(connectivity)}")
        used = connectivity[:int(lengths.sum())]
        indices = _resolve(node_ids, used, lengths, geometry)
        piece.cells = _cells(lengths, indices, offset, geometry)
    for name, array in arrays.items():
        if array.result in MESH_ARRAYS:
            continue
        values = _flat(array)
        if count == 0 or len(values) == 0 or len(values) % count:
            warnings.warn(f"{name!r} of {geometry!r} left out: {len(values)} values "
                          f"for {count} nodes")
            continue
        piece.point_data[name] = values.reshape(count, len(values) // count)
    return piece


def _join_point_data(pieces):
    """Point data that every piece has with the same columns."""
    joined = {}
    names = dict.fromkeys(name for piece in pieces for name in piece.point_data)
    for name in names:
        parts = [piece.point_data.get(name) for piece in pieces]
        if any(part is None for part in parts) or len({part.shape[1] for part in parts}) > 1:
            warnings.warn(f"{name!r} left out: not on every part with the same components")
            continue
        joined[name] = parts[0] if len(parts) == 1 else np.concatenate(parts)
    return joined


def mesh(model, analysis):
    """The mesh of the analysis, with its results as point data."""
    pieces, offset = [], 0
    for geometry, arrays in _pieces(model, analysis).items():
        if "Node Ids" not in arrays or "Coordinates" not in arrays:
            continue  # a geometry that only links to results, such as a cut section
        pieces.append(_piece(geometry, arrays, offset))
        offset += len(pieces[-1].node_ids)
    if not pieces:
        raise MeshError(f"analysis {analysis!r} has no nodes with coordinates")
    if len(pieces) == 1:
        return pieces[0]
    return Mesh(np.concatenate([p.points for p in pieces]),
                np.concatenate([p.node_ids for p in pieces]),
                [cell for p in pieces for cell in p.cells], _join_point_data(pieces))


def to_meshio(model, analysis):
    """The analysis as a meshio.Mesh."""
    import meshio

    explicit = mesh(model, analysis)
    return meshio.Mesh(explicit.points, explicit.cells, point_data=explicit.point_data)
