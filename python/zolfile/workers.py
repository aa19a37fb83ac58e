"""Worker processes (pebble's process pool) that read files one at a time and may crash, hang
or be killed doing it.

A worker that dies or overruns its time limit costs only the file it was reading, as an
outcome of status "failed" or "timed out"; pebble replaces it. A worker that dies between
two files costs nothing: the run says so and goes on, and should the pool break over it,
a new pool takes the files that were waiting. Results come back as they finish.
"""

import concurrent.futures
import contextlib
import multiprocessing
import os
import queue
import signal
import sys
import tempfile

import pebble

from .records import FAILED, TIMED_OUT, examine, readable

# Forked workers start in milliseconds, which matters when hostile files kill many of them.
_CONTEXT = multiprocessing.get_context("fork")
# How many files wait for each worker, so that a worker never idles between two files.
_QUEUED_PER_JOB = 4
# How often, in seconds, the run looks for workers that died between files.
_LOOK_EVERY = 0.25


def _start_worker(log_root, starts):
    # Each worker keeps its own trace log instead of emptying a shared one. Should that fail
    # (a full disk), the worker must still start: pebble would start it again and again.
    with contextlib.suppress(OSError):
        os.environ["MORLANE_TEMP_PATH"] = tempfile.mkdtemp(dir=log_root)
    with starts.get_lock():
        starts.value += 1


class _Pool:
    """A pebble pool and the count of its workers' starts, which tells of workers that
    ended without a file to blame."""

    def __init__(self, jobs, log_root):
        self.jobs = jobs
        self.starts = _CONTEXT.Value("i", 0)
        self.replaced = 0  # workers ended by a file: timed out or died reading it
        self.noticed = 0
        self.pool = pebble.ProcessPool(jobs, initializer=_start_worker,
                                       initargs=(log_root, self.starts), context=_CONTEXT)

    def unexplained_deaths(self, waiting):
        """How many workers ended between files since last asked."""
        # Replacements for files whose outcome is in but not yet taken are explained too.
        pending = sum(1 for f in waiting if f.done() and isinstance(
            f.exception(), (concurrent.futures.TimeoutError, pebble.ProcessExpired)))
        ended = self.starts.value - self.jobs - self.replaced - pending
        deaths = max(0, ended - self.noticed)
        self.noticed += deaths
        return deaths

    def stop(self):
        self.pool.stop()
        self.pool.join()


def _say(text):
    print(f"zolfile: {text}", file=sys.stderr, flush=True)


def read_all(items, read, jobs, timeout):
    """Yields (item, outcome) for each item; outcome is examine's (empty for a file that is no
    model), or a failure when the worker died or ran out of time."""
    items = iter(items)
    with tempfile.TemporaryDirectory(prefix="zolfile-logs-") as log_root:
        reading = _Reading(read, jobs, timeout, log_root)
        try:
            while True:
                reading.fill(items)
                if not reading.waiting:
                    return
                yield from reading.take_finished()
                reading.look_after_pool()
        finally:
            reading.pool.stop()


class _Reading:
    """The files handed to the pool and not yet taken back."""

    def __init__(self, read, jobs, timeout, log_root):
        self.read, self.jobs, self.timeout, self.log_root = read, jobs, timeout, log_root
        self.pool = _Pool(jobs, log_root)
        self.waiting = {}  # future -> (item, tries)
        self.finished = queue.SimpleQueue()  # futures done, in the order they finished

    def schedule(self, item, tries=0, future=None):
        while future is None:
            try:
                future = self.pool.pool.schedule(examine, (item.path, self.read),
                                                 timeout=self.timeout)
            except RuntimeError:  # the pool broke since it was last looked at
                self._renew()
        self.waiting[future] = (item, tries)
        future.add_done_callback(self.finished.put)

    def fill(self, items):
        while len(self.waiting) < self.jobs * _QUEUED_PER_JOB:
            item = next(items, None)
            if item is None:
                return
            self.schedule(item)

    def take_finished(self):
        try:
            future = self.finished.get(timeout=_LOOK_EVERY)
        except queue.Empty:
            return
        while future is not None:
            if future in self.waiting:  # not one of a pool given up on
                yield from self._take(future)
            try:
                future = self.finished.get_nowait()
            except queue.Empty:
                future = None

    def _take(self, future):
        item, tries = self.waiting.pop(future)
        outcome = _outcome(future, self.pool, self.timeout)
        if outcome.pop("died", False) and not tries:
            # pebble may blame a worker's death on the file whose result it sent just
            # before; the file is read once more to be sure.
            _say(f"{outcome['error']} at {readable(item.path)}; reading it again")
            self.schedule(item, 1)
        else:
            yield item, outcome

    def look_after_pool(self):
        deaths = self.pool.unexplained_deaths(self.waiting)
        if deaths:
            _say(f"{deaths} worker(s) ended between two files; replaced, no file lost, "
                 "the run goes on")
        if not self.pool.pool.active:
            self._renew()

    def _renew(self):
        # pebble gives up on a pool when a worker ends while no file is being read; the
        # files go to a new pool. One that was being read gets one more try, as after a death.
        _say(f"the worker pool broke; a new one takes the {len(self.waiting)} waiting files")
        waiting, self.waiting = self.waiting, {}
        self.pool.stop()
        self.pool = _Pool(self.jobs, self.log_root)
        for future, (item, tries) in waiting.items():
            if future.running() and tries:
                self.schedule(item, 1, _failed_future(
                    "the worker pool broke twice while it was read"))
            else:
                self.schedule(item, tries + future.running())


def _outcome(future, pool, timeout):
    try:
        return future.result() or {}
    except concurrent.futures.TimeoutError:
        pool.replaced += 1
        return {"status": TIMED_OUT, "error": f"no result within {timeout:g} s"}
    except pebble.ProcessExpired as death:
        pool.replaced += 1
        return {"status": FAILED, "error": _death_text(death.exitcode), "died": True}


def _death_text(code):
    if code is not None and code < 0:
        return f"worker ended by signal {signal.Signals(-code).name}"
    return f"worker ended with status {code}"


def _failed_future(error):
    future = concurrent.futures.Future()
    future.set_result({"status": FAILED, "error": error})
    return future
