"""Cell types of elements that are only a node count and node references.

The count says most: 2 line, 3 triangle, 5 pyramid, 10 tetra10, 20 hexahedron20. For 4, 6
and 8 nodes the geometry decides between a solid and a shell: a tetra, wedge or hexahedron
unless all its nodes lie in one plane, which makes it a quad, triangle6 or quad8. Any other
count is a polygon. A caller's table by node count overrides all of this.
"""
import numpy as np

BY_COUNT = {1: "vertex", 2: "line", 3: "triangle", 5: "pyramid", 10: "tetra10",
            20: "hexahedron20"}
# Node count -> (solid, the same nodes in one plane, nodes of the first face).
SOLID_OR_SHELL = {4: ("tetra", "quad", 3), 6: ("wedge", "triangle6", 3),
                  8: ("hexahedron", "quad8", 4)}
# Nodes this close to the first face's plane, relative to the element's size, are in it:
# what float32 coordinates keep of a plane, well below the flattest real solid.
PLANE_TOLERANCE = 1e-5


def parse_overrides(texts):
    """{count: type} from "N=TYPE" texts; ValueError names a bad one."""
    overrides = {}
    for text in texts:
        count, _, kind = text.partition("=")
        if not count.strip().isdigit():
            raise ValueError(f"bad cell type {text!r}: want N=TYPE, such as 4=tetra")
        overrides[int(count)] = kind
    check_overrides(overrides)
    return overrides


def check_overrides(overrides):
    """ValueError for a type meshio doesn't know or one of another node count."""
    from meshio._common import num_nodes_per_cell

    for count, kind in overrides.items():
        if kind != "polygon" and kind not in num_nodes_per_cell:
            raise ValueError(f"unknown cell type {kind!r} for {count} nodes: meshio's types "
                             f"are such as tetra, quad8, hexahedron, polygon")
        if num_nodes_per_cell.get(kind, count) != count:
            raise ValueError(f"a {kind} has {num_nodes_per_cell[kind]} nodes, not {count}")


def coplanar(points, block, chunk=1 << 15):
    """Per element of the k x n block of point indices: whether all its nodes lie in the plane
    of its first face (3 nodes for n = 4 and 6, 4 for n = 8), within PLANE_TOLERANCE of the
    face's size. A first face without area makes a solid. Goes a node at a time and stops at
    the first node off the plane in every element, so that a mesh of solids costs its first
    face and one node more; in chunks that keep the temporaries in the cache."""
    axes = [points[:, axis].astype(np.float64) for axis in range(3)]
    return np.concatenate([_coplanar(axes, block[at:at + chunk])
                           for at in range(0, len(block), chunk)] or [np.zeros(0, bool)])


def _coplanar(axes, block):
    face = SOLID_OR_SHELL[block.shape[1]][2]

    def node(j):
        return [axis[block[:, j]] for axis in axes]

    first = [node(j) for j in range(face)]
    # Two edges of a triangle, or the diagonals of a quad: their cross product is the normal
    # of the quad's best plane.
    a, b, c = first[0], first[1], first[2]
    d = first[3] if face == 4 else a
    u = [c[i] - a[i] for i in range(3)] if face == 4 else [b[i] - a[i] for i in range(3)]
    v = [d[i] - b[i] for i in range(3)] if face == 4 else [c[i] - a[i] for i in range(3)]
    normal = [u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]]
    length = np.sqrt(normal[0] ** 2 + normal[1] ** 2 + normal[2] ** 2)
    size = np.maximum.reduce([np.abs(w) for w in u + v])
    scale = np.maximum.reduce([np.abs(w) for w in a])
    tolerance = (PLANE_TOLERANCE * size + 8 * np.finfo(np.float32).eps * scale) * length
    flat = length > 0
    for j in range(face, block.shape[1]):
        if not flat.any():
            break
        p = node(j)
        distance = sum((p[i] - a[i]) * normal[i] for i in range(3))
        flat &= np.abs(distance) <= tolerance
    return flat


def block_types(points, block, overrides):
    """The cell type of each row of a k x n block, as a list of (type, rows) runs in order."""
    n = block.shape[1]
    if n in overrides:
        return [(overrides[n], slice(0, len(block)))]
    if n not in SOLID_OR_SHELL:
        return [(BY_COUNT.get(n, "polygon"), slice(0, len(block)))]
    solid, shell, _ = SOLID_OR_SHELL[n]
    flat = coplanar(points, block)
    bounds = [0, *(np.flatnonzero(np.diff(flat)) + 1), len(block)]
    return [(shell if flat[start] else solid, slice(start, stop))
            for start, stop in zip(bounds[:-1], bounds[1:])]
