#!/usr/bin/env bash
# A PNG of a result without ParaView: the deformed shape of a .vtu written by the
# library, coloured by a field, drawn by Debian's VTK (python3-vtk9) off screen
# under a virtual X server (xvfb).
#
#   scripts/picture.sh result.vtu out.png [FIELD] [SCALE]
#
# FIELD (default: the first point field) colours the surface by its magnitude;
# the shape moves by the field "displacement" when there is one, times SCALE
# (default: so that the largest motion is a tenth of the model's size).
set -euo pipefail
if (($# < 2)); then
    sed -n '2,10p' "$0" >&2
    exit 2
fi
cd "$(dirname "$0")/.."
source scripts/setup.sh
kelt_install python3-vtk9 xvfb xauth

vtu=$1 png=$2 field=${3:-} scale=${4:-}
exec xvfb-run -a -s "-screen 0 1280x960x24" /usr/bin/python3 - "$vtu" "$png" "$field" "$scale" <<'EOF'
import sys
import vtk

vtu, png, field, scale = sys.argv[1:5]
reader = vtk.vtkXMLUnstructuredGridReader()
reader.SetFileName(vtu)
reader.Update()
grid = reader.GetOutput()
data = grid.GetPointData()
if grid.GetNumberOfPoints() == 0:
    sys.exit(vtu + ": no points")
if not field:
    field = data.GetArrayName(0) if data.GetNumberOfArrays() else ""

shape = reader
if data.GetArray("displacement") is not None:
    grid.GetPointData().SetActiveVectors("displacement")
    size = grid.GetLength()
    largest = data.GetArray("displacement").GetMaxNorm()
    factor = float(scale) if scale else (0.1 * size / largest if largest > 0 else 0.0)
    warp = vtk.vtkWarpVector()
    warp.SetInputConnection(reader.GetOutputPort())
    warp.SetScaleFactor(factor)
    shape = warp
    print("displacements scaled by %.6g" % factor)

surface = vtk.vtkDataSetSurfaceFilter()
surface.SetInputConnection(shape.GetOutputPort())
surface.SetNonlinearSubdivisionLevel(2)
mapper = vtk.vtkDataSetMapper()
mapper.SetInputConnection(surface.GetOutputPort())
if field:
    array = data.GetArray(field)
    if array is None:
        sys.exit(vtu + ": no point field " + field)
    mapper.SetScalarModeToUsePointFieldData()
    mapper.SelectColorArray(field)
    if array.GetNumberOfComponents() > 1:
        mapper.GetLookupTable().SetVectorModeToMagnitude()
    mapper.SetScalarRange(array.GetRange(-1))
    lut = vtk.vtkLookupTable()
    lut.SetHueRange(0.667, 0.0)
    lut.SetVectorModeToMagnitude()
    lut.Build()
    mapper.SetLookupTable(lut)
actor = vtk.vtkActor()
actor.SetMapper(mapper)
if grid.GetNumberOfCells() < 500:  # edges of a fine mesh hide its colours
    actor.GetProperty().EdgeVisibilityOn()
    actor.GetProperty().SetEdgeColor(0.2, 0.2, 0.2)

renderer = vtk.vtkRenderer()
renderer.AddActor(actor)
renderer.SetBackground(1, 1, 1)
if field:
    bar = vtk.vtkScalarBarActor()
    bar.SetLookupTable(mapper.GetLookupTable())
    bar.SetTitle(field)
    bar.GetTitleTextProperty().SetColor(0, 0, 0)
    bar.GetLabelTextProperty().SetColor(0, 0, 0)
    renderer.AddActor2D(bar)
camera = renderer.GetActiveCamera()
camera.Elevation(20)
camera.Azimuth(20)
renderer.ResetCamera()

window = vtk.vtkRenderWindow()
window.SetOffScreenRendering(1)
window.AddRenderer(renderer)
window.SetSize(1280, 960)
window.Render()
image = vtk.vtkWindowToImageFilter()
image.SetInput(window)
image.Update()
writer = vtk.vtkPNGWriter()
writer.SetFileName(png)
writer.SetInputConnection(image.GetOutputPort())
writer.Write()
print("wrote " + png)
EOF
