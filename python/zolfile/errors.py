"""The package's exceptions; the extension raises them through from_library."""
from errno import ENOENT
from os import strerror


class Error(OSError):
    """A Zol file that can't be opened or read.

    str() is one line naming the file and, where there is one, the array or block. ``kind``
    is the failure's kind number as ZolInfo's exceptions carry it (9 a read error, 11 a
    format that isn't supported, ...), ``description`` the failure alone, ``where`` the array
    or block it concerns ("" when none) and ``filename`` the file.
    """

    kind = None
    description = ""
    where = ""

    def __str__(self):
        return self.args[0] if self.args else ""

    def __reduce__(self):
        # OSError's own would rebuild it from (errno, strerror, filename), which this lacks.
        return _restore, (type(self), self.args, self.filename, self.kind, self.description,
                          self.where)


class FileNotFound(Error, FileNotFoundError):
    """A model that isn't there: both a zolfile.Error and a FileNotFoundError, with ``errno``,
    ``strerror`` and ``filename`` set as the built-in open sets them."""

    __str__ = OSError.__str__


def _restore(cls, args, filename, kind, description, where):
    error = cls(*args)
    error.filename = filename
    error.kind, error.description, error.where = kind, description, where
    return error


def from_library(message, kind, description, where, filename, errno):
    """The exception for a failure of the library; errno is the system's error, if any."""
    if errno == ENOENT:
        error = FileNotFound(errno, strerror(errno), filename)
    else:
        error = Error(message.replace("\n", " "))
        error.filename, error.errno = filename, errno or None
    error.kind, error.description, error.where = kind, description, where
    return error
