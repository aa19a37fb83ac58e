"""Run by Debian's python3 for scripts/paraview-check.sh: converts the models with zolfile and
writes what ParaView must find in each file, and which pictures to take, as JSON.

    paraview_prepare.py WORK GENERATED.zol > checks.json
"""
import json
import sys
from pathlib import Path

import numpy as np
from meshio._vtk_common import meshio_to_vtk_type

import zolfile


def expectation(path, made, times=None):
    """What ParaView must read from path: counts, cell types, array names, time steps."""
    return {"path": str(path), "points": len(made.points),
            "cells": sum(len(block) for _, block in made.cells),
            "cell_types": sorted({meshio_to_vtk_type[kind] for kind, _ in made.cells}),
            "arrays": len(made.point_data) + len(made.cell_data), "times": times}


def main(work, generated):
    work, checks = Path(work), []
    for name, model_path in (("wheel", "examples/wheel.zol"), ("generated", generated)):
        model = zolfile.open(model_path)
        analysis = model.analyses()[0]
        model.convert(analysis, work / f"{name}.vtu")
        checks.append(expectation(work / f"{name}.vtu", model.mesh(analysis)))
    wheel = zolfile.open("examples/cast-wheel.zol")
    wheel.convert("Static", work / "cast-wheel.vtu")
    checks.append(expectation(work / "cast-wheel.vtu", wheel.mesh("Static")))
    steps = wheel.write_series("Transient", work / "cast-wheel.xdmf")
    made = wheel.mesh("Transient")
    series = expectation(work / "cast-wheel.xdmf", made, [time for time, _ in steps])
    series["arrays"] = 4  # each step: displacement, von Mises stress, element ids and sets
    checks.append(series)
    # The frame of the largest swing, its deformation 40 times over.
    swing = [np.abs(made.point_data[f"Displacement [{instance}]"]).max() for _, instance in steps]
    pictures = [
        {"path": str(work / "wheel.vtu"), "png": "docs/wheel.png", "color": "Displacement [Step 2]",
         "camera": [3.0, -2.5, 2.5], "edges": True},
        {"path": str(work / "cast-wheel.vtu"), "png": "docs/cast-wheel-static.png",
         "warp": "Displacement [Load Step 1]", "scale": 150,
         "color": "Von Mises Stress [Load Step 1]", "camera": [330, -520, 380]},
        {"path": str(work / "cast-wheel.xdmf"), "png": "docs/cast-wheel-transient.png",
         "time": steps[int(np.argmax(swing))][0], "warp": "Displacement", "scale": 40,
         "color": "Von Mises Stress", "camera": [330, -520, 380]},
    ]
    json.dump({"checks": checks, "pictures": pictures}, sys.stdout, indent=1)


if __name__ == "__main__":
    main(*sys.argv[1:])
