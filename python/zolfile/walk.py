"""The files below the given paths, one at a time, with what could not be looked at.

Paths are bytes from end to end, so that any name the system allows (not UTF-8, with a
newline, starting with a dash) is kept exactly. The walk holds one directory's listing at a
time, so that its memory doesn't grow with the share.
"""

import os
import stat


class Item:
    """One file met by the walk: its path, its stat (None when stat failed), the reason it
    could not be looked at (None when it could), and the symbolic link it was found by."""

    __slots__ = ("path", "info", "error", "link")

    def __init__(self, path, info, error=None, link=None):
        self.path, self.info, self.error, self.link = path, info, error, link


class Walk:
    """Iterates the Items below the given paths. Afterwards `problems` holds the run's
    warnings as (path, reason), and `blind` the directories whose recorded files must not be
    taken as gone."""

    def __init__(self, paths):
        tops = [os.path.abspath(os.fsencode(path)) for path in paths]
        self.directories = [top for top in tops if os.path.isdir(top)]
        # A path below another given directory is walked with it, not twice.
        self.tops = [top for top in dict.fromkeys(tops)
                     if not any(_below(top, d) for d in self.directories if d != top)]
        self.problems = []
        self.blind = []
        self._linked = set()

    def __iter__(self):
        for top in self.tops:
            try:
                info = os.stat(top)
            except OSError as error:
                self._lost(top, _reason(error))
                continue
            if stat.S_ISDIR(info.st_mode):
                yield from self._directory(top)
            else:
                yield from self._file(top)

    def _lost(self, path, reason):
        self.blind.append(path)
        self.problems.append((path, reason))

    def _directory(self, top):
        stack = [top]
        while stack:
            directory = stack.pop()
            try:
                with os.scandir(directory) as listing:
                    entries = sorted(listing, key=lambda entry: entry.name)
            except FileNotFoundError:
                if directory == top:
                    self._lost(top, "is gone")
                continue  # gone since it was listed: its files are gone too
            except OSError as error:
                self._lost(directory, f"could not be listed ({_reason(error)})")
                yield _unreadable(directory, f"could not be listed: {_reason(error)}")
                continue
            if directory == top and not entries:
                self._lost(top, "is empty (an unmounted share?)")
            subdirectories = []
            for entry in entries:
                if _is_directory(entry):
                    subdirectories.append(entry.path)
                else:
                    yield from self._file(entry.path, entry)
            stack.extend(reversed(subdirectories))

    def _file(self, path, entry=None):
        # A directory's entry knows its type and keeps its stat: one system call a file.
        try:
            if entry.is_symlink() if entry else os.path.islink(path):
                yield from self._linked_file(path)
                return
            info = entry.stat() if entry else os.stat(path)
        except FileNotFoundError:
            return  # gone since it was listed
        except OSError as error:
            yield _unreadable(path, _reason(error))
            return
        if stat.S_ISREG(info.st_mode):
            yield Item(path, info)

    def _linked_file(self, link):
        # A link is recorded by the file it leads to, once; a file that the walk meets
        # itself is recorded then, without the link.
        target = os.path.realpath(link)
        info = os.stat(target)  # a dangling link is no file
        if not stat.S_ISREG(info.st_mode) or target in self._linked:
            return
        if any(_below(target, d) for d in self.directories) or target in self.tops:
            return
        self._linked.add(target)
        yield Item(target, info, link=link)


def _is_directory(entry):
    try:
        return entry.is_dir(follow_symlinks=False)
    except OSError:
        return False  # then its stat fails again, and says why


def _below(path, directory):
    return path.startswith(directory.rstrip(b"/") + b"/")


def _unreadable(path, reason):
    try:
        info = os.lstat(path)
    except OSError:
        info = None
    return Item(path, info, reason)


def _reason(error):
    return error.strerror or str(error)
