"""Meshes to meshio and into files: names each format can hold, and writes that leave either
the whole file or nothing."""
import os
import re
import shutil
import tempfile
import unicodedata
from pathlib import Path

import numpy as np

from .mesh import MeshError, mesh

# Where meshio's first guess by extension is not what most people mean: ".msh" is Gmsh's, in
# its version 2.2, which needs no entity table for a mesh of several cell types.
BY_EXTENSION = {".msh": "gmsh22"}
# Characters a format can't hold in a field name; each becomes "_".
FORBIDDEN = {
    "vtu": '"<>&',  # meshio writes names into XML attributes unescaped
    "vtk": " \t",  # the legacy header is split at blanks
    "med": "/",  # names are HDF5 paths
    "gmsh": '"',  # names stand between double quotes
    "gmsh22": '"',
}
# Formats that hold one block per cell type (MED), or whose reader in meshio counts the cell
# data of a type as one (Gmsh).
JOINED_BY_TYPE = ("med", "gmsh", "gmsh22")
# Longest name a format holds, in ASCII.
ASCII_LENGTH = {"exodus": 32}


def format_of(path, file_format=None):
    """meshio's format name for the path, or the one asked for."""
    if file_format:
        return file_format
    import meshio._helpers

    suffix = "".join(Path(path).suffixes[-2:]).lower()
    for ext in (suffix, Path(path).suffix.lower()):
        if ext in BY_EXTENSION:
            return BY_EXTENSION[ext]
        if ext in meshio._helpers.extension_to_filetypes:
            return meshio._helpers.extension_to_filetypes[ext][0]
    raise MeshError(f"{path}: no format for the extension {Path(path).suffix!r}; meshio "
                    f"writes {', '.join(sorted(meshio._helpers.extension_to_filetypes))}")


def clean_name(name, file_format):
    """The name as the format can hold it."""
    name = name.encode("utf-8", "surrogateescape").decode("utf-8", "replace")
    if file_format in FORBIDDEN:
        name = re.sub(f"[{re.escape(FORBIDDEN[file_format])}]", "_", name)
    if file_format in ASCII_LENGTH:
        ascii_name = unicodedata.normalize("NFKD", name).encode("ascii", "ignore").decode()
        name = ascii_name[:ASCII_LENGTH[file_format]]
    return name


def clean_names(names, file_format):
    """Old name -> a distinct name that the format holds."""
    cleaned, taken = {}, set()
    for name in names:
        new = base = clean_name(name, file_format)
        number = 1
        while new in taken:
            number += 1
            tail = f"~{number}"
            new = base[:ASCII_LENGTH[file_format] - len(tail)] + tail \
                if file_format in ASCII_LENGTH else base + tail
        cleaned[name] = new
        taken.add(new)
    return cleaned


def physical_tags(cell_data):
    """Gmsh keeps element sets as physical and geometrical tags, counted from 1."""
    sets = cell_data.get("Element Set", [])
    return {"gmsh:physical": [s + 1 for s in sets], "gmsh:geometrical": [s + 1 for s in sets]}


# A symmetric tensor's six components (xx, yy, zz, xy, yz, xz, ParaView's order) as nine.
FULL_TENSOR = [0, 3, 5, 3, 1, 4, 5, 4, 2]


def gmsh_fields(data):
    """Gmsh holds fields of 1, 3 or 9 components: six become the full tensor, two a vector
    with z = 0, any other count a scalar field per component."""
    fitted = {}
    for name, values in data.items():
        blocks = values if isinstance(values, list) else [values]
        columns = blocks[0].shape[1] if blocks and blocks[0].ndim == 2 else 1
        if columns == 6:
            blocks = [block[:, FULL_TENSOR] for block in blocks]
        elif columns == 2:
            blocks = [np.pad(block, ((0, 0), (0, 1))) for block in blocks]
        elif columns not in (1, 3, 9):
            for c in range(columns):
                column = [block[:, c] for block in blocks]
                fitted[f"{name} {c + 1}"] = column if isinstance(values, list) else column[0]
            continue
        fitted[name] = blocks if isinstance(values, list) else blocks[0]
    return fitted


