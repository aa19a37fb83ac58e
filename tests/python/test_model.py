"""The model's arrays against ZolInfo's dump, and their records (reports: test_damage)."""
import re

import numpy as np
import pytest

import zolfile
from conftest import run_zolinfo


def sections(dump):
    """The dump's Coordinates, Connectivity and value lines of its (single) analysis."""
    parts = {}
    for head, lines in re.findall(r"^ *(Coordinates :|Connectivity :|Values :) *\n"
                                  r"((?:.*\S.*\n)*)", dump, re.M):
        parts.setdefault(head, []).extend(line.split() for line in lines.splitlines())
    return parts


def rows(first, values):
    """Dump rows: a first column, then the texts of a row of values."""
    return [[str(f), *("%g" % v if isinstance(v, float) else str(v) for v in row)]
            for f, row in zip(first, values)]


def test_arrays_match_the_dump(models):
    # One part and one analysis: the dump then shows every mesh array whole.
    model = zolfile.open(str(models["packed-3comp"]))
    arrays = {a.name: a.values() for a in model.arrays()}
    ids, lengths = arrays["Node Ids"].astype(int).tolist(), arrays["Polylength"].tolist()
    elements = np.split(arrays["Connectivity"], np.cumsum(lengths)[:-1])
    # One "Data : " section per instance, in name order: the id, then the result's columns.
    stress = sorted((a for a in model.arrays() if a.result == "Stress"), key=lambda a: a.instance)
    assert sections(run_zolinfo("--extract-data", models["packed-3comp"]).stdout) == {
        "Coordinates :": rows(ids, arrays["Coordinates"].reshape(-1, 3).tolist()),
        "Connectivity :": rows(lengths, [e.tolist() for e in elements]),
        "Values :": [row for a in stress
                     for row in rows(ids, a.values().reshape(len(ids), -1).tolist())]}


def test_records_views_and_history(models):
    model = zolfile.open(str(models["example"]))
    arrays = model.arrays()
    assert [(a.result, a.kind, a.values().dtype.char) for a in arrays] == [
        ("Coordinates", 0, "f"), ("Node Ids", 12, "f"), ("Polylength", 5, "I"),
        ("Connectivity", 4, "I"), ("Stress", 12, "f"), ("Stress", 12, "f"),
        ("Displacement", 13, "f")]
    assert (arrays[1].analysis, arrays[1].geometry, arrays[1].element_sets) == (
        "Static", "Wheel", ["Wheel", "Cut 1"])
    assert arrays[4].instance == "Step 1\x1eIncrement 10"
    assert model.analyses() == ["Static"] and model.version == "1.1"
    assert [t["user_name"] for t in model.translations] == ["designer", "analyst"]
    # Values are one shared read-only view while alive, and outlive the model's handles.
    first = arrays[0].values()
    assert not first.flags.writeable and not first.flags.owndata
    with pytest.raises(ValueError):
        first[0] = 1.0
    assert arrays[0].values() is first
    del model, arrays
    assert np.isfinite(first).all()
