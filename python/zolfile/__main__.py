"""python3 -m zolfile report MODEL [--ekm] | convert MODEL OUT [--analysis NAME]
                   | catalog PATH... --db FILE | extract PATH..."""
import argparse
import json
import os
import sys

import zolfile
from zolfile import catalog


def report(args):
    model = zolfile.open(args.model)
    entries = model.ekm_report() if args.ekm else model.report()
    json.dump([{"name": name, "value": value} for name, value in entries], sys.stdout,
              indent=1)
    print()


def convert(args):
    model = zolfile.open(args.model)
    names = model.analyses()
    analysis = args.analysis if args.analysis is not None else (names[0] if names else None)
    if analysis not in names:
        raise zolfile.MeshError(f"no analysis {analysis!r}; the model has {names}")
    model.to_meshio(analysis).write(args.out)


def add_commands(commands):
    parser = commands.add_parser("report", help="print the report's entries as JSON")
    parser.add_argument("model")
    parser.add_argument("--ekm", action="store_true", help="in the EKM vocabulary")
    parser.set_defaults(run=report)
    parser = commands.add_parser("convert", help="write an analysis in any format meshio "
                                 "writes, chosen by the output's extension (.vtu, ...)")
    parser.add_argument("model")
    parser.add_argument("out")
    parser.add_argument("--analysis", help="the analysis to write (default: the first)")
    parser.set_defaults(run=convert)


def main(argv=None):
    parser = argparse.ArgumentParser(prog="python3 -m zolfile")
    commands = parser.add_subparsers(required=True, metavar="command")
    add_commands(commands)
    catalog.add_commands(commands)
    args = parser.parse_args(argv)
    try:
        status = args.run(args)
    except zolfile.Error as error:
        print(f"Exception: {error}", file=sys.stderr)
        return 2
    except zolfile.MeshError as error:
        print(f"error: {error}", file=sys.stderr)
        return 1
    except BrokenPipeError:
        # The reader left early (| head): no traceback, and nothing more to flush at exit.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 1
    return status or 0


if __name__ == "__main__":
    sys.exit(main())
