"""Zol model files in Python: facts, report, arrays as numpy, meshes for meshio, and an
xarray engine.

    import zolfile
    with zolfile.open("wheel.zol") as model:
        model.report()                 # [(name, value), ...] as ZolInfo reports them
        for array in model.arrays():   # values are read only when asked for
            array.shape, array.dtype, array[:10]
        model.to_meshio("Static").write("wheel.vtu")

    import xarray as xr
    xr.open_dataset("wheel.zol", engine="zol", group="Static/Wheel")
"""
from . import _zolfile
from .errors import Error
from .mesh import Mesh, MeshError, analyses, mesh, to_meshio
from .model import Array, Model, open

__version__ = _zolfile.version

# Model's own methods for what is written in Python.
Model.analyses = analyses
Model.mesh = mesh
Model.to_meshio = to_meshio


def groups(model) -> list:
    """The "Analysis/Geometry" groups of the xarray engine, in the data dump's order."""
    from .dataset import group_names

    return group_names(model)


Model.groups = groups

__all__ = ["Array", "Error", "Mesh", "MeshError", "Model", "open", "__version__"]
