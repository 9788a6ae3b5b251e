// The .vtu files read back by VTK itself and by meshio (Debian's Python): the same
// points, cells and values, every cell turning the right way (positive volumes
// adding up to the solid's), and the collections; a failed write leaves nothing.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <sstream>
#include <string>

#include "io_support.h"
#include "kelt/fem.h"
#include "kelt/io.h"

using namespace kelt;
using namespace kelt::test;

namespace {

// Prints, for a .vtu: counts by VTK, the least cell volume and the total (signed
// volumes of the cells as VTK splits them), the largest gap of the point fields
// from the functions the test wrote, and what meshio reads.
const char* check_py = R"(import sys
import vtk, meshio
import numpy as np
from vtk.util.numpy_support import vtk_to_numpy
r = vtk.vtkXMLUnstructuredGridReader(); r.SetFileName(sys.argv[1]); r.Update()
g = r.GetOutput()
print("vtk_points", g.GetNumberOfPoints()); print("vtk_cells", g.GetNumberOfCells())
f = vtk.vtkCellSizeFilter(); f.SetInputData(g); f.ComputeVolumeOn(); f.Update()
vol = vtk_to_numpy(f.GetOutput().GetCellData().GetArray("Volume"))
def at(c, p):
    x = [0.0] * 3; w = [0.0] * c.GetNumberOfPoints()
    c.EvaluateLocation(vtk.mutable(0), p, x, w); return np.array(x)
def det(c, p, h=1e-6):
    J = np.zeros((3, 3))
    for k in range(3):
        a = list(p); b = list(p); a[k] += h; b[k] -= h
        J[:, k] = (at(c, a) - at(c, b)) / (2 * h)
    return np.linalg.det(J)
gauss = [0.5 - 0.5 / np.sqrt(3), 0.5 + 0.5 / np.sqrt(3)]
triangle = [(1 / 6, 1 / 6), (2 / 3, 1 / 6), (1 / 6, 2 / 3)]
v3 = []
for i in range(g.GetNumberOfCells()):
    c = g.GetCell(i)
    if c.GetCellDimension() != 3: continue
    # The size filter leaves out the 27-node hexahedron and gets the 18-node wedge
    # wrong: these two by Gauss points of the parametric Jacobian.
    if c.GetCellType() == vtk.VTK_TRIQUADRATIC_HEXAHEDRON:
        v3.append(sum(det(c, [a, b, d]) / 8 for a in gauss for b in gauss for d in gauss))
    elif c.GetCellType() == vtk.VTK_BIQUADRATIC_QUADRATIC_WEDGE:
        v3.append(sum(det(c, [a, b, d]) / 12 for (a, b) in triangle for d in gauss))
    else:
        v3.append(vol[i])
print("least_volume", min(v3)); print("volume", sum(v3))
x = vtk_to_numpy(g.GetPoints().GetData())
u = vtk_to_numpy(g.GetPointData().GetArray("displacement"))
t = vtk_to_numpy(g.GetPointData().GetArray("temperature"))
print("u_gap", np.abs(u - np.column_stack((x[:, 0] + 2 * x[:, 1], -x[:, 2], 3 * x[:, 0]))).max())
print("t_gap", np.abs(t - (x[:, 0] - x[:, 2])).max())
if sys.argv[2] == "0": sys.exit(0)
m = meshio.read(sys.argv[1])
print("meshio_points", len(m.points)); print("meshio_point_gap", np.abs(m.points - x).max())
for c in m.cells: print("meshio", c.type, len(c.data))
print("meshio_u_gap", np.abs(m.point_data["displacement"] - u).max())
)";

std::map<std::string, double> run_check(const scratch_dir& d, const std::string& vtu, bool meshio)
{
    d.write("check.py", check_py);
    const std::string out = d / "check.out";
    std::map<std::string, double> values;
    const std::string cmd = "/usr/bin/python3 " + (d / "check.py") + " " + vtu + (meshio ? " 1" : " 0") + " > " + out;
    if (std::system((cmd + " 2> " + out + ".err").c_str()) != 0) {
        std::ifstream in(out + ".err");
        std::stringstream s;
        s << in.rdbuf();
        ADD_FAILURE() << s.str();
        return values;
    }
    std::ifstream in(out);
    std::string key, type;
    while (in >> key) {
        if (key == "meshio") {
            double n;
            in >> type >> n;
            values["meshio " + type] = n;
        } else {
            in >> values[key];
        }
    }
    return values;
}

bool have_python_modules()
{
    return std::system("/usr/bin/python3 -c 'import vtk, meshio' > /dev/null 2>&1") == 0;
}

} // namespace

