"""Zol model files in Python: facts, report, arrays as numpy, meshes for meshio.

    import zolfile
    model = zolfile.open("wheel.zol")
    model.report()                 # [(name, value), ...] as ZolInfo reports them
    for array in model.arrays():   # values are read only when asked for
        array.values()
    model.to_meshio("Static").write("wheel.vtu")
    model.convert("Static", "wheel.vtk")            # names fit the format; all or nothing
    model.write_series("Transient", "wheel.xdmf")   # one time step per instance
"""
import os

from . import _zolfile
from ._zolfile import Array, Error, Model
from .diff import diff
from .export import to_meshio, write
from .mesh import Mesh, MeshError, analyses, mesh
from .series import write_series

# Model's own methods for what is written in Python.
Model.analyses = analyses
Model.mesh = mesh
Model.to_meshio = to_meshio
Model.convert = write
Model.write_series = write_series


def open(path):
    """Loads the model at path (str, bytes or os.PathLike); a file that can't be loaded raises
    zolfile.Error."""
    # The library takes the path's bytes as they are, so that any name the system allows opens.
    return _zolfile.open(os.fsencode(path))


__all__ = ["Array", "Error", "Mesh", "MeshError", "Model", "diff", "open"]
