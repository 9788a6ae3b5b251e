// The library's files: meshes in (Gmsh), keyword decks in, results out (VTK for ParaView).
#pragma once

#include "kelt/io/deck.h"
#include "kelt/io/deck_run.h"
#include "kelt/io/file_status.h"
#include "kelt/io/gmsh.h"
#include "kelt/io/vtk.h"
