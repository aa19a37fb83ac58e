"""python3 -m zolfile COMMAND ...: the package's command-line tools."""

import sys

from . import catalog

COMMANDS = {"catalog": catalog.main, "extract": catalog.main_extract}


def main(argv):
    if not argv or argv[0] not in COMMANDS:
        print(f"usage: python3 -m zolfile {{{','.join(COMMANDS)}}} ...", file=sys.stderr)
        return 1
    return COMMANDS[argv[0]](argv[1:])


sys.exit(main(sys.argv[1:]))
