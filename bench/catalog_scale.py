#!/usr/bin/python3
"""The catalogue at scale: peak memory over a million files, an unchanged re-run, and the
README's queries over a catalogue of 100,000 files.

    bench/catalog_scale.py [--files N] [--query-files N] [--build DIR]

The share is bench/work/scale/: eight tiny generated models, hard-linked into N paths (1,000
to a directory), so that a million files take little room. Uses the package and zolgen built in
DIR (default build/). The figures replace the scale section of bench/results.md.
"""

import argparse
import glob
import os
import platform
import resource
import shutil
import sqlite3
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
WORK = os.path.join(ROOT, "bench", "work", "scale")
HEADING = "## Catalogue at scale"
# The README's queries, as written there.
QUERIES = {
    "Stress and over a million nodes": """
        SELECT path FROM entries AS e JOIN files AS f ON f.id = e.file_id
        WHERE e.name = 'Number of Nodes' AND CAST(e.value AS INTEGER) > 1000000
          AND EXISTS (SELECT 1 FROM arrays WHERE file_id = f.id AND result = 'Stress')""",
    "refused files": "SELECT path, error_kind, error FROM files WHERE status = 'refused' "
                     "ORDER BY path",
    "counts by status": "SELECT status, count(*) FROM files GROUP BY status",
    "titles like": "SELECT path, value FROM files JOIN entries ON file_id = id "
                   "WHERE name = 'Title' AND value LIKE '%wheel%'",
    "20 largest transient": """
        SELECT path, size FROM files AS f
        WHERE EXISTS (SELECT 1 FROM entries WHERE file_id = f.id AND name = 'Category'
                      AND value = 'Transient')
        ORDER BY size DESC LIMIT 20""",
}


def share(zolgen, count):
    models = [os.path.join(WORK, f"model{n}.zol") for n in range(8)]
    for n, path in enumerate(models):
        if not os.path.exists(path):
            subprocess.run([zolgen, "-o", path, "--nodes", str(20 + 7 * n), "--elements", "5",
                            "--results", str(1 + n % 3), "--version", ("0.6", "0.7", "1.1")[n % 3],
                            "--seed", str(n)], check=True, stdout=subprocess.DEVNULL)
    top = os.path.join(WORK, f"share-{count}")
    seeds = []
    for number in range(count):
        if number % _PER_SEED == 0:  # a file system allows only so many links to one file
            seeds = _seeds(models, number // _PER_SEED)
        directory = os.path.join(top, f"d{number // 1000:04}")
        if number % 1000 == 0:
            os.makedirs(directory, exist_ok=True)
        path = os.path.join(directory, f"f{number % 1000:03}.zol")
        if not os.path.exists(path):
            os.link(seeds[number % 8], path)
    return top


_PER_SEED = 400_000


def _seeds(models, group):
    directory = os.path.join(WORK, f"seed{group}")
    os.makedirs(directory, exist_ok=True)
    seeds = [os.path.join(directory, os.path.basename(model)) for model in models]
    for model, seed in zip(models, seeds):
        if not os.path.exists(seed):
            shutil.copy(model, seed)
    return seeds


def catalogue(build, paths, database, jobs):
    """(seconds, peak resident MB of the run and its workers)."""
    command = [sys.executable, "-m", "zolfile", "catalog", *paths, "--db", database,
               "--jobs", str(jobs)]
    environment = dict(os.environ, PYTHONPATH=os.path.join(build, "python"))
    before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    started = time.monotonic()
    subprocess.run(command, env=environment, check=True, stderr=subprocess.DEVNULL)
    seconds = time.monotonic() - started
    peak = max(before, resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)
    return seconds, peak / 1024


def fresh(database):
    for suffix in ("", "-wal", "-shm"):
        if os.path.exists(database + suffix):
            os.remove(database + suffix)


def query_times(database):
    with sqlite3.connect(database) as connection:
        times = {}
        for name, sql in QUERIES.items():
            best = float("inf")
            for _ in range(3):
                started = time.monotonic()
                connection.execute(sql).fetchall()
                best = min(best, time.monotonic() - started)
            times[name] = best * 1000
    return times


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--files", type=int, default=1_000_000)
    parser.add_argument("--query-files", type=int, default=100_000)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--build", default=os.path.join(ROOT, "build"))
    options = parser.parse_args()
    zolgen = glob.glob(os.path.join(options.build, "**", "zolgen"), recursive=True)[0]
    os.makedirs(WORK, exist_ok=True)
    top = share(zolgen, options.files)
    load = os.getloadavg()[0]
    database = os.path.join(WORK, "scale.sqlite")
    fresh(database)
    # The memory figure must come first: RUSAGE_CHILDREN keeps the largest child's peak.
    first, peak = catalogue(options.build, [top], database, options.jobs)
    again, _ = catalogue(options.build, [top], database, options.jobs)
    small = database
    directories = sorted(glob.glob(os.path.join(top, "d*")))[:options.query_files // 1000]
    if options.query_files < options.files:
        small = os.path.join(WORK, "queries.sqlite")
        fresh(small)
        catalogue(options.build, directories, small, options.jobs)
    times = query_times(small)
    section = [HEADING, "",
               f"Made by `bench/catalog_scale.py`: tiny generated models hard-linked into "
               f"{options.files:,} paths, `--jobs {options.jobs}`, on {platform.machine()} with "
               f"{os.cpu_count()} cores (load average {load:.1f} at the start, the machine being "
               "shared), one run.", "",
               "| what | figure |", "|---|---|",
               f"| fresh catalogue of {options.files:,} files | {first:.0f} s, "
               f"{options.files / first:.0f} files/s |",
               f"| peak resident memory of any process of that run | {peak:.0f} MB |",
               f"| unchanged re-run (stat only) | {again:.0f} s, "
               f"{options.files / again:.0f} files/s |"]
    section += [f"| query at {len(directories) * 1000:,} files: {name} | {ms:.1f} ms |"
                for name, ms in times.items()]
    results = os.path.join(ROOT, "bench", "results.md")
    text = open(results).read()
    new = "\n".join(section) + "\n"
    if HEADING in text:
        start = text.index(HEADING)
        end = text.find("\n## ", start + 1)
        text = text[:start] + new + (text[end:] if end >= 0 else "")
    else:
        text = text.rstrip("\n") + "\n\n" + new
    with open(results, "w") as out:
        out.write(text)
    print(new)


if __name__ == "__main__":
    main()