def by_type(cells, cell_data):
    """One block per cell type: blocks of a type join in their order, with their cell data."""
    kinds = list(dict.fromkeys(kind for kind, _ in cells))
    members = {kind: [i for i, (k, _) in enumerate(cells) if k == kind] for kind in kinds}
    joined = [(kind, np.concatenate([cells[i][1] for i in members[kind]])) for kind in kinds]
    data = {name: [np.concatenate([blocks[i] for i in members[kind]]) for kind in kinds]
            for name, blocks in cell_data.items()}
    return joined, data


def to_meshio(model, analysis, cell_types=None, file_format=None):
    """The analysis as a meshio.Mesh; field names fit file_format (a meshio format name or an
    output path) when it is given."""
    import meshio

    explicit = mesh(model, analysis, cell_types)
    points, cells = explicit.points, explicit.cells
    point_data, cell_data = explicit.point_data, explicit.cell_data
    if file_format is not None:
        file_format = format_of(file_format) if os.sep in str(file_format) or \
            "." in str(file_format) else file_format
        names = clean_names([*point_data, *cell_data], file_format)
        point_data = {names[k]: v for k, v in point_data.items()}
        cell_data = {names[k]: v for k, v in cell_data.items()}
        if file_format.startswith("gmsh"):
            point_data, cell_data = gmsh_fields(point_data), gmsh_fields(cell_data)
            cell_data.update(physical_tags(explicit.cell_data))
            points = points.astype(np.float64)  # binary Gmsh has double coordinates only
        if file_format in JOINED_BY_TYPE:
            cells, cell_data = by_type(cells, cell_data)
    return meshio.Mesh(points, cells, point_data=point_data, cell_data=cell_data)


def writer_failure(path, file_format, error):
    """One line that says why the writer gave up."""
    from meshio._common import num_nodes_per_cell

    kind = error.args[0] if isinstance(error, KeyError) and error.args else None
    if kind == "polygon" or kind in num_nodes_per_cell:
        what = f"the format has no cell type {kind!r} (choose another with --cell-type " \
               f"N=TYPE, or cell_types= in Python)"
    else:
        what = f"{type(error).__name__}: {error}".rstrip(": ")
    return MeshError(f"can't write {path} as {file_format}: {what}")


def replace_from(folder, written, target):
    """Moves what the writer made in folder next to target: the file it was asked for under
    target's name, last; side files under their own."""
    made = sorted(folder.iterdir(), key=lambda p: p == written)
    for path in made:
        os.replace(path, target if path == written else target.parent / path.name)


def write_through(path, write):
    """Calls write(temporary path) in a folder beside path, then moves what it made into
    place: a failed write leaves no file, and side files (XDMF's .h5) keep their names. The
    temporary name is valid UTF-8, since side files are named inside the file after it."""
    target = Path(path)
    try:
        folder = Path(tempfile.mkdtemp(prefix=".zolfile-", dir=target.parent))
    except OSError as error:
        raise MeshError(f"can't write {path}: {error.strerror}") from error
    written = folder / target.name.encode("utf-8", "surrogateescape").decode(
        "utf-8", "replace").replace("\ufffd", "_")
    try:
        write(written)
        replace_from(folder, written, target)
    except OSError as error:
        raise MeshError(f"can't write {path}: {error.strerror or error}") from error
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def write(model, analysis, path, cell_types=None, file_format=None, **options):
    """Writes the analysis in the format of the path's extension (or file_format); options go
    to meshio's writer (compression=None for VTU, say)."""
    file_format = format_of(path, file_format)
    converted = to_meshio(model, analysis, cell_types, file_format)

    def attempt(temporary):
        try:
            converted.write(temporary, file_format=file_format, **options)
        except (Exception, SystemExit) as error:  # meshio reports some failures by exit
            raise writer_failure(path, file_format, error) from error

    write_through(path, attempt)
