"""The xarray engine "zol": xr.open_dataset(path, engine="zol", group="Analysis/Geometry").

Variables are lazy: nothing of their values is read at open time, and a selection decodes
only the items it covers. With chunks={} (as open_mfdataset asks) each chunk is one array of
the file, whose payload lies in one block, so a chunk unpacks one block. The model is opened
through xarray's CachingFileManager: datasets pickle by path, and a Dask worker process opens
the file itself.
"""
import os

import numpy as np
from xarray import Dataset, Variable
from xarray.backends import BackendArray, BackendEntrypoint, CachingFileManager
from xarray.core import indexing

from . import model as _model
from .dataset import layout
from .errors import Error
from .records import MAGIC


class ZolBackendArray(BackendArray):
    """One variable: one array of the model, or its instances stacked on the first axis."""

    def __init__(self, manager, variable, shape, dtype):
        self.manager, self.indices = manager, variable.indices
        self.stacked, self.ids = variable.stacked, variable.ids
        self.shape, self.dtype = shape, dtype

    def __getitem__(self, key):
        return indexing.explicit_indexing_adapter(
            key, self.shape, indexing.IndexingSupport.BASIC, self._read)

    def _read(self, key):
        try:
            values = self._select(self.manager.acquire().arrays(), key)
        except ValueError as error:
            if "closed" not in str(error):
                raise
            # The file cache closed the model while this thread read it: open it again.
            values = self._select(self.manager.acquire().arrays(), key)
        return values.astype(np.int64) if self.ids else values

    def _select(self, arrays, key):
        if not self.stacked:
            return np.asarray(arrays[self.indices[0]][key])
        picked, rest = range(len(self.indices))[key[0]], key[1:]
        if isinstance(picked, int):
            return np.asarray(arrays[self.indices[picked]][rest])
        parts = [arrays[self.indices[i]][rest] for i in picked]
        if parts:
            return np.stack(parts)
        return np.empty((0,) + np.empty(self.shape[1:])[rest].shape, self.dtype)


def _open(path, mode=None):
    # The file manager passes a mode once it has been pickled; models are read-only.
    return _model.open(path)


def open_zol_dataset(path, group=None, drop_variables=None):
    """The Dataset of one "Analysis/Geometry" group (the first when None)."""
    manager = CachingFileManager(_open, path)
    try:
        model = manager.acquire()
        made = layout(model, group)
        arrays = model.arrays()
        variables, coords = {}, {}
        for dim, names in made.coords.items():
            coords[dim] = Variable(dim, np.array(names, dtype=object))
        for variable in made.variables:
            if drop_variables and variable.name in drop_variables:
                continue
            first = arrays[variable.indices[0]]
            shape = tuple(made.sizes[dim] for dim in variable.dims)
            dtype = np.dtype(np.int64) if variable.ids else first.dtype
            data = indexing.LazilyIndexedArray(ZolBackendArray(manager, variable, shape, dtype))
            encoding = {"preferred_chunks": {dim: 1 if variable.stacked and n == 0 else size
                                             for n, (dim, size) in
                                             enumerate(zip(variable.dims, shape))}}
            target = coords if variable.ids else variables
            target[variable.name] = Variable(variable.dims, data, encoding=encoding)
        attrs = {"analysis": made.analysis, "geometry": made.geometry,
                 "zol_version": model.version, "source": model.path}
    except BaseException:
        manager.close()
        raise
    dataset = Dataset(variables, coords=coords, attrs=attrs)
    dataset.set_close(manager.close)
    return dataset


class ZolBackendEntrypoint(BackendEntrypoint):
    """xarray's engine "zol" for Zol model files; groups are "Analysis/Geometry"."""

    description = "Zol model files, through zolfile"
    open_dataset_parameters = ("filename_or_obj", "drop_variables", "group")

    def open_dataset(self, filename_or_obj, *, drop_variables=None, group=None):
        if not isinstance(filename_or_obj, (str, bytes, os.PathLike)):
            raise TypeError("the zol engine opens files by path only")
        return open_zol_dataset(filename_or_obj, group, drop_variables)

    def guess_can_open(self, filename_or_obj):
        if not isinstance(filename_or_obj, (str, bytes, os.PathLike)):
            return False
        if os.fsdecode(filename_or_obj).endswith(".zol"):
            return True
        try:
            with open(filename_or_obj, "rb") as f:
                return f.read(len(MAGIC)) == MAGIC
        except OSError:
            return False


__all__ = ["Error", "ZolBackendArray", "ZolBackendEntrypoint", "open_zol_dataset"]
