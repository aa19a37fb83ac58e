"""Two models compared as ZolDiff compares them.

    report = zolfile.diff("a.zol", "b.zol", rtol=1e-6, tolerance={"Temp*": {"atol": 0.01}})
    report["equal"], report["arrays"][0]["max_abs"]

The dict is ZolDiff's JSON report (docs/diff.md). `python3 -m zolfile diff` is ZolDiff itself:
the same options, output and exit status.
"""
import json
import os
import sys

from . import _zolfile
from .errors import Error


def _texts(value):
    return [value] if isinstance(value, (str, bytes, os.PathLike)) else list(value)


def _tolerance_text(settings):
    if isinstance(settings, str):
        return settings
    return ",".join(f"{key}:{value!r}" for key, value in settings.items())


def arguments(atol=None, rtol=None, ulps=None, tolerance=None, ignore=(), ignore_entry=(),
              match=None, max_report=None):
    """ZolDiff's options for these settings. `tolerance` maps a result-name glob to
    {"rtol": ..., "atol": ..., "ulps": ...} or to the text "rtol:1e-6,atol:1e-9"; the first
    glob that matches wins, in the dict's order."""
    args = []
    for name, value in (("--atol", atol), ("--rtol", rtol), ("--ulps", ulps),
                        ("--match", match), ("--max-report", max_report)):
        if value is not None:
            args += [name, repr(value) if isinstance(value, float) else str(value)]
    for glob, settings in (tolerance or {}).items():
        args += ["--tolerance", f"{glob}={_tolerance_text(settings)}"]
    for glob in _texts(ignore):
        args += ["--ignore", glob]
    for glob in _texts(ignore_entry):
        args += ["--ignore-entry", glob]
    return args


def _run(args):
    return _zolfile._diff([os.fsencode(arg) for arg in args])


def diff(a, b, **tolerances):
    """The comparison of the models at paths a and b as a dict (ZolDiff's JSON report).
    A bad setting raises ValueError, a model that can't be read zolfile.Error."""
    args = arguments(**tolerances) + ["--json", "-", "--", a, b]
    status, out, err, bad_arguments = _run(args)
    if status == 2:
        text = os.fsdecode(err).strip()
        text = text[len("ZolDiff: "):] if text.startswith("ZolDiff: ") else text
        raise (ValueError if bad_arguments else Error)(text)
    return json.loads(out.decode("utf-8", "surrogatepass"))


def main(argv):
    """`python3 -m zolfile diff ARGS...`: ZolDiff's run; returns its status."""
    status, out, err, _ = _run(argv)
    sys.stdout.flush()
    sys.stdout.buffer.write(out)
    sys.stdout.flush()
    sys.stderr.buffer.write(err)
    sys.stderr.flush()
    return status
