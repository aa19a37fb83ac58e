"""Run by pvpython: opens each converted file, checks what ParaView loads from it (points,
cells, VTK cell types, arrays, time steps) and takes the pictures.

    pvpython scripts/paraview_check.py CHECKS.json

CHECKS.json is what scripts/paraview_prepare.py writes. Prints one line per file, ending in
"as expected" when all agree, and "rendered PATH" per picture.
"""
import json
import sys

from paraview import servermanager
from paraview.simple import (ColorBy, Delete, GetActiveViewOrCreate, GetColorTransferFunction,
                             Hide, OpenDataFile, Render, ResetCamera, SaveScreenshot, Show,
                             WarpByVector)


def loaded(reader, time):
    """What ParaView holds after reading, at the given time step."""
    reader.UpdatePipeline(time)
    data = servermanager.Fetch(reader)
    cells = data.GetNumberOfCells()
    return {"points": data.GetNumberOfPoints(), "cells": cells,
            "cell_types": sorted({data.GetCellType(i) for i in range(cells)}),
            "arrays": len(reader.PointData.keys()) + len(reader.CellData.keys())}


def check(expected):
    reader = OpenDataFile(expected["path"])
    times = list(reader.TimestepValues) if expected["times"] is not None else None
    if times is not None and len(times) == 0:
        times = [0.0]
    found = loaded(reader, times[-1] if times else 0.0)
    found["times"] = times
    wanted = {key: expected[key] for key in found}
    ok = found == wanted
    print(f"{expected['path']}: {found}: {'as expected' if ok else f'EXPECTED {wanted}'}")
    Delete(reader)
    return ok


def picture(shot):
    view = GetActiveViewOrCreate("RenderView")
    view.ViewSize = [800, 600]
    view.OrientationAxesVisibility = 0
    reader = OpenDataFile(shot["path"])
    if "time" in shot:
        view.ViewTime = shot["time"]
    shown = reader
    if "warp" in shot:
        shown = WarpByVector(Input=reader, Vectors=["POINTS", shot["warp"]],
                             ScaleFactor=shot["scale"])
        # The shape before the load, as thin dark edges.
        undeformed = Show(reader, view)
        undeformed.SetRepresentationType("Feature Edges")
        undeformed.ColorArrayName = ["POINTS", ""]
        undeformed.AmbientColor = undeformed.DiffuseColor = [0.15, 0.15, 0.15]
    display = Show(shown, view)
    display.SetRepresentationType("Surface With Edges" if shot.get("edges") else "Surface")
    ColorBy(display, ("POINTS", shot["color"]))
    display.RescaleTransferFunctionToDataRange(True, False)
    GetColorTransferFunction(shot["color"]).ApplyPreset("Rainbow Uniform", True)
    display.SetScalarBarVisibility(view, True)
    view.CameraPosition = shot["camera"]
    view.CameraFocalPoint = [0, 0, 0]
    view.CameraViewUp = [0, 0, 1]
    ResetCamera(view)
    Render(view)
    SaveScreenshot(shot["png"], view, ImageResolution=[800, 600])
    print(f"rendered {shot['path']} to {shot['png']}")
    Hide(shown, view)
    Hide(reader, view)


def main(path):
    with open(path) as f:
        plan = json.load(f)
    failed = [expected["path"] for expected in plan["checks"] if not check(expected)]
    for shot in plan["pictures"]:
        picture(shot)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
