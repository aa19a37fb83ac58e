"""Zol model files in Python: facts, report, arrays as numpy, meshes for meshio, and an
xarray engine.

    import zolfile
    with zolfile.open("wheel.zol") as model:
        model.report()                 # [(name, value), ...] as ZolInfo reports them
        for array in model.arrays():   # values are read only when asked for
            array.shape, array.dtype, array[:10]
        model.to_meshio("Static").write("wheel.vtu")
        model.convert("Static", "wheel.vtk")            # names fit the format; all or nothing
        model.write_series("Transient", "wheel.xdmf")   # one time step per instance

    import xarray as xr
    xr.open_dataset("wheel.zol", engine="zol", group="Static/Wheel")
"""
from . import _zolfile
from .diff import diff
from .errors import Error
from .export import to_meshio, write
from .mesh import Mesh, MeshError, analyses, mesh
from .model import Array, Model, open
from .series import write_series

__version__ = _zolfile.version

# Model's own methods for what is written in Python.
Model.analyses = analyses
Model.mesh = mesh
Model.to_meshio = to_meshio
Model.convert = write
Model.write_series = write_series


def groups(model) -> list:
    """The "Analysis/Geometry" groups of the xarray engine, in the data dump's order."""
    from .dataset import group_names

    return group_names(model)


Model.groups = groups

__all__ = ["Array", "Error", "Mesh", "MeshError", "Model", "diff", "open", "__version__"]
