"""How the arrays of one analysis and Geometry become the variables of a dataset.

Pure description, read from the arrays' names and shapes alone (nothing of their values):
the xarray engine (xarray_backend.py) makes lazy variables of it.

- dimensions "node" (the items of "Node Ids"), "element" (of "Polylength", or "Element
  Ids" without one), "xyz" for the coordinates, "component{k}" for results of k components;
- the coordinates "node_id" and "element_id" (as int64) and the variables "coordinates"
  (node, xyz), "polylength" (element), "connectivity" (its own dimension "reference");
- every result as one variable: with an instance dimension (named "instance", then
  "instance_2", ... for each different list of instances) when its instances all have one
  shape, its instance names as that dimension's coordinate; otherwise one variable per
  instance, named "result [instance]". Items are nodes or elements when their number says
  so, else a dimension "{variable}_item" of their own.
"""
from dataclasses import dataclass, field

MESH_RESULTS = {"Node Ids": "node_id", "Element Ids": "element_id",
                "Coordinates": "coordinates", "Polylength": "polylength",
                "Connectivity": "connectivity"}


@dataclass
class Variable:
    name: str
    dims: tuple
    indices: list  # positions in model.arrays(); several when stacked along dims[0]
    stacked: bool = False
    ids: bool = False  # integers stored as floats, given as int64
    attrs: dict = field(default_factory=dict)


@dataclass
class Layout:
    analysis: str
    geometry: str
    sizes: dict = field(default_factory=dict)  # dimension -> length
    coords: dict = field(default_factory=dict)  # instance dimension -> names
    variables: list = field(default_factory=list)


def group_names(model):
    """"Analysis/Geometry" of every Geometry an array serves, in the data dump's order."""
    return list(_groups(model))


def _groups(model):
    groups = {}
    for array in model.arrays():
        for geometry in array.element_sets:
            groups.setdefault(f"{array.analysis}/{geometry}", (array.analysis, geometry))
    return groups


def layout(model, group=None):
    """The Layout of the group ("Analysis/Geometry"; the first when None)."""
    groups = _groups(model)
    if not groups:
        raise ValueError(f"{model.path!r} has no arrays")
    if group is None:
        group = next(iter(groups))
    if group not in groups:
        raise ValueError(f"no group {group!r} in {model.path!r}; it has {list(groups)}")
    analysis, geometry = groups[group]
    members = [(i, a) for i, a in enumerate(model.arrays())
               if a.analysis == analysis and geometry in a.element_sets]
    made = Layout(analysis, geometry)
    mesh = {a.result: (i, a) for i, a in members if a.result in MESH_RESULTS and not a.instance}
    _mesh_variables(made, mesh)
    results = {}
    for i, a in members:
        if (i, a) not in mesh.values():
            results.setdefault(a.result, []).append((i, a))
    for result, instances in results.items():
        _result_variables(made, result, instances)
    return made


def _mesh_variables(made, mesh):
    if "Node Ids" in mesh:
        made.sizes["node"] = mesh["Node Ids"][1].size
    if "Polylength" in mesh:
        made.sizes["element"] = mesh["Polylength"][1].size
    elif "Element Ids" in mesh:
        made.sizes["element"] = mesh["Element Ids"][1].size
    for result, (i, array) in mesh.items():
        name = MESH_RESULTS[result]
        dims = _item_dims(made, name, array.shape, preferred={
            "node_id": "node", "coordinates": "node", "element_id": "element",
            "polylength": "element", "connectivity": "reference"}.get(name))
        if name == "coordinates" and dims[1:] == ("component3",):
            dims = (dims[0], "xyz")
            made.sizes["xyz"] = 3
        made.variables.append(Variable(name, dims, [i], ids=name.endswith("_id")))


def _result_variables(made, result, instances):
    shapes = {(a.shape, a.dtype) for _, a in instances}
    if len(shapes) == 1 and (len(instances) > 1 or instances[0][1].instance):
        names = tuple(a.instance for _, a in instances)
        dim = _instance_dim(made, names)
        dims = _item_dims(made, result, instances[0][1].shape)
        made.variables.append(Variable(result, (dim, *dims), [i for i, _ in instances],
                                       stacked=True))
        return
    for i, a in instances:
        name = f"{result} [{a.instance}]" if a.instance else result
        made.variables.append(Variable(name, _item_dims(made, name, a.shape), [i]))


def _instance_dim(made, names):
    for dim, known in made.coords.items():
        if known == names:
            return dim
    dim = "instance" if not made.coords else f"instance_{len(made.coords) + 1}"
    made.coords[dim] = names
    made.sizes[dim] = len(names)
    return dim


def _item_dims(made, name, shape, preferred=None):
    rows = shape[0]
    for dim in ([preferred] if preferred else []) + ["node", "element"]:
        if dim not in made.sizes and dim == preferred:
            made.sizes[dim] = rows
        if made.sizes.get(dim) == rows:
            first = dim
            break
    else:
        first = f"{name}_item"
        made.sizes[first] = rows
    if len(shape) == 1:
        return (first,)
    component = f"component{shape[1]}"
    made.sizes[component] = shape[1]
    return (first, component)
