// What the file tests share: a folder of their own, meshes made by the real gmsh
// program, Debian's Python for the independent readers.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace kelt::test {

// A fresh folder under the system's temporary one, removed with what it holds.
struct scratch_dir {
    std::filesystem::path path;
    scratch_dir()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "kelt-io-XXXXXX").string();
        if (::mkdtemp(pattern.data())) path = pattern;
    }
    ~scratch_dir()
    {
        std::error_code ec;
        if (!path.empty()) std::filesystem::remove_all(path, ec);
    }
    std::string operator/(const std::string& name) const { return (path / name).string(); }
    std::string write(const std::string& name, const std::string& text) const
    {
        std::ofstream(path / name, std::ios::binary) << text;
        return *this / name;
    }
};

// Two unit cubes side by side along x: hexahedra in the first, tetrahedra (with
// pyramids on its quadrangle faces) in the second; two cells an edge.
inline const char* hybrid_geo = R"(SetFactory("OpenCASCADE");
Box(1) = {0, 0, 0, 1, 1, 1};
Box(2) = {1, 0, 0, 1, 1, 1};
Coherence;
Transfinite Curve{:} = 3;
Transfinite Surface{:};
Recombine Surface{:};
Transfinite Volume{1};
Physical Volume("hex") = {1};
Physical Volume("tet") = {2};
Physical Surface("left") = Surface In BoundingBox{-0.1, -0.1, -0.1, 0.1, 1.1, 1.1};
Physical Curve("edge") = Curve In BoundingBox{-0.1, -0.1, -0.1, 0.1, 0.1, 1.1};
Physical Point("corner") = Point In BoundingBox{-0.1, -0.1, -0.1, 0.1, 0.1, 0.1};
)";

// A triangulated square extruded in two layers: prisms, with the triangles of the
// bottom as a group.
inline const char* prism_geo = R"(Point(1) = {0, 0, 0}; Point(2) = {1, 0, 0}; Point(3) = {1, 1, 0}; Point(4) = {0, 1, 0};
Line(1) = {1, 2}; Line(2) = {2, 3}; Line(3) = {3, 4}; Line(4) = {4, 1};
Curve Loop(1) = {1, 2, 3, 4}; Plane Surface(1) = {1};
Transfinite Curve{1, 2, 3, 4} = 3;
out[] = Extrude{0, 0, 1} {Surface{1}; Layers{2}; Recombine;};
Physical Volume("body") = {out[1]};
Physical Surface("bottom") = {1};
)";

inline bool have_program(const char* name)
{
    return std::system(("command -v " + std::string(name) + " > /dev/null 2>&1").c_str()) == 0;
}

// Meshes `geo` with gmsh into `msh` in the given format ("msh41", "msh22") and
// encoding; false when gmsh fails.
inline bool gmsh_mesh(const scratch_dir& d, const std::string& geo, const std::string& msh, const char* format,
                      bool binary)
{
    const std::string cmd = "gmsh -3 -nt 1 " + (d / geo) + " -format " + format + (binary ? " -bin" : "") + " -o " +
                            (d / msh) + " > " + (d / (msh + ".log")) + " 2>&1";
    return std::system(cmd.c_str()) == 0;
}

} // namespace kelt::test
