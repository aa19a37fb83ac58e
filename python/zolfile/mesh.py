"""The mesh of one analysis, made explicit for numpy and meshio.

Each Geometry of the analysis that has node ids and coordinates is one piece, an element set;
the points of the pieces follow one another. Elements get their cell type from their node
count and geometry (celltypes.py); runs of elements of one type make one cell block, so the
cells keep the order of the elements. Connectivity entries are node ids of the piece. A result
with q values per node is point data of q columns, one with q values per element cell data;
element ids and the element set of each cell are cell data too.
"""
import re
import warnings
from dataclasses import dataclass, field

import numpy as np

from . import celltypes

# The arrays that make the mesh rather than results on it.
MESH_ARRAYS = ("Node Ids", "Coordinates", "Connectivity", "Polylength")
# One value per element that numbers it: integer cell data.
ELEMENT_NUMBERS = ("Element Ids", "Element IDs", "Element Indices")
ELEMENT_SET = "Element Set"


class MeshError(ValueError):
    """The arrays of an analysis don't make a mesh, or the mesh can't be written."""


@dataclass
class Mesh:
    points: np.ndarray  # N x 3 float32
    node_ids: np.ndarray  # N int64
    cells: list = field(default_factory=list)  # (cell type, k x n indices into points)
    point_data: dict = field(default_factory=dict)  # name -> N x q
    cell_data: dict = field(default_factory=dict)  # name -> [k x q of each cell block]
    element_sets: list = field(default_factory=list)  # Geometry names, by "Element Set"
    origins: dict = field(default_factory=dict)  # data name -> (result, instance)


def flat(array):
    """An array's values as one flat run, whatever shape the extension hands out."""
    return np.asarray(array.values()).reshape(-1)


def analyses(model):
    """The analysis names, in the data dump's order."""
    names = {array.analysis for array in model.arrays()}
    return sorted(names, key=lambda name: name.encode("utf-8", "surrogateescape"))


def readable(text):
    """Separators and other control bytes become " / ", since XML formats such as VTU can't
    hold them."""
    return re.sub(r"[\x00-\x1f]+", " / ", text)


def data_name(array):
    """Result and instance as one name."""
    name = f"{array.result} [{array.instance}]" if array.instance else array.result
    return readable(name)


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


def _lookup(node_ids, entries):
    """Index of each entry among node_ids (the first of equal ids), -1 where it is none."""
    count = len(node_ids)
    if count == 0:
        return np.full(len(entries), -1, dtype=np.int64)
    low, high = int(node_ids.min()), int(node_ids.max())
    if entries.dtype.kind not in "iu":
        entries = entries.astype(np.int64)
    if high - low == count - 1 and len(entries) and np.all(np.diff(node_ids) == 1):
        # Ids counted from low on, the most common numbering: an id's index is its offset.
        if int(entries.min()) >= low and int(entries.max()) <= high:
            return entries.astype(np.int64) - low
    if 0 <= low and high <= 4 * count + 1024:
        # Ids are nearly always dense: a table by id beats a search of every entry.
        table = np.full(high + 2, -1, dtype=np.int64)  # the last place: any id above high
        table[node_ids[::-1]] = np.arange(count - 1, -1, -1)
        places = np.minimum(entries, high + 1)
        if places.dtype.kind == "i":
            places[places < 0] = high + 1
        return table[places]
    order = np.argsort(node_ids, kind="stable")
    ordered = node_ids[order]
    entries = entries.astype(np.int64)
    found = np.minimum(np.searchsorted(ordered, entries), count - 1)
    return np.where(ordered[found] == entries, order[found], -1)


def _resolve(node_ids, connectivity, lengths, geometry):
    """Indices into the piece's points for the connectivity entries; names a bad element."""
    indices = _lookup(node_ids, connectivity)
    missing = indices < 0
    if missing.any():
        bad = int(np.argmax(missing))
        element = int(np.searchsorted(np.cumsum(lengths, dtype=np.int64), bad, side="right"))
        raise MeshError(f"element {element} of {geometry!r} refers to node {connectivity[bad]}, "
                        f"which is none of its node ids")
    return indices


def _cells(points, lengths, indices, geometry, overrides):
    """(cell type, k x n indices, slice of the elements) in the elements' order."""
    cells, at = [], 0
    bounds = [0, *(np.flatnonzero(np.diff(lengths)) + 1), len(lengths)]
    for first, stop in zip(bounds[:-1], bounds[1:]):
        n, count = int(lengths[first]), stop - first
        block = indices[at:at + n * count].reshape(count, n)
        at += n * count
        if n == 0:
            warnings.warn(f"{count} elements of length 0 of {geometry!r} left out")
            continue
        for kind, rows in celltypes.block_types(points, block, overrides):
            cells.append((kind, block[rows], slice(first + rows.start, first + rows.stop)))
    return cells


