"""The model's facts and arrays against what ZolInfo writes for the same file."""
import html
import re

import numpy as np
import pytest

import zolfile
from conftest import run_zolinfo

ENTRY = re.compile(r'<(?:attribute|data) name="([^"]*)" value="([^"]*)"/>')


def report_entries(text):
    return [(html.unescape(k), html.unescape(v)) for k, v in ENTRY.findall(text)]


def test_report_matches_zolinfo(model_path, tmp_path):
    model = zolfile.open(str(model_path))
    assert model.report() == report_entries(run_zolinfo(model_path).stdout)
    run_zolinfo("--ekm-meta-data", model_path, cwd=tmp_path)
    ekm = (tmp_path / "ekm-meta-data.xml").read_text()
    assert model.ekm_report() == report_entries(ekm)


def sections(dump):
    """The dump's Coordinates, Connectivity and value lines of its (single) analysis."""
    parts, current = {}, None
    for line in dump.splitlines():
        head = line.strip()
        if head in ("Coordinates :", "Connectivity :", "Values :"):
            current = parts.setdefault(head, [])
        elif not head:
            current = None
        elif current is not None:
            current.append(head.split())
    return parts


def texts(values):
    return ["%g" % v if isinstance(v, float) else str(v) for v in values]


def test_arrays_match_the_dump(models):
    # One part and one analysis: the dump then shows every mesh array whole.
    model = zolfile.open(str(models["packed-3comp"]))
    dump = sections(run_zolinfo("--extract-data", models["packed-3comp"]).stdout)
    arrays = {a.name: a.values() for a in model.arrays()}
    ids = np.trunc(arrays["Node Ids"]).astype(int)
    xyz = arrays["Coordinates"].reshape(-1, 3).tolist()
    assert dump["Coordinates :"] == [[str(i), *texts(p)] for i, p in zip(ids, xyz)]
    lengths, flat, rows = arrays["Polylength"], arrays["Connectivity"].tolist(), []
    for n in lengths.tolist():
        rows.append(texts([n, *flat[:n]]))
        flat = flat[n:]
    assert dump["Connectivity :"] == rows
    # One "Data : " section per instance, in name order: the id, then the result's columns.
    expected = []
    for result in sorted((a for a in model.arrays() if a.result == "Stress"),
                         key=lambda a: a.instance):
        rows = result.values().reshape(len(ids), -1).astype(float).tolist()
        expected += [[str(i), *texts(row)] for i, row in zip(ids, rows)]
    assert dump["Values :"] == expected


def test_records_views_and_history(models):
    model = zolfile.open(str(models["example"]))
    arrays = model.arrays()
    assert [a.name.split("\x1e")[0] for a in arrays] == [
        "Coordinates", "Node Ids", "Polylength", "Connectivity", "Stress", "Stress",
        "Displacement"]
    ids = arrays[1]
    assert (ids.analysis, ids.geometry, ids.element_sets) == ("Static", "Wheel",
                                                              ["Wheel", "Cut 1"])
    assert (arrays[4].result, arrays[4].instance) == ("Stress", "Step 1\x1eIncrement 10")
    kinds = {a.result: (a.kind, a.values().dtype) for a in arrays}
    assert kinds["Connectivity"] == (4, np.uint32) and kinds["Stress"] == (12, np.float32)
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
