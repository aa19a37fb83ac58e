#!/usr/bin/python3
"""Converting a model of a million hexahedra to VTU: zolfile's whole conversion (open, read the
arrays, build the mesh, write) against meshio's own write of the same mesh, in one run.

    bench/mesh_convert.py BUILD_DIR [--elements N] [--repeat R]

BUILD_DIR holds the built package (python/zolfile) and the model generator (tests/zolgen or
bench/zolgen). Both sides write with the same meshio settings: its default (zlib-compressed
binary) and uncompressed. Prints a Markdown table; each figure is the best of R runs, with
the files in the page cache.
"""
import argparse
import subprocess
import sys
import tempfile
from pathlib import Path

import benchtools
from benchtools import best



def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--elements", type=int, default=1_000_000)
    parser.add_argument("--repeat", type=int, default=3)
    args = parser.parse_args()
    build = Path(args.build).resolve()
    sys.path.insert(0, str(build / "python"))
    import zolfile

    zolgen = benchtools.zolgen(build)
    grid = 2
    while (grid - 1) ** 3 < args.elements:
        grid += 1
    with tempfile.TemporaryDirectory() as folder:
        model_path = Path(folder) / "convert.zol"
        subprocess.run([zolgen, "-o", model_path, "--nodes", str(grid ** 3), "--elements",
                        str(args.elements), "--results", "1", "--components", "3",
                        "--compressed"], check=True, capture_output=True)
        model = zolfile.open(str(model_path))
        analysis = model.analyses()[0]
        made = model.to_meshio(analysis, file_format="vtu")
        out = Path(folder) / "out.vtu"
        print("| writer settings | zolfile convert s | meshio write s | ratio | mesh() s |")
        print("|---|---|---|---|---|")
        mesh_time = best(lambda: zolfile.open(str(model_path)).mesh(analysis), args.repeat)
        for label, options in (("zlib (meshio's default)", {}),
                               ("uncompressed", {"compression": None})):
            ours = best(lambda: zolfile.open(str(model_path)).convert(analysis, out, **options),
                        args.repeat)
            theirs = best(lambda: made.write(out, **options), args.repeat)
            print(f"| {label} | {ours:.2f} | {theirs:.2f} | {ours / theirs:.2f} | "
                  f"{mesh_time:.2f} |")
        print(f"\n{args.elements} hexahedra, {grid ** 3} nodes, one result of 3 components; "
              f"ratio = zolfile convert / meshio write")


if __name__ == "__main__":
    main()
