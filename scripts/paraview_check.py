"""Run by pvpython: reads VTU files, prints and checks their counts, renders the first.

    pvpython scripts/paraview_check.py OUT.png FILE.vtu:POINTS:CELLS:ARRAYS ...
"""
import sys

from paraview.simple import (ColorBy, GetActiveViewOrCreate, Render, ResetCamera,
                             SaveScreenshot, Show, XMLUnstructuredGridReader)

png, expectations = sys.argv[1], sys.argv[2:]
failed = False
for number, expectation in enumerate(expectations):
    path, points, cells, arrays = expectation.rsplit(":", 3)
    reader = XMLUnstructuredGridReader(FileName=[path])
    reader.UpdatePipeline()
    info = reader.GetDataInformation()
    names = list(reader.PointData.keys())
    found = (info.GetNumberOfPoints(), info.GetNumberOfCells(), len(names))
    expected = (int(points), int(cells), int(arrays))
    ok = found == expected
    failed |= not ok
    print(f"{path}: points {found[0]}, cells {found[1]}, point arrays {names}: "
          f"{'as expected' if ok else f'EXPECTED {expected}'}")
    if number == 0:
        view = GetActiveViewOrCreate("RenderView")
        view.ViewSize = [640, 480]
        display = Show(reader, view)
        display.SetRepresentationType("Surface With Edges")
        ColorBy(display, ("POINTS", names[0]))
        display.SetScalarBarVisibility(view, True)
        view.CameraPosition = [3.0, -2.5, 2.5]
        view.CameraFocalPoint = [0.5, 0.5, 0.5]
        view.CameraViewUp = [0, 0, 1]
        ResetCamera(view)
        Render(view)
        SaveScreenshot(png, view, ImageResolution=[640, 480])
        print(f"rendered {path} to {png}")
sys.exit(1 if failed else 0)
