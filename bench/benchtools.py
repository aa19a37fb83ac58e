"""What the Python benchmarks share: the best time of repeated runs, and the model generator
of a build tree."""
import time


def best(run, repeat):
    """The shortest of `repeat` timed calls of run(), in seconds."""
    times = []
    for _ in range(repeat):
        start = time.perf_counter()
        run()
        times.append(time.perf_counter() - start)
    return min(times)


def zolgen(build):
    """zolgen in a build tree: the tests' build puts it in tests/, a benchmark build in bench/."""
    return next(p for p in (build / "tests/zolgen", build / "bench/zolgen", build / "python/zolgen")
                if p.exists())
