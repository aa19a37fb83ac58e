"""Model and Array: a Zol file and its arrays with the manners of h5py's files and datasets."""
from __future__ import annotations

import operator
import os
import threading
import weakref
from typing import Any, Union

import numpy as np

from . import _zolfile

Path = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]

_CLOSED = "the model is closed"


class Array:
    """One array of a model: the mesh's coordinates, ids or connectivity, or one instance of a
    result. Nothing is read until values are asked for, by values(), np.asarray(array) or
    slicing (array[1000:2000], array[5], array[:, 0]), which decode only what is asked for.

    A result of k components has the shape (n, k), any other array (n,); values are float32,
    or uint32 for connectivity kinds.

    Attributes: analysis and geometry (the group and the Geometry that owns the array), name
    (the full data name: result, then "\x1e" and the instance, if any), result, instance ("" when
    none), element_sets (the Geometries it serves, its owner first), kind (the file's kind
    number), components, size (number of values), dtype, shape.
    """

    __slots__ = ("_raw", "_model", "_view", "analysis", "geometry", "name", "result",
                 "instance", "element_sets", "kind", "components", "size", "dtype", "shape",
                 "__weakref__")

    def __init__(self, raw: _zolfile.Array, model: Model):
        self._raw, self._model, self._view = raw, model, None
        self.analysis, self.geometry, self.name = raw.analysis, raw.geometry, raw.name
        self.result, self.instance, self.element_sets = raw.result, raw.instance, \
            raw.element_sets
        self.kind, self.components, self.size = raw.kind, raw.components, raw.size
        self.dtype = np.dtype(np.float32 if raw.is_float else np.uint32)
        k = self.components
        # A size that isn't a whole number of items (a damaged file) stays flat.
        self.shape = (self.size // k, k) if k > 1 and self.size % k == 0 else (self.size,)

    @property
    def count(self) -> int:
        """The number of values (items times components); the same as size."""
        return self.size

    @property
    def is_float(self) -> bool:
        """False for the unsigned integers of connectivity kinds."""
        return self.dtype == np.float32

    @property
    def ndim(self) -> int:
        """1, or 2 for an array of several components."""
        return len(self.shape)

    @property
    def model(self) -> Model:
        """The Model the array belongs to."""
        return self._model

    def __len__(self) -> int:
        return self.shape[0]

    def __repr__(self) -> str:
        if self._raw is None:
            return f"<closed zolfile.Array {self.name!r}>"
        return f"<zolfile.Array {self.name!r}: shape {self.shape}, type {self.dtype.str!r}>"

    def _read(self, first: int, count: int) -> np.ndarray:
        raw = self._raw
        if raw is None:
            raise ValueError(_CLOSED)
        return raw.read(first, count)

    def values(self) -> np.ndarray:
        """All values, shaped, as a read-only numpy array. While one is alive, values() gives
        that same one again."""
        view = self._view() if self._view is not None else None
        if view is None:
            view = self._read(0, self.size).reshape(self.shape)
            view.flags.writeable = False
            self._view = weakref.ref(view)
        return view

    def __array__(self, dtype: Any = None, copy: Any = None) -> np.ndarray:
        values = self.values()
        if copy:
            return np.array(values, dtype=dtype)
        return values if dtype is None else values.astype(dtype)

    def __getitem__(self, key: Any) -> Any:
        """Values by integers and slices along the items, then the components, as numpy
        indexes them; only the items from the first to the last asked for are decoded. Other
        keys (lists, masks) index the whole array."""
        parts = key if isinstance(key, tuple) else (key,)
        if Ellipsis in parts:
            at = parts.index(Ellipsis)
            parts = parts[:at] + (slice(None),) * (self.ndim + 1 - len(parts)) + parts[at + 1:]
        rows = parts[0] if parts else slice(None)
        if isinstance(rows, slice):
            chosen = range(*rows.indices(self.shape[0]))
            if not chosen:
                return np.empty((0,) + self.shape[1:], self.dtype)[(slice(None),) + parts[1:]]
            low, high = min(chosen), max(chosen) + 1
            # Read from the lowest row to the highest; the step then runs from its end.
            return self._rows(low, high)[(slice(None, None, chosen.step),) + parts[1:]]
        try:
            row = operator.index(rows)
        except TypeError:
            return self.values()[key]
        n = self.shape[0]
        if not -n <= row < n:
            raise IndexError(f"index {row} is out of range for {n} items")
        row %= n
        return self._rows(row, row + 1)[(0,) + parts[1:]]

    def _rows(self, low: int, high: int) -> np.ndarray:
        width = self.components if self.ndim == 2 else 1
        return self._read(low * width, (high - low) * width).reshape((high - low,)
                                                                       + self.shape[1:])


class Model:
    """An opened Zol file. Use it as a context manager, or call close(): a closed model and
    its arrays raise ValueError, and the file is let go as soon as no read is under way.

        with zolfile.open("wheel.zol") as model:
            stress = model["Stress\\x1eStep 1"][1000:2000]
    """

    def __init__(self, raw: _zolfile.Model, path: bytes):
        self._raw = raw
        self._path = path
        self._arrays = None
        self._lock = threading.Lock()

    @property
    def path(self) -> str:
        """The path the model was opened with (non-UTF-8 bytes as surrogate escapes)."""
        return os.fsdecode(self._path)

    @property
    def closed(self) -> bool:
        """True once close() was called."""
        return self._raw is None

    def _model(self) -> _zolfile.Model:
        raw = self._raw
        if raw is None:
            raise ValueError(_CLOSED)
        return raw

    @property
    def version(self) -> str:
        """The file version, "1.1" say."""
        return self._model().version

    @property
    def translations(self) -> list[dict[str, str]]:
        """The translation history, oldest first: dicts of application_name,
        application_version, zol_version, date, extra_text, user_name and comment."""
        return self._model().translations

    def report(self) -> list[tuple[str, str]]:
        """The metadata report's entries as (name, value) pairs, as ZolInfo writes them."""
        return self._model().report()

    def ekm_report(self) -> list[tuple[str, str]]:
        """The report's entries in the EKM vocabulary."""
        return self._model().ekm_report()

    def arrays(self) -> list[Array]:
        """Every array of the data dump, in its order; the same Array objects at each call."""
        raw = self._model()
        with self._lock:
            if self._arrays is None:
                self._arrays = [Array(array, self) for array in raw.arrays()]
            return list(self._arrays)

    def __getitem__(self, name: str) -> Array:
        """The array of that full name (result, then "\\x1e" and the instance, if any); a
        name that several Geometries or analyses share raises KeyError, as does a missing
        one."""
        found = [array for array in self.arrays() if array.name == name]
        if len(found) != 1:
            raise KeyError(f"{len(found) or 'no'} arrays named {name!r}" if found else name)
        return found[0]

    def __contains__(self, name: object) -> bool:
        return any(array.name == name for array in self.arrays())

    def close(self) -> None:
        """Lets the file go; reads already under way in other threads finish first. Closing
        again does nothing."""
        with self._lock:
            arrays, self._arrays, self._raw = self._arrays or [], None, None
        for array in arrays:
            array._raw = array._view = None

    def __enter__(self) -> Model:
        self._model()
        return self

    def __exit__(self, *failure: object) -> None:
        self.close()

    def __repr__(self) -> str:
        state = "closed " if self._raw is None else ""
        return f"<{state}zolfile.Model {self.path!r}>"


def open(path: Path) -> Model:
    """Loads the Zol file at path (str, bytes or os.PathLike; any bytes the system allows).

    Raises zolfile.Error (an OSError) when the file can't be loaded, FileNotFoundError as
    well when it isn't there; it refuses at once anything but a regular file. What the
    library would have printed while gathering the report's facts comes as RuntimeWarnings.
    """
    name = os.fsencode(path)
    return Model(_zolfile.open(name), name)
