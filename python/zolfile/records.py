"""The catalogue's record of one file, and reading one file into it as plain data.

A record is a dict that pickles, serialises as one JSON line and goes into the database as
is: raw_path (the path's exact bytes), path (the same, readable), size, mtime_ns, status,
version, error_kind, error, messages, link, last_seen, entries, history, arrays. entries holds
(name, value) pairs, history and arrays tuples in the order of HISTORY_FIELDS and
ARRAY_FIELDS: a model has dozens of them, and tuples go to the database as they are and cost
the workers and the writer less than dicts. JSON spells them as objects.
"""

import base64
import contextlib
import json
import operator
import os
import re
import sys
import tempfile
import warnings

MAGIC = b"\x89HBF\r\n\x1a\n"

# Statuses of a record; "vanished" is only ever set in the database.
LOADED, REFUSED, FAILED, TIMED_OUT, UNREADABLE, VANISHED = (
    "loaded", "refused", "failed", "timed out", "unreadable", "vanished")
STATUSES = (LOADED, REFUSED, FAILED, TIMED_OUT, UNREADABLE, VANISHED)

HISTORY_FIELDS = ("application_name", "application_version", "zol_version", "date",
                  "extra_text", "user_name", "comment")
ARRAY_FIELDS = ("analysis", "geometry", "name", "result", "instance", "kind", "count")
_TEXT_FIELDS = ("version", "error", "messages", "link")

# The library's rendering of a failure carries the wall-clock time it was thrown at.
_TIME_LINE = re.compile(r"^ *Time : [^\n]*\n", re.M)


def readable(path):
    """A path's bytes as text: itself when UTF-8, other bytes shown as \\xNN."""
    return path.decode("utf-8", "backslashreplace")


def new_record(item, status, seen_ns, error=None):
    """A record of a walk's item with nothing read from it yet."""
    info = item.info
    return {"raw_path": item.path, "path": readable(item.path),
            "size": info.st_size if info else 0, "mtime_ns": info.st_mtime_ns if info else 0,
            "status": status, "version": None, "error_kind": None, "error": error,
            "messages": None, "link": readable(item.link) if item.link else None,
            "last_seen": seen_ns, "entries": [], "history": [], "arrays": []}


def to_json(record):
    """One line of JSON; the path's bytes travel as base64 beside the readable path."""
    record = dict(record, raw_path=base64.b64encode(record["raw_path"]).decode("ascii"),
                  history=[dict(zip(HISTORY_FIELDS, h)) for h in record["history"]],
                  arrays=[dict(zip(ARRAY_FIELDS, a)) for a in record["arrays"]])
    return json.dumps(record, ensure_ascii=False, separators=(",", ":"))


def from_json(line):
    """The record of a line of extract's output; ValueError when it is not a whole record."""
    record = json.loads(line)
    if not isinstance(record, dict) or not isinstance(record.get("path"), str):
        raise ValueError("not a record")
    raw = record.get("raw_path")
    record["raw_path"] = (base64.b64decode(raw, validate=True) if isinstance(raw, str)
                          else record["path"].encode("utf-8", "surrogateescape"))
    record.setdefault("link", None)
    record.setdefault("last_seen", None)
    if not (isinstance(record.get("size"), int) and isinstance(record.get("mtime_ns"), int)
            and record.get("status") in STATUSES
            and all(isinstance(record.get(f), list) for f in ("entries", "history", "arrays"))
            and all(isinstance(record.get(f, None), (str, type(None))) for f in _TEXT_FIELDS)
            and all(isinstance(e, list) and len(e) == 2 for e in record["entries"])
            and all(isinstance(h, dict) for h in record["history"])
            and all(isinstance(a, dict) for a in record["arrays"])):
        raise ValueError("not a record")
    record["entries"] = [tuple(e) for e in record["entries"]]
    record["history"] = [tuple(h.get(f) for f in HISTORY_FIELDS) for h in record["history"]]
    record["arrays"] = [tuple(a.get(f) for f in ARRAY_FIELDS) for a in record["arrays"]]
    return record


def examine(path, read):
    """In a worker: None when the file is no model, else its record's fields past its identity.

    A file is a model by its magic, or by its name ending in .zol: such a file whose first
    bytes are gone is read too, and refused as ZolInfo refuses it, so that a damaged model is
    never invisible.
    """
    try:
        head = _head(path)
    except OSError as error:
        return {"status": UNREADABLE, "error": error.strerror or str(error)}
    if head != MAGIC and not path.lower().endswith(b".zol"):
        return None
    try:
        return read(path)
    except Exception as error:  # any reader fault costs this one file only
        return {"status": FAILED, "error": _text(f"{type(error).__name__}: {error}")}


def _head(path):
    # A file object costs more than the 8 bytes read through it.
    fd = os.open(path, os.O_RDONLY | os.O_CLOEXEC)
    try:
        return os.read(fd, len(MAGIC))
    finally:
        os.close(fd)


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
    written = _stderr_file()
    with _standard_error_into(written), warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        outcome = _read_model(path)
    messages = _take_written(written).decode("utf-8", "backslashreplace")
    messages += "".join(f"{warning.message}\n" for warning in caught)
    outcome["messages"] = _text(_TIME_LINE.sub("", messages)) or None
    return outcome


_stderr_files = {}


def _stderr_file():
    # One descriptor per process, emptied after each model that wrote: a worker reads many.
    pid = os.getpid()
    if pid not in _stderr_files:
        _stderr_files.clear()  # a forked child's own
        _stderr_files[pid] = tempfile.TemporaryFile(buffering=0)
    return _stderr_files[pid].fileno()


def _take_written(fd):
    # Most models write nothing; they cost one lseek.
    end = os.lseek(fd, 0, os.SEEK_CUR)
    if not end:
        return b""
    written = os.pread(fd, end, 0)
    os.ftruncate(fd, 0)
    os.lseek(fd, 0, os.SEEK_SET)
    return written


@contextlib.contextmanager
def _standard_error_into(fd):
    sys.stderr.flush()
    saved = os.dup(2)
    os.dup2(fd, 2)
    try:
        yield
    finally:
        os.dup2(saved, 2)
        os.close(saved)


_history_row = operator.itemgetter(*HISTORY_FIELDS)
# The binding's arrays call their count size.
_array_row = operator.attrgetter(*ARRAY_FIELDS[:-1], "size")
_ARRAY_TEXTS = ARRAY_FIELDS.index("kind")  # the fields before it are texts


def _read_model(path):
    from . import _zolfile
    from .errors import Error

    try:
        # The binding's own model: the package's wraps each array for numpy, which a record
        # doesn't need.
        model = _zolfile.open(os.fsencode(path))
    except Error as error:
        # The description without the rendering's throw time, so that records compare.
        return {"status": REFUSED, "error_kind": error.kind, "error": _text(error.description)}
    return {
        "status": LOADED,
        "version": _text(model.version),
        "entries": _texts(model.report()),
        "history": _texts([_history_row(t) for t in model.translations]),
        "arrays": _texts([_array_row(a) for a in model.arrays()], _ARRAY_TEXTS),
    }


def _texts(rows, width=None):
    # Rows whose texts (their first width fields) are all ASCII, nearly always, are checked
    # in one go.
    if "".join(["".join(row[:width]) for row in rows]).isascii():
        return rows
    return [tuple(_text(v) for v in row) for row in rows]
