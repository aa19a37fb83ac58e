"""python3 -m zolfile report MODEL [--ekm]
                   | convert MODEL OUT [--analysis NAME] [--cell-type N=TYPE]... [--format F]
                                       [--all-instances]
                   | catalog PATH... --db FILE | extract PATH..."""
import argparse
import json
import os
import re
import sys
from pathlib import Path

import zolfile
from zolfile import catalog
from zolfile.celltypes import parse_overrides


def report(args):
    model = zolfile.open(args.model)
    entries = model.ekm_report() if args.ekm else model.report()
    json.dump([{"name": name, "value": value} for name, value in entries], sys.stdout,
              indent=1)
    print()


def series_paths(out, analyses):
    """OUT for one analysis; OUT's stem, "-", the analysis and OUT's suffix for several."""
    if len(analyses) == 1:
        return [out]
    path, paths = Path(out), []
    for analysis in analyses:
        stem = f"{path.stem}-{re.sub(r'[^A-Za-z0-9._-]+', '_', analysis)}"
        while str(path.with_name(stem + path.suffix)) in paths:
            stem += "_"
        paths.append(str(path.with_name(stem + path.suffix)))
    return paths


def convert(args):
    model = zolfile.open(args.model)
    names = model.analyses()
    try:
        cell_types = parse_overrides(args.cell_type)
    except ValueError as error:
        raise zolfile.MeshError(str(error)) from None
    if args.analysis is not None and args.analysis not in names or not names:
        raise zolfile.MeshError(f"no analysis {args.analysis!r}; the model has {names}")
    if not args.all_instances:
        model.convert(args.analysis or names[0], args.out, cell_types, args.format)
        return
    chosen = [args.analysis] if args.analysis is not None else names
    paths = series_paths(args.out, chosen)
    for analysis, path in zip(chosen, paths):
        model.write_series(analysis, path, cell_types)
        if len(paths) > 1:
            print(path)


def add_commands(commands):
    parser = commands.add_parser("report", help="print the report's entries as JSON")
    parser.add_argument("model")
    parser.add_argument("--ekm", action="store_true", help="in the EKM vocabulary")
    parser.set_defaults(run=report)
    parser = commands.add_parser("convert", help="write an analysis in any format meshio "
                                 "writes, chosen by the output's extension (.vtu, ...)")
    parser.add_argument("model")
    parser.add_argument("out")
    parser.add_argument("--analysis", help="the analysis to write (default: the first; "
                        "with --all-instances, every one)")
    parser.add_argument("--cell-type", action="append", default=[], metavar="N=TYPE",
                        help="meshio cell type of every element of N nodes (4=tetra, 4=quad, "
                        "8=hexahedron, ...), overriding the type the geometry gives")
    parser.add_argument("--format", help="meshio's format name, where the extension is not "
                        "enough (.msh is written as gmsh22)")
    parser.add_argument("--all-instances", action="store_true",
                        help="write OUT.xdmf as a time series, one step per instance; with "
                        "several analyses one file each, OUT-ANALYSIS.xdmf")
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