def _data(piece, name, array, values, nodes, elements, runs):
    """Puts a result where its length says: per node, or per element."""
    if array.result in ELEMENT_NUMBERS and not array.instance and len(values) == elements:
        numbers = np.trunc(values).astype(np.int64)
        piece.cell_data[name] = [numbers[rows] for rows in runs]
    elif nodes and len(values) and len(values) % nodes == 0:
        piece.point_data[name] = values.reshape(nodes, len(values) // nodes)
    elif elements and len(values) and len(values) % elements == 0:
        columns = values.reshape(elements, len(values) // elements)
        piece.cell_data[name] = [columns[rows] for rows in runs]
    else:
        warnings.warn(f"{name!r} of {piece.element_sets[0]!r} left out: {len(values)} values "
                      f"for {nodes} nodes and {elements} elements")
        return
    piece.origins[name] = (readable(array.result), readable(array.instance))


def _piece(geometry, arrays, overrides):
    ids = flat(arrays["Node Ids"])
    count = len(ids)
    coordinates = flat(arrays["Coordinates"])
    if len(coordinates) < 3 * count:
        raise MeshError(f"{geometry!r} has {count} nodes but {len(coordinates)} coordinates")
    node_ids = np.trunc(ids).astype(np.int64)
    piece = Mesh(coordinates[:3 * count].reshape(count, 3), node_ids, element_sets=[geometry])
    elements, runs = 0, []
    if "Polylength" in arrays and "Connectivity" in arrays:
        lengths = flat(arrays["Polylength"]).astype(np.int64)
        connectivity = flat(arrays["Connectivity"])
        if lengths.sum() > len(connectivity):
            raise MeshError(f"the elements of {geometry!r} need {lengths.sum()} node "
                            f"references, its connectivity holds {len(connectivity)}")
        used = connectivity[:int(lengths.sum())]
        indices = _resolve(node_ids, used, lengths, geometry)
        cells = _cells(piece.points, lengths, indices, geometry, overrides)
        piece.cells = [(kind, block) for kind, block, _ in cells]
        elements, runs = len(lengths), [rows for _, _, rows in cells]
    for name, array in arrays.items():
        if array.result not in MESH_ARRAYS:
            _data(piece, name, array, flat(array), count, elements, runs)
    return piece


def _join(parts, what):
    """Data that every piece has with the same columns, joined piece after piece."""
    joined = {}
    for name in dict.fromkeys(name for part in parts for name in part):
        found = [part.get(name) for part in parts]
        columns = {block.shape[1:] for blocks in found if blocks is not None
                   for block in (blocks if isinstance(blocks, list) else [blocks])}
        if any(blocks is None for blocks in found) or len(columns) > 1:
            warnings.warn(f"{name!r} left out: not on every part with the same components")
            continue
        joined[name] = [b for blocks in found for b in blocks] if what == "cell" else \
            found[0] if len(found) == 1 else np.concatenate(found)
    return joined


def mesh(model, analysis, cell_types=None):
    """The mesh of the analysis, with its results as point and cell data. cell_types maps a
    node count to the meshio cell type of every element of that many nodes."""
    overrides = dict(cell_types or {})
    celltypes.check_overrides(overrides)
    pieces, offset = [], 0
    for geometry, arrays in _pieces(model, analysis).items():
        if "Node Ids" not in arrays or "Coordinates" not in arrays:
            continue  # a geometry that only links to results, such as a cut section
        piece = _piece(geometry, arrays, overrides)
        piece.cells = [(kind, block + offset) for kind, block in piece.cells]
        piece.cell_data[ELEMENT_SET] = [np.full(len(block), len(pieces), dtype=np.int32)
                                        for _, block in piece.cells]
        pieces.append(piece)
        offset += len(piece.node_ids)
    if not pieces:
        raise MeshError(f"analysis {analysis!r} has no nodes with coordinates")
    if len(pieces) == 1:
        return pieces[0]
    joined = Mesh(np.concatenate([p.points for p in pieces]),
                  np.concatenate([p.node_ids for p in pieces]),
                  [cell for p in pieces for cell in p.cells],
                  _join([p.point_data for p in pieces], "point"),
                  _join([p.cell_data for p in pieces], "cell"),
                  [p.element_sets[0] for p in pieces])
    joined.origins = {name: origin for p in pieces for name, origin in p.origins.items()
                      if name in joined.point_data or name in joined.cell_data}
    return joined
