"""A reader for the catalogue's machinery whose behaviour each file's text chooses.

After the magic a file holds one word: "crash" kills the worker, "hang" never returns,
"wait" takes 0.4 s, "raise" throws, "refuse" is refused, "leave" has the worker die once its result is sent (once),
"kill run" kills the run once (a file beside it remembers), anything else loads with that
text as its one entry; a file without the magic is refused. Run as a script it is
`python3 -m zolfile` with this reader in place of the model, and with the paths named in
$UNREADABLE (separated by ":") failing to be listed or opened.
"""

import argparse
import builtins
import os
import signal
import sys
import time

import pebble.pool.process

from zolfile import catalog, records


def read(path):
    with open(path, "rb") as f:
        data = f.read()
    if not data.startswith(records.MAGIC):
        return {"status": records.REFUSED, "error_kind": 11, "error": "not a Zol file"}
    word = data[len(records.MAGIC):].decode("utf-8", "replace")
    time.sleep({"hang": 3600, "wait": 0.4, "slow": 0.01}.get(word[:4], 0))
    if word.startswith("crash"):
        os.kill(os.getpid(), signal.SIGSEGV)
    if word.startswith("raise"):
        raise ValueError(word)
    if word.startswith("refuse"):
        return {"status": records.REFUSED, "error_kind": 3, "error": word}
    if word.startswith("leave") and not os.path.exists(path + b".left"):
        open(path + b".left", "w").close()
        _leaving.append(path)
    if word.startswith("kill run") and not os.path.exists(path + b".killed"):
        open(path + b".killed", "w").close()
        os.kill(os.getppid(), signal.SIGKILL)
    return {"status": records.LOADED, "version": "1.1", "entries": [["Text", word]],
            "history": [dict.fromkeys(records.HISTORY_FIELDS, word)],
            "arrays": [dict(zip(records.ARRAY_FIELDS, ("A", "G", word, word, "", "float",
                                                      len(word))))]}


# Set in a worker that is to die once its result is sent, before it takes the next file.
_leaving = []


def _leave_between_files(fetch):
    def fetch_or_leave(channel):
        if _leaving:
            os.kill(os.getpid(), signal.SIGKILL)
        return fetch(channel)
    return fetch_or_leave


def _refusing(function, paths):
    def refuse(path, *args, **kwargs):
        if not isinstance(path, int) and os.fsencode(path) in paths:
            raise PermissionError(13, "Permission denied", path)
        return function(path, *args, **kwargs)
    return refuse


if __name__ == "__main__":
    unreadable = {os.fsencode(p) for p in os.environ.get("UNREADABLE", "").split(":") if p}
    os.scandir = _refusing(os.scandir, unreadable)
    builtins.open = _refusing(builtins.open, unreadable)
    os.open = _refusing(os.open, unreadable)
    pebble.pool.process.fetch_task = _leave_between_files(pebble.pool.process.fetch_task)
    parser = argparse.ArgumentParser()
    catalog.add_commands(parser.add_subparsers(required=True))
    arguments = parser.parse_args()
    sys.exit(arguments.run(arguments, read=read))
