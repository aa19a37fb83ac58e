"""A reader for the catalogue's machinery whose behaviour each file's text chooses.

After the magic a file holds one word: "crash" kills the worker, "hang" never returns,
"raise" throws, "refuse" is refused, anything else loads with that text as its one entry.
Run as a script it is `python3 -m zolfile` with this reader in place of the model.
"""

import argparse
import os
import signal
import time

from zolfile import catalog, records


def read(path):
    with open(path, "rb") as f:
        word = f.read()[len(records.MAGIC):].decode("utf-8", "replace")
    time.sleep({"hang": 3600, "slow": 0.01}.get(word[:4], 0))
    if word.startswith("crash"):
        os.kill(os.getpid(), signal.SIGSEGV)
    if word.startswith("raise"):
        raise ValueError(word)
    if word.startswith("refuse"):
        return {"status": records.REFUSED, "error_kind": 3, "error": word}
    return {"status": records.LOADED, "version": "1.1", "entries": [["Text", word]],
            "history": [dict.fromkeys(records.HISTORY_FIELDS, word)],
            "arrays": [dict(zip(records.ARRAY_FIELDS, ("A", "G", word, word, "", "float",
                                                      len(word))))]}


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    catalog.add_commands(parser.add_subparsers(required=True))
    arguments = parser.parse_args()
    arguments.run(arguments, read=read)
