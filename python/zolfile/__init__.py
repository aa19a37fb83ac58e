"""Zol model files in Python: facts, report, arrays as numpy, meshes for meshio.

    import zolfile
    model = zolfile.open("wheel.zol")
    model.report()                 # [(name, value), ...] as ZolInfo reports them
    for array in model.arrays():   # values are read only when asked for
        array.values()
    model.to_meshio("Static").write("wheel.vtu")
"""
import os

from . import _zolfile
from ._zolfile import Array, Error, Model
from .mesh import Mesh, MeshError, analyses, mesh, to_meshio

# Model's own methods for what is written in Python.
Model.analyses = analyses
Model.mesh = mesh
Model.to_meshio = to_meshio


def open(path):
    """Loads the model at path (str, bytes or os.PathLike); a file that can't be loaded raises
    zolfile.Error."""
    # The library takes the path's bytes as they are, so that any name the system allows opens.
    return _zolfile.open(os.fsencode(path))


__all__ = ["Array", "Error", "Mesh", "MeshError", "Model", "open"]
