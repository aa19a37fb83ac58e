#!/usr/bin/python3
"""Times shell commands as whole processes, taking them in turn round after round, so that a
shared machine's drift falls on all of them alike.

    alternate.py OUT.json RUNS LABEL COMMAND [LABEL COMMAND ...]

Each command runs under `bash -c` with its output as the command itself sends it. For each label
OUT.json gets the seconds of every round, their median, and the peak resident memory of the
largest process of the command (a pipeline's largest member), in KiB.
"""
import json
import os
import statistics
import subprocess
import sys
import time


def run_once(command):
    start = time.monotonic()
    child = subprocess.Popen(["bash", "-c", command], stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    seconds = time.monotonic() - start
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit("failed (%d): %s" % (child.returncode, command))
    return seconds, usage.ru_maxrss


def main():
    out, runs, pairs = sys.argv[1], int(sys.argv[2]), sys.argv[3:]
    if runs < 1 or not pairs or len(pairs) % 2:
        sys.exit(__doc__)
    commands = list(zip(pairs[0::2], pairs[1::2]))
    times = {label: [] for label, _ in commands}
    peaks = {label: 0 for label, _ in commands}
    for _ in range(runs):
        for label, command in commands:
            seconds, peak = run_once(command)
            times[label].append(seconds)
            peaks[label] = max(peaks[label], peak)
    result = {label: {"seconds": times[label], "median": statistics.median(times[label]),
                      "peak_kib": peaks[label], "command": command}
              for label, command in commands}
    with open(out, "w") as f:
        json.dump(result, f, indent=1)
    for label, _ in commands:
        print("%-34s median %8.3f s  (%s)  peak %6.0f MiB" % (
            label, result[label]["median"], " ".join("%.3f" % t for t in times[label]),
            peaks[label] / 1024))


if __name__ == "__main__":
    main()
