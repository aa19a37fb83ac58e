"""Worker processes that read files one at a time and may crash or hang doing it.

A worker that dies or overruns its time limit is replaced; only the file it was reading is
lost, as an outcome of status "failed" or "timed out". Results come back as they finish.
"""

import collections
import multiprocessing
import multiprocessing.connection
import os
import signal
import tempfile
import time

from .records import FAILED, TIMED_OUT

# Forked workers start in milliseconds, which matters when hostile files kill many of them.
_CONTEXT = multiprocessing.get_context("fork")


def _serve(connection, run_end, read, log_directory):
    # The fork left this worker a copy of the run's end of the pipe; closed, the run's death
    # ends the pipe and the worker with it, even when the run was killed outright.
    run_end.close()
    # Each worker keeps its own trace log instead of emptying a shared one.
    os.environ["MORLANE_TEMP_PATH"] = log_directory
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    while True:
        try:
            path = connection.recv()
        except (EOFError, OSError):
            return
        try:
            outcome = read(path)
        except Exception as error:  # any reader fault costs this one file only
            outcome = {"status": FAILED, "error": f"{type(error).__name__}: {error}"}
        try:
            connection.send(outcome)
        except OSError:  # the run was killed while this file was read
            return


class _Worker:
    def __init__(self, read, log_root):
        log_directory = tempfile.mkdtemp(dir=log_root)
        self.connection, child = _CONTEXT.Pipe()
        self.process = _CONTEXT.Process(
            target=_serve, args=(child, self.connection, read, log_directory), daemon=True)
        self.process.start()
        child.close()
        self.task = None
        self.deadline = 0.0

    def give(self, task, timeout):
        self.task = task
        self.deadline = time.monotonic() + timeout
        self.connection.send(task[0])

    def stop(self):
        self.connection.close()
        if self.process.is_alive():
            self.process.kill()
        self.process.join()


def _death_text(process):
    code = process.exitcode
    if code is not None and code < 0:
        return f"worker ended by signal {signal.Signals(-code).name}"
    return f"worker ended with status {code}"


def run(tasks, read, jobs, timeout):
    """Yields (task, outcome) for each task; task[0] is the path given to read(path).

    outcome is read's dict, or a failure dict when the worker died or ran out of time.
    """
    waiting = collections.deque(tasks)
    with tempfile.TemporaryDirectory(prefix="zolfile-logs-") as log_root:
        idle = [_Worker(read, log_root) for _ in range(max(1, min(jobs, len(waiting))))]
        busy = []
        try:
            while waiting or busy:
                while waiting and idle:
                    worker = idle.pop()
                    worker.give(waiting.popleft(), timeout)
                    busy.append(worker)
                yield from _collect(busy, idle, read, log_root, timeout)
        finally:
            for worker in idle + busy:
                worker.stop()


def _collect(busy, idle, read, log_root, timeout):
    wait_for = min(worker.deadline for worker in busy) - time.monotonic()
    ready = set(multiprocessing.connection.wait(
        [w.connection for w in busy] + [w.process.sentinel for w in busy], max(0.0, wait_for)))
    now = time.monotonic()
    for worker in list(busy):
        outcome, lost = _outcome(worker, ready, now, timeout)
        if outcome is None:
            continue
        busy.remove(worker)
        task = worker.task
        if lost:
            worker.stop()
            worker = _Worker(read, log_root)
        idle.append(worker)
        yield task, outcome


def _outcome(worker, ready, now, timeout):
    """(outcome or None while still working, whether the worker is lost)."""
    if worker.connection in ready:
        try:
            return worker.connection.recv(), False
        except (EOFError, OSError):
            pass
    elif worker.process.sentinel not in ready:
        if now < worker.deadline:
            return None, False
        return {"status": TIMED_OUT, "error": f"no result within {timeout:g} s"}, True
    worker.process.join()
    return {"status": FAILED, "error": _death_text(worker.process)}, True
