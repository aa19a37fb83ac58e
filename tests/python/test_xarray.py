"""The xarray engine: groups, dimensions, lazy reads, Dask chunks and a distributed cluster."""
import numpy as np
import pytest
import xarray as xr

import zolfile
from zolfile import model as zolmodel


def expected(path, group):
    """The group's variables, read with zolfile's values() (checked against ZolInfo's dump)."""
    analysis, geometry = group.split("/")
    model = zolfile.open(path)
    arrays = [a for a in model.arrays()
              if a.analysis == analysis and geometry in a.element_sets]
    mesh = {a.result: a.values() for a in arrays if not a.instance}
    results = {}
    for a in arrays:
        if a.instance:
            results.setdefault(a.result, []).append((a.instance, a.values()))
    return mesh, results


@pytest.mark.parametrize("name", ["example", "packed-3comp", "v06-6comp", "v07-parts"])
def test_every_group_holds_the_values(models, name):
    path = models[name]
    groups = zolfile.open(path).groups()
    assert groups and xr.open_dataset(path, engine="zol").attrs["geometry"] == \
        groups[0].split("/")[1]
    for group in groups:
        mesh, results = expected(path, group)
        with xr.open_dataset(path, engine="zol", group=group) as ds:
            assert ds["node_id"].dims == ("node",)
            assert ds["node_id"].values.tolist() == mesh["Node Ids"].astype(int).tolist()
            if "Coordinates" in mesh:  # a cut links to the ids alone
                assert ds["coordinates"].dims == ("node", "xyz")
                assert np.array_equal(ds["coordinates"].values, mesh["Coordinates"])
                assert (ds["polylength"].dims, ds["connectivity"].dims) == (("element",),
                                                                          ("reference",))
                assert np.array_equal(ds["polylength"], mesh["Polylength"])
            for result, instances in results.items():
                variable = ds[result]
                assert variable.dims[0].startswith("instance") and variable.dims[1] == "node"
                assert list(ds[variable.dims[0]].values) == [i for i, _ in instances]
                assert np.array_equal(variable.values, np.stack([v for _, v in instances]))
                # A selection gives the same as numpy's on the whole.
                assert np.array_equal(variable[-1, 1:3].values, instances[-1][1][1:3])


def test_nothing_is_read_until_asked_and_then_only_the_selection(models, monkeypatch):
    reads = []
    original = zolmodel.Array._read

    def counted(array, first, count):
        reads.append((array.result, count))
        return original(array, first, count)
    monkeypatch.setattr(zolmodel.Array, "_read", counted)
    ds = xr.open_dataset(models["packed-3comp"], engine="zol")
    assert reads == []
    ds["Stress"][1, 10:12].values
    assert reads == [("Stress", 6)]


def test_dask_chunks_follow_the_arrays(models):
    with xr.open_dataset(models["v07-parts"], engine="zol", chunks={}) as ds:
        stress = ds["Stress"]
        assert stress.chunks == ((1,) * stress.shape[0], (stress.shape[1],))
        mesh, results = expected(models["v07-parts"], zolfile.open(models["v07-parts"]).groups()[0])
        assert np.array_equal(stress.compute(scheduler="threads").values,
                              np.stack([v for _, v in results["Stress"]]))


def test_open_mfdataset_on_a_cluster_of_processes(models):
    distributed = pytest.importorskip("distributed")
    paths = [models["packed-3comp"], models["packed-3comp"]]
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster, \
            distributed.Client(cluster):
        ds = xr.open_mfdataset(paths, engine="zol", parallel=True, combine="nested",
                               concat_dim="model")
        total = ds["Stress"].sum(dim="model").compute()
    _, results = expected(models["packed-3comp"], zolfile.open(models["packed-3comp"]).groups()[0])
    assert np.allclose(total.values, 2 * np.stack([v for _, v in results["Stress"]]))