// Every cell type the library has, written and read by VTK and meshio: the cells
// turn the right way (a 14-node pyramid goes out as VTK's 13-node one).
TEST(vtu_writer, every_type_read_back_by_vtk_and_meshio)
{
    if (!have_program("gmsh") || !have_python_modules()) GTEST_SKIP() << "gmsh, python3-vtk9 or python3-meshio missing";
    scratch_dir d;
    struct row {
        const char* geo;
        unsigned order;
        double volume;
        std::map<std::string, unsigned> meshio; // cell type -> count, 0 for any; empty: not for meshio
    };
    const row rows[] = {
        {hybrid_geo, 1, 2.0, {{"hexahedron", 8}, {"tetra", 0}, {"pyramid", 0}, {"quad", 4}}},
        {hybrid_geo, 2, 2.0, {}}, // meshio 7.0 knows no dimension of the 13-node pyramid
        {prism_geo, 1, 1.0, {{"wedge", 0}, {"triangle", 0}}},
        {prism_geo, 2, 1.0, {{"wedge18", 0}, {"triangle6", 0}}},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(testing::Message() << (r.geo == hybrid_geo ? "hybrid" : "prisms") << " order " << r.order);
        d.write("m.geo", std::string(r.geo) + "Mesh.ElementOrder = " + std::to_string(r.order) + ";\n");
        ASSERT_TRUE(gmsh_mesh(d, "m.geo", "m.msh", "msh41", true));
        io::mesh_data m;
        ASSERT_EQ(io::read_gmsh(d / "m.msh", m).code, no_error);
        io::vtu_writer w(m.positions);
        unsigned cells = 0;
        for (const io::mesh_block& b : m.blocks) {
            ASSERT_EQ(w.add_cells(b.type, b.cells), no_error);
            cells += b.cells.cols();
        }
        const unsigned n = m.positions.cols();
        std::vector<double> u(3 * n), t(n);
        for (unsigned a = 0; a < n; ++a) {
            const double x = m.positions(0, a), y = m.positions(1, a), z = m.positions(2, a);
            u[3 * a] = x + 2 * y, u[3 * a + 1] = -z, u[3 * a + 2] = 3 * x;
            t[a] = x - z;
        }
        ASSERT_EQ(w.add_point_field("displacement", 3, u), no_error);
        ASSERT_EQ(w.add_point_field("temperature", 1, t), no_error);
        const io::file_status st = w.write(d / "m.vtu");
        ASSERT_EQ(st.code, no_error) << st.text;
        auto v = run_check(d, d / "m.vtu", !r.meshio.empty());
        EXPECT_EQ(v["vtk_points"], n);
        EXPECT_EQ(v["vtk_cells"], cells);
        EXPECT_GT(v["least_volume"], 0.0);
        EXPECT_NEAR(v["volume"], r.volume, 1e-8); // derivatives by differences for the 27-node hexahedra
        EXPECT_EQ(v["u_gap"], 0.0);
        EXPECT_EQ(v["t_gap"], 0.0);
        if (r.meshio.empty()) continue;
        EXPECT_EQ(v["meshio_points"], n);
        EXPECT_EQ(v["meshio_point_gap"], 0.0);
        EXPECT_EQ(v["meshio_u_gap"], 0.0);
        for (const auto& [type, count] : r.meshio) {
            EXPECT_TRUE(v.count("meshio " + type)) << type;
            if (count) { EXPECT_EQ(v["meshio " + type], count) << type; }
        }
    }
}

// Fields from a solver's record by DOF identifier; wrong sizes and indices are
// refused; a write that cannot happen leaves no file; the collection lists its steps.
TEST(vtu_writer, fields_from_records_refusals_and_collections)
{
    scratch_dir d;
    dense2D<double> pos(3, 3);
    for (unsigned a = 0; a < 3; ++a) pos(0, a) = a;
    dense1D<unsigned, 8> IDs;
    for (unsigned a = 0; a < 3; ++a)
        for (unsigned k = 0; k < 3; ++k) IDs.push_back(fem::DOFs_mgr::ID(a, displacement_tag, k));
    IDs.push_back(fem::DOFs_mgr::ID(1, temperature_tag, 0));
    fem::FEM_matrix U(IDs, 2);
    for (unsigned r = 0; r < IDs.size(); ++r) ASSERT_EQ(U.set_val(r, 1, 10.0 + r), no_error);
    const std::vector<double> u = io::node_vectors(U, 3, displacement_tag, 1);
    ASSERT_EQ(u.size(), 9u);
    for (unsigned i = 0; i < 9; ++i) EXPECT_EQ(u[i], 10.0 + i); // node a, component k at 3 a + k
    const std::vector<double> T = io::node_values(U, 3, temperature_tag, 0, 1);
    EXPECT_EQ(T, (std::vector<double>{0.0, 19.0, 0.0})); // nodes without the DOF read 0

    io::vtu_writer w(pos);
    dense2D<unsigned> line(2, 1), far(2, 1), triangle(3, 1);
    line(0, 0) = 0, line(1, 0) = 1, far(0, 0) = 0, far(1, 0) = 3;
    EXPECT_EQ(w.add_cells(element_edge2, line), no_error);
    EXPECT_EQ(w.add_cells(element_edge2, far), element_index_error);
    EXPECT_EQ(w.add_cells(element_edge3, line), connectivity_size_error);
    EXPECT_EQ(w.add_cells(element_faceQ8, triangle), element_type_error);
    EXPECT_EQ(w.add_point_field("short", 3, std::vector<double>(8)), connectivity_size_error);
    EXPECT_EQ(w.write(d / "missing-folder/a.vtu").code, file_open_error);
    EXPECT_FALSE(std::filesystem::exists(d / "missing-folder/a.vtu.part"));
    ASSERT_EQ(w.write(d / "a.vtu").code, no_error);
    EXPECT_FALSE(std::filesystem::exists(d / "a.vtu.part"));

    ASSERT_EQ(io::write_pvd(d / "modes.pvd", {{1.5, "mode-1.vtu"}, {4.25, "mode-2 & more.vtu"}}).code, no_error);
    std::ifstream in(d / "modes.pvd");
    std::stringstream s;
    s << in.rdbuf();
    EXPECT_NE(s.str().find("timestep=\"1.5\" group=\"\" part=\"0\" file=\"mode-1.vtu\""), std::string::npos);
    EXPECT_NE(s.str().find("file=\"mode-2 &amp; more.vtu\""), std::string::npos);
}
