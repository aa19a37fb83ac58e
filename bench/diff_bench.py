#!/usr/bin/python3
"""ZolDiff against h5diff on the same values, in one run, and ZolDiff's peak memory.

    bench/diff_bench.py [--values N] [--rounds R] [--large]

Builds in build-bench/ (Release), generates two models of N values (default 10 million: six
results on a million nodes, their coordinates and ids, in blocks of 4 MiB as the HDF5 files'
chunks of 2^20 floats) that differ by seeded noise, and writes
the same values, model by model, into two HDF5 files of one float dataset each (gzip and
shuffle, chunks of 2^20 values). The relative tolerance R is twice the largest relative
difference, so that every pair passes in both tools: both read and compare every value and
report the files equal. A' is a copy of A (h5diff passes over a file compared with itself).
Then, round after round so that a shared machine's drift falls on all:

    ZolDiff --rtol R A B      h5diff -p R A.h5 B.h5
    ZolDiff A A'              h5diff A.h5 A'.h5
    zol_unpack A B            (reading every array of both models, comparing nothing)

With --large, also ZolDiff on a pair of ten times as many values, once, for its peak memory.
Prints a Markdown table: median seconds (wall clock), median CPU seconds (user and system, all
threads), ns per value, peak resident memory, ratios. The HDF5 files are written by a child
process of this script, so that the timed processes, forked from a small one, don't count its
memory as theirs.
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import benchtools

ROOT = Path(__file__).resolve().parents[1]
BUILD = ROOT / "build-bench"
CHUNK = 1 << 20


def build():
    # h5diff and h5py are needed here only; the project's setup installs what is missing.
    subprocess.run([ROOT / "scripts/setup.sh", "hdf5-tools", "python3-h5py", "libbenchmark-dev",
                    "ninja-build"], check=True)
    subprocess.run(["cmake", "-S", ROOT, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                    "-DMRL_BENCH=ON"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", BUILD, "-j2", "--target", "ZolDiff", "zolgen",
                    "zol_unpack", "_zolfile", "zolfile_modules"], check=True,
                   stdout=subprocess.DEVNULL)


def generate(folder, name, values, seed):
    """A model of `values` values; both models of a pair get the same file name, since the
    report names the model after it."""
    path = folder / name / "model.zol"
    path.parent.mkdir()
    nodes = values // 10
    subprocess.run([benchtools.zolgen(BUILD), "-o", path, "--nodes", str(nodes), "--elements", "1",
                    "--results", "6", "--components", "1", "--compressed", "--seed", str(seed),
                    "--piece-mib", "4"],
                   check=True, stdout=subprocess.DEVNULL)
    return path


def run_once(command, statuses=(0,)):
    """Wall seconds, CPU seconds and peak resident KiB of one run, which must end with one of
    the statuses."""
    start = time.monotonic()
    child = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    _, status, usage = os.wait4(child.pid, 0)
    seconds = time.monotonic() - start
    if os.waitstatus_to_exitcode(status) not in statuses:
        sys.exit(f"failed: {' '.join(map(str, command))}: {child.stderr.read().decode()}")
    return seconds, usage.ru_utime + usage.ru_stime, usage.ru_maxrss


def write_hdf5(folder):
    """The child's part: both models' values into HDF5 files; prints the tolerance."""
    sys.path.insert(0, str(BUILD / "python"))
    import h5py
    import numpy as np
    import zolfile

    values = {}
    for label in ("a", "b"):
        arrays = zolfile.open(str(folder / label / "model.zol")).arrays()
        # Flat: values() gives an (n, k) array for k components.
        values[label] = np.concatenate([x.values().astype(np.float32).reshape(-1)
                                        for x in arrays])
        with h5py.File(folder / f"{label}.h5", "w") as hdf:
            hdf.create_dataset("values", data=values[label], chunks=(CHUNK,),
                               compression="gzip", shuffle=True)
    low = np.minimum(np.abs(values["a"]), np.abs(values["b"]))
    apart = np.abs(values["a"] - values["b"])
    print(len(values["a"]), repr(float(2 * np.max(np.where(apart > 0, apart / np.maximum(
        low, 1e-30), 0)))))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--values", type=int, default=10_000_000)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--large", action="store_true")
    parser.add_argument("--write-hdf5", type=Path, help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.write_hdf5:
        write_hdf5(args.write_hdf5)
        return
    build()
    with tempfile.TemporaryDirectory(dir=ROOT / "bench") as scratch:
        folder = Path(scratch)
        a = generate(folder, "a", args.values, 1)
        b = generate(folder, "b", args.values, 2)
        copy = folder / "copy" / "model.zol"
        copy.parent.mkdir()
        shutil.copyfile(a, copy)
        made = subprocess.run([sys.executable, __file__, "--write-hdf5", folder], check=True,
                              capture_output=True, text=True).stdout.split()
        count, rtol = int(made[0]), float(made[1])
        h5 = {label: folder / f"{label}.h5" for label in ("a", "b")}
        h5["copy"] = folder / "copy.h5"
        shutil.copyfile(h5["a"], h5["copy"])
        diff, unpack = BUILD / "ZolDiff", BUILD / "bench/zol_unpack"
        commands = {
            "ZolDiff A B, rtol": [diff, "--rtol", repr(rtol), a, b],
            "h5diff A B, -p rtol": ["h5diff", "-p", repr(rtol), h5["a"], h5["b"]],
            "ZolDiff A A'": [diff, a, copy],
            "h5diff A A'": ["h5diff", h5["a"], h5["copy"]],
            "zol_unpack A B": [unpack, a, b],
        }
        times = {label: [] for label in commands}
        cpu = {label: [] for label in commands}
        peaks = {label: 0 for label in commands}
        for _ in range(args.rounds):
            for label, command in commands.items():
                seconds, used, peak = run_once(command)
                times[label].append(seconds)
                cpu[label].append(used)
                peaks[label] = max(peaks[label], peak)
        median = {label: statistics.median(times[label]) for label in commands}
        cpu_median = {label: statistics.median(cpu[label]) for label in commands}

        def ratio(ours, theirs):
            return (f"{median[theirs] / median[ours]:.2f}× faster than {theirs} "
                    f"({cpu_median[theirs] / cpu_median[ours]:.2f}× less CPU)")
        itself, alone = median["ZolDiff A A'"], median["zol_unpack A B"]
        ratios = {
            "ZolDiff A B, rtol": ratio("ZolDiff A B, rtol", "h5diff A B, -p rtol"),
            "ZolDiff A A'": ratio("ZolDiff A A'", "h5diff A A'") +
                            f"; {itself / alone:.2f}× the time of reading alone",
        }
        print(f"{count} values per model (Zol {a.stat().st_size / 2**20:.1f} MiB, HDF5 "
              f"{h5['a'].stat().st_size / 2**20:.1f} MiB), rtol {rtol:.3g}, {args.rounds} "
              f"rounds, {os.cpu_count()} cores, load average {os.getloadavg()[0]:.1f}\n")
        print("| command | median s (min–max) | CPU s | ns/value | peak RSS MiB | ratios |")
        print("|---|---|---|---|---|---|")
        for label in commands:
            print(f"| {label} | {median[label]:.3f} ({min(times[label]):.3f}–"
                  f"{max(times[label]):.3f}) | {cpu_median[label]:.3f} | "
                  f"{median[label] * 1e9 / count:.1f} | {peaks[label] / 1024:.0f} | "
                  f"{ratios.get(label, '')} |")
        if args.large:
            large_a = generate(folder, "large-a", 10 * args.values, 1)
            large_b = generate(folder, "large-b", 10 * args.values, 2)
            # More values meet larger differences: this pair may differ, which changes nothing
            # of what is read.
            seconds, _, peak = run_once([diff, "--rtol", repr(rtol), large_a, large_b], (0, 1))
            print(f"\n{10 * args.values} values per model ({large_a.stat().st_size / 2**20:.0f} "
                  f"MiB): ZolDiff A B {seconds:.1f} s, peak RSS {peak / 1024:.0f} MiB")


if __name__ == "__main__":
    main()
