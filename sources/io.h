// The library's files: meshes in (Gmsh), results out (VTK for ParaView).
#pragma once

#include "kelt/io/file_status.h"
#include "kelt/io/gmsh.h"
#include "kelt/io/vtk.h"
