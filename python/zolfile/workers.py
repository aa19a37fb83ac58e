"""Worker processes (pebble's process pool) that read files one at a time and may crash, hang
or be killed doing it.

A worker that dies or overruns its time limit costs only the file it was reading, as an
outcome of status "failed" or "timed out"; pebble replaces it. A worker that dies between
two files costs nothing: the run says so and goes on, and should the pool break over it,
a new pool takes the files that were waiting. Results come back as they finish.
"""

import concurrent.futures
import multiprocessing
import os
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
    # Each worker keeps its own trace log instead of emptying a shared one.
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
        pool = _Pool(jobs, log_root)
        waiting = {}  # future -> (item, how many pools it waited in)
        try:
            while True:
                _fill(pool, items, waiting, timeout, read, jobs * _QUEUED_PER_JOB)
                if not waiting:
                    return
                done, _ = concurrent.futures.wait(
                    waiting, _LOOK_EVERY, concurrent.futures.FIRST_COMPLETED)
                for future in done:
                    item, tries = waiting.pop(future)
                    outcome = _outcome(future, pool, timeout)
                    if outcome.get("died") and not tries:
                        # pebble may blame a worker's death on the file whose result it
                        # sent just before; the file is read once more to be sure.
                        _say(f"{outcome['error']} at {readable(item.path)}; reading it again")
                        waiting[_schedule(pool, item, read, timeout)] = (item, 1)
                        continue
                    outcome.pop("died", None)
                    yield item, outcome
                deaths = pool.unexplained_deaths(waiting)
                if deaths:
                    _say(f"{deaths} worker(s) ended between two files; replaced, "
                         "no file lost, the run goes on")
                if not pool.pool.active:
                    pool = _renew(pool, waiting, jobs, log_root, timeout, read)
        finally:
            pool.stop()


def _fill(pool, items, waiting, timeout, read, size):
    while len(waiting) < size:
        item = next(items, None)
        if item is None:
            return
        waiting[_schedule(pool, item, read, timeout)] = (item, 0)


def _schedule(pool, item, read, timeout):
    return pool.pool.schedule(examine, (item.path, read), timeout=timeout)


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


def _renew(pool, waiting, jobs, log_root, timeout, read):
    # pebble gives up on a pool when a worker ends while no file is being read; the files
    # go to a new pool. One that was being read gets one more try, as after a death.
    _say(f"the worker pool broke; a new one takes the {len(waiting)} waiting files")
    running = {future for future in waiting if future.running()}
    pool.stop()
    pool = _Pool(jobs, log_root)
    for future, (item, tries) in list(waiting.items()):
        del waiting[future]
        if future in running and tries:
            waiting[_failed_future("the worker pool broke twice while it was read")] = (item, 1)
        else:
            waiting[_schedule(pool, item, read, timeout)] = (item, tries + (future in running))
    return pool


def _failed_future(error):
    future = concurrent.futures.Future()
    future.set_result({"status": FAILED, "error": error})
    return future
