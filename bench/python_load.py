#!/usr/bin/python3
"""Loading one zlib-packed array of 10 million floats with zolfile, against h5py and netCDF4
reading the same values from shuffled, deflated chunks (automatic and 2^20 values), in one
run; then what a slice costs, and how loads share the machine's cores with other threads.

    bench/python_load.py BUILD_DIR [--values N] [--repeat R]

BUILD_DIR holds the built package (python/zolfile) and the model generator (tests/zolgen or
bench/zolgen). Prints Markdown tables; each time is the best of R runs, file opening included,
with the files in the page cache.
"""
import argparse
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

import benchtools
from benchtools import best



def in_threads(runs):
    threads = [threading.Thread(target=run) for run in runs]
    start = time.perf_counter()
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return time.perf_counter() - start


def counting_pace(load, seconds=1.0):
    """Counts per second of a Python loop alone, and while another thread loads again and
    again."""
    def count(stop):
        n = 0
        while not stop.is_set():
            n += 1
        return n

    def measure(background):
        stop, result = threading.Event(), []
        counter = threading.Thread(target=lambda: result.append(count(stop)))
        worker = threading.Thread(target=lambda: [load() for _ in iter(stop.is_set, True)])
        counter.start()
        if background:
            worker.start()
        time.sleep(seconds)
        stop.set()
        counter.join()
        if background:
            worker.join()
        return result[0]
    return measure(False), measure(True)


def write_peers(folder, values):
    import h5py
    import netCDF4

    peers = {}
    for label, chunks in (("automatic", True), ("2^20", (1 << 20,))):
        path = folder / f"load-{label}.h5"
        with h5py.File(path, "w") as hdf:
            made = hdf.create_dataset("stress", data=values, chunks=chunks, compression="gzip",
                                      shuffle=True)
            chunks = made.chunks

        def load_hdf(path=path):
            with h5py.File(path, "r") as hdf:
                return hdf["stress"][...]
        peers[f"h5py gzip+shuffle, chunks {chunks[0]}"] = (load_hdf, path)
    for label, chunks in (("automatic", None), ("2^20", [1 << 20])):
        path = folder / f"load-{label}.nc"
        with netCDF4.Dataset(path, "w") as nc:
            nc.createDimension("n", len(values))
            made = nc.createVariable("stress", "f4", ("n",), zlib=True, shuffle=True,
                                     chunksizes=chunks)
            made[:] = values
            chunks = made.chunking()

        def load_nc(path=path):
            with netCDF4.Dataset(path, "r") as nc:
                return nc["stress"][:].data
        peers[f"netCDF4 zlib+shuffle, chunks {chunks[0]}"] = (load_nc, path)
    return peers


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--values", type=int, default=10_000_000)
    parser.add_argument("--repeat", type=int, default=5)
    args = parser.parse_args()
    build = Path(args.build).resolve()
    # The peers are needed here only; the project's setup installs them when missing.
    subprocess.run([Path(__file__).parents[1] / "scripts/setup.sh", "python3-h5py",
                    "python3-netcdf4"], check=True)
    sys.path.insert(0, str(build / "python"))
    import numpy as np
    import zolfile

    zolgen = benchtools.zolgen(build)
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        model_path = folder / "load.zol"
        subprocess.run([zolgen, "-o", model_path, "--nodes", str(args.values), "--elements",
                        "1", "--results", "1", "--components", "1", "--compressed"],
                       check=True, capture_output=True)
        copy_path = folder / "copy.zol"
        copy_path.write_bytes(model_path.read_bytes())

        def load_zol(path=model_path):
            with zolfile.open(path) as model:
                return model["Stress\x1eStep 1"].values()

        def slice_zol():
            with zolfile.open(model_path) as model:
                return model["Stress\x1eStep 1"][5_000_000:5_001_000]

        values = load_zol()
        peers = write_peers(folder, values)
        for load, _ in peers.values():
            assert np.array_equal(load(), values)
        assert np.array_equal(slice_zol(), values[5_000_000:5_001_000])

        with zolfile.open(model_path) as model:
            kept = model["Stress\x1eStep 1"]
            kept[:1]  # unpacks its block, which the library keeps for the next reads
            kept_s = best(lambda: kept[5_000_000:5_001_000], args.repeat)
        zol_s = best(load_zol, args.repeat)
        times = {name: best(load, args.repeat) for name, (load, _) in peers.items()}
        slice_s = best(slice_zol, args.repeat)
        serial = best(lambda: (load_zol(), load_zol(copy_path)), args.repeat)
        parallel = min(in_threads([load_zol, lambda: load_zol(copy_path)])
                       for _ in range(args.repeat))
        alone, beside = counting_pace(load_zol)

        print("| reader | seconds | ns per value | file MB | time / zolfile's |\n"
              "|---|---|---|---|---|")
        for name, seconds, path in [("zolfile values()", zol_s, model_path)] + [
                (name, times[name], path) for name, (_, path) in peers.items()]:
            print(f"| {name} | {seconds:.3f} | {seconds * 1e9 / len(values):.2f} | "
                  f"{path.stat().st_size / 1e6:.1f} | {seconds / zol_s:.2f} |")
        print(f"\n{len(values)} float32 values, best of {args.repeat}.\n")
        print("| zolfile, other measures | figure |\n|---|---|")
        print(f"| 1,000 values by a slice, file opening included | {slice_s * 1e3:.2f} ms "
              f"({slice_s / zol_s:.3f} of the whole array's time) |")
        print(f"| 1,000 values by a slice of an open model, block unpacked | "
              f"{kept_s * 1e3:.3f} ms ({kept_s / zol_s:.5f}) |")
        print(f"| two files in two threads, against one after the other | "
              f"{serial / parallel:.2f} times faster |")
        print(f"| a counting thread's pace while another thread loads | "
              f"{beside / alone:.2f} of its pace alone |")


if __name__ == "__main__":
    main()
