"""python3 -m zolfile COMMAND ...: the package's command-line tools."""

import argparse
import sys

from . import catalog


def main(argv=None):
    parser = argparse.ArgumentParser(prog="python3 -m zolfile")
    catalog.add_commands(parser.add_subparsers(required=True, metavar="command"))
    args = parser.parse_args(argv)
    args.run(args)
    return 0


if __name__ == "__main__":
    sys.exit(main())
