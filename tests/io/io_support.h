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
