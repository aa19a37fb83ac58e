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


def coplanar(points, block, chunk=1 << 16):
    """Per element of the k x n block of point indices: whether all its nodes lie in the plane
    of its first face (3 nodes for n = 4 and 6, 4 for n = 8). An element whose first face has
    no area counts as a solid. Done in chunks, to bound the memory of the gathered nodes."""
    if len(block) > chunk:
        return np.concatenate([coplanar(points, block[at:at + chunk], chunk)
                               for at in range(0, len(block), chunk)])
    face = SOLID_OR_SHELL[block.shape[1]][2]
    corners = points[block].astype(np.float64)  # k x n x 3
    origin = corners[:, :1]
    # Newell's normal of the first face: exact for a triangle, the best plane for a quad.
    ring = corners[:, :face]
    following = np.roll(ring, -1, axis=1)
    normal = np.cross(ring, following).sum(axis=1)
    length = np.linalg.norm(normal, axis=1)
    extent = np.ptp(corners, axis=1).max(axis=1)
    scale = np.abs(corners).max(axis=(1, 2))
    distance = np.abs(np.einsum("knd,kd->kn", corners - origin, normal)).max(axis=1)
    tolerance = (PLANE_TOLERANCE * extent + 8 * np.finfo(np.float32).eps * scale) * length
    return (length > 0) & (distance <= tolerance)


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
