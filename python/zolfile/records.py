"""The catalogue's record of one file: finding Zol files and reading one into plain data.

A record is a dict that pickles, serialises as one JSON line and goes into the database as
is: path, size, mtime_ns, status, version, error_kind, error, messages, entries, history,
arrays.
"""

import contextlib
import os
import stat
import sys
import tempfile
import warnings

MAGIC = b"\x89HBF\r\n\x1a\n"

# Statuses of a record; "vanished" is only ever set in the database.
LOADED, REFUSED, FAILED, TIMED_OUT, VANISHED = "loaded", "refused", "failed", "timed out", "vanished"

HISTORY_FIELDS = ("application_name", "application_version", "zol_version", "date",
                  "extra_text", "user_name", "comment")
ARRAY_FIELDS = ("analysis", "geometry", "name", "result", "instance", "kind", "count")


def is_zol(path):
    """True when the file starts with the block file's magic; reads nothing more."""
    try:
        with open(path, "rb") as f:
            return f.read(len(MAGIC)) == MAGIC
    except OSError:
        return False


def walk(paths):
    """Yields (absolute path, os.stat_result) of the Zol files at or below the given paths.

    Files are taken by their magic alone, whether named or met in a directory, and in a
    stable order.
    """
    for given in paths:
        top = os.path.abspath(given)
        if os.path.isdir(top):
            yield from _walk_directory(top)
        else:
            yield from _zol_file(top)


def _walk_directory(top):
    for directory, subdirectories, names in os.walk(top):
        subdirectories.sort()
        for name in sorted(names):
            yield from _zol_file(os.path.join(directory, name))


def _zol_file(path):
    try:
        info = os.stat(path)
    except OSError:
        return
    if stat.S_ISREG(info.st_mode) and is_zol(path):
        yield path, info


def new_record(path, info, status, error=None):
    """A record with the file's identity and nothing read from it yet."""
    return {"path": path, "size": info.st_size, "mtime_ns": info.st_mtime_ns,
            "status": status, "version": None, "error_kind": None, "error": error,
            "messages": None, "entries": [], "history": [], "arrays": []}


def _text(value):
    # Bytes that aren't UTF-8 come from the binding as lone surrogates, which neither SQLite
    # nor JSON takes; they are kept visible as \xNN.
    if not isinstance(value, str) or value.isascii():
        return value
    return value.encode("utf-8", "surrogateescape").decode("utf-8", "backslashreplace")


def read_model(path):
    """What the model says of itself: the record's fields past the file's identity.

    What the library writes on standard error and the binding's warnings (failures of the
    collecting steps) become the record's messages. Array counts come from the
    descriptors; no array's values are read.
    """
    with tempfile.TemporaryFile() as written:
        with _standard_error_into(written), warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            outcome = _read_model(path)
        written.seek(0)
        messages = written.read().decode("utf-8", "backslashreplace")
    messages += "".join(f"{warning.message}\n" for warning in caught)
    outcome["messages"] = _text(messages) or None
    return outcome


@contextlib.contextmanager
def _standard_error_into(file):
    sys.stderr.flush()
    saved = os.dup(2)
    os.dup2(file.fileno(), 2)
    try:
        yield
    finally:
        os.dup2(saved, 2)
        os.close(saved)


def _read_model(path):
    import zolfile

    try:
        model = zolfile.open(path)
    except zolfile.Error as error:
        # The description without the rendering's throw time, so that records compare.
        return {"status": REFUSED, "error_kind": error.kind, "error": _text(error.description)}
    return {
        "status": LOADED,
        "version": _text(model.version),
        "entries": [[_text(name), _text(value)] for name, value in model.report()],
        "history": [{f: _text(t[f]) for f in HISTORY_FIELDS} for t in model.translations],
        "arrays": [{f: _text(getattr(a, f)) for f in ARRAY_FIELDS} for a in model.arrays()],
    }
