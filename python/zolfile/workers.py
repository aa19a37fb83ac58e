"""Worker processes (pebble's process pool) that read files and may crash, hang or be killed
doing it.

Files go to the workers in batches: the pool's cost of a task (its future, the pickling, the
trips through its pipes and threads) is paid once a batch rather than once a file, where for
small models it was more than the reading. A batch is sized from the time the files read so
far took, to take a small part of the time limit, which applies to a batch as to one file.

A batch that fails (its worker died, or it ran out of time) is read again file by file, so
that it costs only the file that failed: a worker that dies or overruns its time limit on
one file costs that file, as an outcome of status "failed" or "timed out"; pebble replaces
the worker. A worker that dies between two batches costs nothing: the run says so and goes
on, and should the pool break over it, a new pool takes the files that were waiting.
Results come back as they finish.
"""

import concurrent.futures
import contextlib
import ctypes
import itertools
import multiprocessing
import os
import queue
import signal
import sys
import tempfile
import time

import pebble

from .records import FAILED, TIMED_OUT, examine, readable

# Forked workers start in milliseconds, which matters when hostile files kill many of them.
_CONTEXT = multiprocessing.get_context("fork")
# How many batches wait for each worker, so that a worker never idles between two of them.
_QUEUED_PER_JOB = 4
# A batch holds at most this many files, and is sized to take about this many seconds, and
# at most this share of the time limit: enough for the pool's cost to be a few percent of
# the reading, little enough that reading a failed batch again costs little.
_MOST_PER_BATCH = 64
_BATCH_SECONDS = 0.05
_BATCH_SHARE_OF_LIMIT = 0.05
# The size of the first batches, before any file's time is known.
_FIRST_BATCH = 4
# How often, in seconds, the run looks for workers that died between files.
_LOOK_EVERY = 0.25


def _start_worker(log_root, starts):
    _keep_freed_memory()
    # Each worker keeps its own trace log instead of emptying a shared one. Should that fail
    # (a full disk), the worker must still start: pebble would start it again and again.
    with contextlib.suppress(OSError):
        os.environ["MORLANE_TEMP_PATH"] = tempfile.mkdtemp(dir=log_root)
    with starts.get_lock():
        starts.value += 1


# glibc's mallopt parameters, and what they are set to in a worker.
_M_TRIM_THRESHOLD, _M_MMAP_THRESHOLD = -1, -3
_KEPT_BYTES, _MAPPED_FROM_BYTES = 64 << 20, 32 << 20


def _keep_freed_memory():
    # The library takes large block buffers for each file and glibc gives them back to the
    # system after it, so that the next file pays page faults for fresh zeroed memory (on
    # small models, half of a worker's time). A worker keeps up to 64 MiB freed instead.
    with contextlib.suppress(OSError, AttributeError):  # not glibc
        mallopt = ctypes.CDLL(None).mallopt
        mallopt(_M_MMAP_THRESHOLD, _MAPPED_FROM_BYTES)
        mallopt(_M_TRIM_THRESHOLD, _KEPT_BYTES)


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


def examine_batch(paths, read):
    """In a worker: examine's outcome for each path, and the seconds they took."""
    started = time.monotonic()
    return [examine(path, read) for path in paths], time.monotonic() - started


class _Reading:
    """The batches handed to the pool and not yet taken back."""

    def __init__(self, read, jobs, timeout, log_root):
        self.read, self.jobs, self.timeout, self.log_root = read, jobs, timeout, log_root
        self.pool = _Pool(jobs, log_root)
        self.waiting = {}  # future -> (items, tries)
        self.finished = queue.SimpleQueue()  # futures done, in the order they finished
        self.seconds_per_file = None

    def schedule(self, items, tries=0, future=None):
        while future is None:
            try:
                future = self.pool.pool.schedule(
                    examine_batch, ([item.path for item in items], self.read),
                    timeout=self.timeout)
            except RuntimeError:  # the pool broke since it was last looked at
                self._renew()
        self.waiting[future] = (items, tries)
        future.add_done_callback(self.finished.put)

    def fill(self, items):
        while len(self.waiting) < self.jobs * _QUEUED_PER_JOB:
            batch = list(itertools.islice(items, self._batch_size()))
            if not batch:
                return
            self.schedule(batch)

    def _batch_size(self):
        if self.seconds_per_file is None:
            return _FIRST_BATCH
        seconds = min(_BATCH_SECONDS, _BATCH_SHARE_OF_LIMIT * self.timeout)
        return max(1, min(_MOST_PER_BATCH, int(seconds / max(self.seconds_per_file, 1e-6))))

    def _timed(self, count, seconds):
        # A running mean that follows a share whose files grow slower, or faster.
        per_file = seconds / count
        old = self.seconds_per_file
        self.seconds_per_file = per_file if old is None else 0.7 * old + 0.3 * per_file

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
        items, tries = self.waiting.pop(future)
        outcomes, failure = _outcomes(future, self.pool, self.timeout)
        if failure is None:
            self._timed(len(items), outcomes[1])
            for item, outcome in zip(items, outcomes[0]):
                yield item, outcome or {}
        elif len(items) > 1:
            if failure["status"] == TIMED_OUT:  # slow files: the next batches are smaller
                self._timed(len(items), self.timeout)
            # Which of them failed is learnt by reading each alone.
            _say(f"{failure['error']} during a batch of {len(items)} files; reading it again "
                 "file by file")
            for item in items:
                self.schedule([item])
        elif failure.pop("died", False) and not tries:
            # pebble may blame a worker's death on the task whose result it sent just
            # before; the file is read once more to be sure.
            _say(f"{failure['error']} at {readable(items[0].path)}; reading it again")
            self.schedule(items, 1)
        else:
            yield items[0], failure

    def look_after_pool(self):
        deaths = self.pool.unexplained_deaths(self.waiting)
        if deaths:
            _say(f"{deaths} worker(s) ended between two files; replaced, no file lost, "
                 "the run goes on")
        if not self.pool.pool.active:
            self._renew()

    def _renew(self):
        # pebble gives up on a pool when a worker ends while no file is being read; the
        # files go to a new pool. A batch being read is read again file by file, and a file
        # being read alone gets one more try, as after a death.
        _say(f"the worker pool broke; a new one takes the "
             f"{sum(len(items) for items, _ in self.waiting.values())} waiting files")
        waiting, self.waiting = self.waiting, {}
        self.pool.stop()
        self.pool = _Pool(self.jobs, self.log_root)
        for future, (items, tries) in waiting.items():
            if not future.running():
                self.schedule(items, tries)
            elif len(items) > 1:
                for item in items:
                    self.schedule([item])
            elif tries:
                self.schedule(items, 1, _failed_future(
                    "the worker pool broke twice while it was read"))
            else:
                self.schedule(items, 1)


def _outcomes(future, pool, timeout):
    """(examine_batch's result, None), or (None, the outcome of a failure)."""
    try:
        return future.result(), None
    except concurrent.futures.TimeoutError:
        pool.replaced += 1
        return None, {"status": TIMED_OUT, "error": f"no result within {timeout:g} s"}
    except pebble.ProcessExpired as death:
        pool.replaced += 1
        return None, {"status": FAILED, "error": _death_text(death.exitcode), "died": True}


def _death_text(code):
    if code is not None and code < 0:
        return f"worker ended by signal {signal.Signals(-code).name}"
    return f"worker ended with status {code}"


def _failed_future(error):
    future = concurrent.futures.Future()
    future.set_result(([{"status": FAILED, "error": error}], 0.0))
    return future
