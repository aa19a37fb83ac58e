"""Every instance of an analysis as one time step of an XDMF series: the mesh once, then each
instance's results under their result names, through meshio's time-series writer."""
import re
import xml.etree.ElementTree as ET
from dataclasses import dataclass, field
from pathlib import Path

from .export import clean_name, clean_names, write_through, writer_failure
from .mesh import MeshError, mesh

NUMBER = r"[-+]?(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?"
# "Time 0.25", "t=1e-3", "TIME: 2 s", or a name that is only a number.
TIME = re.compile(rf"(?:\btime|\bt)\s*[=:]?\s*({NUMBER})|^\s*({NUMBER})\s*s?\s*$",
                  re.IGNORECASE)


@dataclass
class Step:
    time: float
    instance: str
    point_data: dict = field(default_factory=dict)
    cell_data: dict = field(default_factory=dict)


def time_of(instance):
    """The time an instance's name holds, or None."""
    found = TIME.search(instance)
    return float(found.group(1) or found.group(2)) if found else None


def steps(explicit):
    """The instances of the mesh's data as steps in time order: by the times their names hold
    when all of them hold distinct ones, else in order of appearance at 0, 1, 2 ... Data
    without an instance stands in every step."""
    instances = list(dict.fromkeys(i for _, i in explicit.origins.values() if i)) or [""]
    times = [time_of(instance) for instance in instances]
    if None in times or len(set(times)) < len(times):
        times = [float(index) for index in range(len(instances))]
    made = {instance: Step(time, instance) for time, instance in sorted(zip(times, instances))}
    for center, data in (("point", explicit.point_data), ("cell", explicit.cell_data)):
        for name, values in data.items():
            result, instance = explicit.origins.get(name, (name, ""))
            for step in [made[instance]] if instance else made.values():
                getattr(step, f"{center}_data")[result if instance else name] = values
    for step in made.values():
        for center in ("point_data", "cell_data"):
            data = getattr(step, center)
            names = clean_names(data, "xdmf")
            setattr(step, center, {names[k]: v for k, v in data.items()})
    return list(made.values())


def _writer(path):
    from meshio.xdmf import TimeSeriesWriter

    class Writer(TimeSeriesWriter):
        """meshio's writer, with its HDF5 file beside the XDMF file rather than in the working
        directory."""

        def __enter__(self):
            import h5py

            self.h5_filename = str(self.filename.with_suffix(".h5"))
            self.h5_file = h5py.File(self.h5_filename, "w")
            return self

    return Writer(path)


def write_series(model, analysis, path, cell_types=None):
    """Writes the analysis to path (.xdmf, with its .h5 beside it) as a time series, one step
    per instance, each named by an Information element "Instance". Returns the steps' (time,
    instance) pairs."""
    if Path(path).suffix.lower() not in (".xdmf", ".xmf"):
        raise MeshError(f"{path}: a time series is written as XDMF, to a .xdmf file")
    explicit = mesh(model, analysis, cell_types)
    series = steps(explicit)

    def attempt(temporary):
        try:
            with _writer(temporary) as writer:
                writer.write_points_cells(explicit.points, explicit.cells)
                for step in series:
                    writer.write_data(step.time, step.point_data, step.cell_data)
                    ET.SubElement(writer.collection[-1], "Information", Name="Instance",
                                  Value=clean_name(step.instance, "xdmf"))
        except Exception as error:
            raise writer_failure(path, "xdmf", error) from error

    write_through(path, attempt)
    return [(step.time, step.instance) for step in series]
