#!/usr/bin/python3
"""Times the catalogue against a shell loop of ZolInfo on many small generated models.

    bench/catalog_bench.py [--files N] [--jobs N] [--build DIR] [--no-write]

Builds ZolInfo, the model generator and the zolfile package in build-bench/ (or takes them
from DIR, built already), generates the models once into bench/work/catalog/, then in one run
times: the shell loop (one ZolInfo per file, report into a file), the catalogue into a fresh
database, and its re-run that skips every file. Beside the seconds it gives the CPU time
(user and system, of every process of the command) per file, which a busy machine changes
far less than the seconds.
The figures replace the catalogue section of bench/results.md, unless --no-write.
"""

import argparse
import glob
import os
import re
import resource
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.join(ROOT, "build-bench")
WORK = os.path.join(ROOT, "bench", "work", "catalog")
RESULTS = os.path.join(ROOT, "bench", "results.md")
HEADING = "## Catalogue of many small models"


def build(directory):
    global BUILD
    if directory:
        BUILD = directory
        return glob.glob(os.path.join(BUILD, "**", "zolgen"), recursive=True)[0]
    subprocess.run([os.path.join(ROOT, "scripts", "setup.sh")], check=True)
    subprocess.run(["cmake", "-S", ROOT, "-B", BUILD, "-DCMAKE_BUILD_TYPE=Release"],
                   check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", BUILD, "-j2", "--target", "ZolInfo", "zolgen",
                    "_zolfile", "zolfile_modules"], check=True, stdout=subprocess.DEVNULL)
    return glob.glob(os.path.join(BUILD, "**", "zolgen"), recursive=True)[0]


def generate(zolgen, models, count):
    os.makedirs(models, exist_ok=True)
    have = set(os.listdir(models))
    versions = ("0.6", "0.7", "1.1")
    for number in range(count):
        name = f"m{number:05}.zol"
        if name not in have:
            subprocess.run([zolgen, "-o",
                            os.path.join(models, name), "--nodes", str(100 + number % 400),
                            "--elements", "100", "--results", str(1 + number % 3),
                            "--version", versions[number % 3], "--seed", str(number)],
                           check=True, stdout=subprocess.DEVNULL)
    return sorted(os.listdir(models))[:count]


def timed(command, **options):
    """(seconds, CPU seconds of the command's processes)."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    started = time.monotonic()
    subprocess.run(command, check=True, **options)
    seconds = time.monotonic() - started
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return seconds, (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)


def shell_loop(models, names):
    reports = os.path.join(WORK, "reports")
    os.makedirs(reports, exist_ok=True)
    script = ('for f in "$@"; do "$ZOLINFO" "$f" "$REPORTS/$(basename "$f").xml"'
              ' >/dev/null 2>&1; done')
    environment = dict(os.environ, ZOLINFO=os.path.join(BUILD, "ZolInfo"), REPORTS=reports,
                       MORLANE_TEMP_PATH=WORK)
    return timed(["bash", "-c", script, "loop"] + [os.path.join(models, n) for n in names],
                 env=environment)


def catalogue(models, jobs):
    database = os.path.join(WORK, "catalog.sqlite")
    for suffix in ("", "-wal", "-shm"):
        if os.path.exists(database + suffix):
            os.remove(database + suffix)
    command = [sys.executable, "-m", "zolfile", "catalog", models, "--db", database,
               "--jobs", str(jobs)]
    environment = dict(os.environ, PYTHONPATH=os.path.join(BUILD, "python"))
    return (timed(command, env=environment, stderr=subprocess.DEVNULL),
            timed(command, env=environment, stderr=subprocess.DEVNULL))


def write_results(count, jobs, loop, fresh, rerun, load, write):
    rows = [("shell loop, one ZolInfo per file", loop),
            (f"catalog --jobs {jobs}, fresh database", fresh),
            ("catalog re-run, every file skipped", rerun)]
    load_after = os.getloadavg()[0]
    section = [HEADING, "",
               f"Made by `bench/catalog_bench.py`: {count} generated models of 2 to 6 KB, "
               f"{os.cpu_count()} cores (load average {load:.1f} at the start, {load_after:.1f} "
               "at the end, the machine being shared), one run. CPU: user and system time of "
               "all the command's processes.", "",
               "| what | seconds | files/s | CPU ms per file | speed-up over the loop |",
               "|---|---|---|---|---|"]
    section += [f"| {what} | {seconds:.2f} | {count / seconds:.0f} | {1000 * cpu / count:.3f} | "
                f"{loop[0] / seconds:.1f}× |" for what, (seconds, cpu) in rows]
    print("\n".join(section))
    if not write:
        return
    text = open(RESULTS).read() if os.path.exists(RESULTS) else ""
    old = re.compile(re.escape(HEADING) + r".*?(?=^## |\Z)", re.S | re.M)
    new = "\n".join(section) + "\n\n"
    text = old.sub(new, text) if old.search(text) else text.rstrip("\n") + "\n\n" + new
    with open(RESULTS, "w") as out:
        out.write(text.rstrip("\n") + "\n")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--files", type=int, default=5000)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--build", help="a build tree holding ZolInfo, zolgen and the package")
    parser.add_argument("--no-write", action="store_true",
                        help="print the figures without writing bench/results.md")
    options = parser.parse_args()
    zolgen = build(options.build)
    models = os.path.join(WORK, f"models-{options.files}")
    names = generate(zolgen, models, options.files)
    load = os.getloadavg()[0]
    loop = shell_loop(models, names)
    fresh, rerun = catalogue(models, options.jobs)
    write_results(len(names), options.jobs, loop, fresh, rerun, load, not options.no_write)


if __name__ == "__main__":
    main()
