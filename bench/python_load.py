#!/usr/bin/python3
"""Loading one zlib-packed array of 10 million floats: zolfile against h5py reading the same
values from a gzip-compressed, chunked HDF5 dataset, in one run.

    bench/python_load.py BUILD_DIR [--values N] [--repeat R]

BUILD_DIR holds the built package (python/zolfile) and the model generator (python/zolgen or
bench/zolgen). Prints a Markdown table; each figure is the best of R runs, file opening
included, with the file in the page cache.
"""
import argparse
import subprocess
import sys
import tempfile
import time
from pathlib import Path


def best(run, repeat):
    times = []
    for _ in range(repeat):
        start = time.perf_counter()
        run()
        times.append(time.perf_counter() - start)
    return min(times)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--values", type=int, default=10_000_000)
    parser.add_argument("--repeat", type=int, default=5)
    args = parser.parse_args()
    build = Path(args.build).resolve()
    # h5py is needed here only; the project's setup installs it when missing.
    subprocess.run([Path(__file__).parents[1] / "scripts/setup.sh", "python3-h5py"], check=True)
    sys.path.insert(0, str(build / "python"))
    import h5py
    import numpy as np
    import zolfile

    zolgen = next(p for p in (build / "python/zolgen", build / "bench/zolgen") if p.exists())
    with tempfile.TemporaryDirectory() as folder:
        model_path = Path(folder) / "load.zol"
        subprocess.run([zolgen, "-o", model_path, "--nodes", str(args.values), "--elements",
                        "1", "--results", "1", "--components", "1", "--compressed"],
                       check=True, capture_output=True)

        def load_zol():
            arrays = zolfile.open(str(model_path)).arrays()
            return next(a for a in arrays if a.result == "Stress").values()

        values = load_zol()
        hdf_path = Path(folder) / "load.h5"
        with h5py.File(hdf_path, "w") as hdf:
            hdf.create_dataset("stress", data=values, chunks=True, compression="gzip")

        def load_hdf():
            with h5py.File(hdf_path, "r") as hdf:
                return hdf["stress"][...]

        assert np.array_equal(load_hdf(), values)
        zol_s, hdf_s = best(load_zol, args.repeat), best(load_hdf, args.repeat)
        with h5py.File(hdf_path, "r") as hdf:
            chunks = hdf["stress"].chunks
        print(f"| reader | seconds | ns per value | file MB |\n|---|---|---|---|")
        for name, seconds, path in (("zolfile values()", zol_s, model_path),
                                    (f"h5py gzip, chunks {chunks}", hdf_s, hdf_path)):
            print(f"| {name} | {seconds:.3f} | {seconds * 1e9 / len(values):.2f} | "
                  f"{path.stat().st_size / 1e6:.1f} |")
        print(f"\n{len(values)} float32 values; h5py / zolfile = {hdf_s / zol_s:.2f}")


if __name__ == "__main__":
    main()
