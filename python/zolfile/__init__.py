"""Zol model files in Python: facts, report, arrays as numpy, meshes for meshio.

    import zolfile
    model = zolfile.open("wheel.zol")
    model.report()                 # [(name, value), ...] as ZolInfo reports them
    for array in model.arrays():   # values are read only when asked for
        array.values()
    model.to_meshio("Static").write("wheel.vtu")
"""
from ._zolfile import Array, Error, Model, open
from .diff import diff
from .mesh import Mesh, MeshError, analyses, mesh, to_meshio

# Model's own methods for what is written in Python.
Model.analyses = analyses
Model.mesh = mesh
Model.to_meshio = to_meshio

__all__ = ["Array", "Error", "Mesh", "MeshError", "Model", "diff", "open"]
