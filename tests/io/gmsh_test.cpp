// Meshes written by the real gmsh program, in every format, read back: counts,
// groups, node orders (higher-order nodes where the corners put them, positive
// Jacobians), the same mesh from every format, a patch test on the imported mesh;
// and a table of damaged files, each refused with its line and nothing built.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "io_support.h"
#include "kelt/core/element_catalogue.h"
#include "kelt/elements/model_init.h"
#include "kelt/fem.h"
#include "kelt/io.h"
#include "support/solid_problems.h"

using namespace kelt;
using namespace kelt::test;

namespace {

// The linear type on the same corners: the type itself, or the nearest before it
// in the enumeration whose nodes are its corners.
element_type base_type(element_type t)
{
    for (unsigned k = t + 1; k-- > 0;)
        if (element_dim(element_type(k)) == element_dim(t) && nbr_nodes(element_type(k)) == nbr_base_nodes(t))
            return element_type(k);
    return element_none;
}

template <class Make>
error_type for_shape(element_type type, Make&& make)
{
    if (core::for_volume(type, make) == no_error) return no_error;
    if (core::for_face(type, make) == no_error) return no_error;
    return core::for_line(type, make);
}

// Largest distance of a node from where its element's corners put it (straight
// sides), and the least Jacobian determinant at the volume elements' centres.
struct geometry_check {
    double misplaced = 0.0, least_det = HUGE_VAL;
};

geometry_check check_geometry(const io::mesh_data& m, const io::mesh_block& b)
{
    geometry_check g;
    const error_type e = for_shape(b.type, [&]<class Shape>() {
        return for_shape(base_type(b.type), [&]<class Base>() {
            const Shape shape;
            const Base base;
            for (unsigned e = 0; e < b.cells.cols(); ++e) {
                const auto x = [&](unsigned a, unsigned k) { return m.positions(k, b.cells(a, e)); };
                for (unsigned a = Base::nbr_nodes; a < Shape::nbr_nodes; ++a) {
                    double N[Base::nbr_nodes];
                    base.values(Shape::node_point(a), N);
                    for (unsigned k = 0; k < 3; ++k) {
                        double expected = 0.0;
                        for (unsigned c = 0; c < Base::nbr_nodes; ++c) expected += N[c] * x(c, k);
                        g.misplaced = std::max(g.misplaced, std::fabs(expected - x(a, k)));
                    }
                }
                if constexpr (Shape::dim == 3) {
                    double centre[3] = {0, 0, 0}, dN[Shape::nbr_nodes][3], J[3][3] = {};
                    for (unsigned a = 0; a < Shape::nbr_nodes; ++a)
                        for (unsigned k = 0; k < 3; ++k) centre[k] += Shape::node_point(a)[k] / Shape::nbr_nodes;
                    shape.derivatives(centre, dN);
                    for (unsigned a = 0; a < Shape::nbr_nodes; ++a)
                        for (unsigned i = 0; i < 3; ++i)
                            for (unsigned k = 0; k < 3; ++k) J[i][k] += x(a, i) * dN[a][k];
                    const double det = J[0][0] * (J[1][1] * J[2][2] - J[1][2] * J[2][1]) -
                                       J[0][1] * (J[1][0] * J[2][2] - J[1][2] * J[2][0]) +
                                       J[0][2] * (J[1][0] * J[2][1] - J[1][1] * J[2][0]);
                    g.least_det = std::min(g.least_det, det);
                }
            }
            return no_error;
        });
    });
    EXPECT_EQ(e, no_error) << b.type;
    return g;
}

class gmsh_files : public testing::Test {
protected:
    void SetUp() override
    {
        if (!have_program("gmsh")) GTEST_SKIP() << "gmsh is not installed (scripts/test.sh installs it)";
    }
    scratch_dir dir;

    // The geometry meshed at `order` in the three formats, each read back.
    std::vector<io::mesh_data> three_formats(const char* geo, unsigned order)
    {
        dir.write("m.geo", std::string(geo) + "Mesh.ElementOrder = " + std::to_string(order) + ";\n");
        std::vector<io::mesh_data> out(3);
        const struct {
            const char* format;
            bool binary;
        } formats[3] = {{"msh41", false}, {"msh41", true}, {"msh22", false}};
        for (unsigned f = 0; f < 3; ++f) {
            const std::string name = std::string(formats[f].format) + (formats[f].binary ? "b" : "") + ".msh";
            EXPECT_TRUE(gmsh_mesh(dir, "m.geo", name, formats[f].format, formats[f].binary));
            const io::file_status st = io::read_gmsh(dir / name, out[f]);
            EXPECT_EQ(st.code, no_error) << st.text;
        }
        return out;
    }
};

// The element types of every group, their counts, the groups' nodes, and the same
// mesh from the three formats.
TEST_F(gmsh_files, every_type_in_every_format_with_its_groups_and_orders)
{
    struct row {
        const char* geo;
        unsigned order;
        std::vector<std::tuple<const char*, element_type, unsigned>> blocks; // group, type, count (0: some)
    };
    const row rows[] = {
        {hybrid_geo, 1,
         {{"hex", element_hexa8, 8}, {"tet", element_tetra4, 0}, {"tet", element_pyramid5, 0},
          {"left", element_faceQ4, 4}, {"edge", element_edge2, 2}}},
        {hybrid_geo, 2,
         {{"hex", element_hexa27, 8}, {"tet", element_tetra10, 0}, {"tet", element_pyramid14, 0},
          {"left", element_faceQ9, 4}, {"edge", element_edge3, 2}}},
        {prism_geo, 1, {{"body", element_wedge6, 0}, {"bottom", element_faceT3, 0}}},
        {prism_geo, 2, {{"body", element_wedge18, 0}, {"bottom", element_faceT6, 0}}},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(testing::Message() << (r.geo == hybrid_geo ? "hybrid" : "prisms") << " order " << r.order);
        const std::vector<io::mesh_data> m = three_formats(r.geo, r.order);
        ASSERT_EQ(m[0].blocks.size(), r.blocks.size());
        for (const auto& [group, type, count] : r.blocks) {
            const io::mesh_block* b = m[0].block(group, type);
            ASSERT_TRUE(b) << group << " " << type;
            if (count) { EXPECT_EQ(b->cells.cols(), count) << group; }
            EXPECT_GT(b->cells.cols(), 0u);
            const geometry_check g = check_geometry(m[0], *b);
            EXPECT_LT(g.misplaced, 1e-10) << group << " " << type; // coordinates as printed by gmsh
            if (b->cells.rows() >= 4 && type != element_faceQ4 && type != element_faceQ9) {
                EXPECT_GT(g.least_det, 0.0) << group << " " << type;
            }
        }
        if (r.geo == hybrid_geo) {
            const io::node_group* corner = m[0].group("corner");
            ASSERT_TRUE(corner);
            ASSERT_EQ(corner->nodes.size(), 1u);
            for (unsigned k = 0; k < 3; ++k) EXPECT_EQ(m[0].positions(k, corner->nodes[0]), 0.0);
            const io::node_group* left = m[0].group("left");
            ASSERT_TRUE(left);
            EXPECT_EQ(left->nodes.size(), (2u * r.order + 1) * (2u * r.order + 1));
            for (unsigned n : left->nodes) EXPECT_EQ(m[0].positions(0, n), 0.0);
        }
        // Text, binary and version 2.2 give the same nodes and elements.
        for (unsigned f = 1; f < 3; ++f) {
            ASSERT_EQ(m[f].positions.cols(), m[0].positions.cols());
            EXPECT_EQ(m[f].node_tags, m[0].node_tags);
            for (unsigned a = 0; a < m[0].positions.cols(); ++a)
                for (unsigned k = 0; k < 3; ++k)
                    ASSERT_NEAR(m[f].positions(k, a), m[0].positions(k, a), 1e-15);
            ASSERT_EQ(m[f].blocks.size(), m[0].blocks.size());
            for (unsigned i = 0; i < m[0].blocks.size(); ++i) {
                EXPECT_EQ(m[f].blocks[i].name, m[0].blocks[i].name);
                if (f == 1) { EXPECT_EQ(m[f].blocks[i].element_tags, m[0].blocks[i].element_tags); } // 2.2 renumbers
                ASSERT_EQ(m[f].blocks[i].cells.cols(), m[0].blocks[i].cells.cols());
                for (unsigned e = 0; e < m[0].blocks[i].cells.cols(); ++e)
                    for (unsigned a = 0; a < m[0].blocks[i].cells.rows(); ++a)
                        ASSERT_EQ(m[f].blocks[i].cells(a, e), m[0].blocks[i].cells(a, e));
            }
        }
    }
}

// A linear field held on the boundary of the imported mixed mesh (hexa27, tetra10
// and pyramid14 together) is found exactly inside.
TEST_F(gmsh_files, a_patch_test_on_an_imported_mixed_mesh_is_exact)
{
    std::vector<io::mesh_data> all = three_formats(hybrid_geo, 2);
    io::mesh_data& m = all[1];
    test_context t;
    std::vector<unsigned> models;
    for (const io::mesh_block& b : m.blocks) {
        if (b.dim != 3) continue;
        mesh part;
        part.pos = m.positions, part.cells = b.cells, part.type = b.type;
        models.push_back(t.solid(part, 1000.0, 0.3));
    }
    ASSERT_EQ(models.size(), 3u);
    fem::numerical_model_composite composite(t.ctx);
    for (unsigned id : models) ASSERT_EQ(composite.insert(id), no_error);
    std::vector<bool> used(m.positions.cols(), false);
    for (const io::mesh_block& b : m.blocks)
        if (b.dim == 3)
            for (unsigned e = 0; e < b.cells.cols(); ++e)
                for (unsigned a = 0; a < b.cells.rows(); ++a) used[b.cells(a, e)] = true;
    fem::DOFs_mgr DOFs(m.positions.cols(), false);
    for (unsigned n = 0; n < used.size(); ++n)
        if (used[n]) { ASSERT_EQ(DOFs.set(n, displacement_tag, true), no_error); }
    fem::problem_data problem(t.ctx, m.positions, DOFs, composite.get_ID(), 1);
    const auto field = [&](unsigned n, unsigned i) {
        const double x = m.positions(0, n), y = m.positions(1, n), z = m.positions(2, n);
        return 1e-3 * (i == 0 ? 1 + 2 * x - y + 0.5 * z : i == 1 ? -1 + 0.3 * x + y - 2 * z : 2 + x + 0.7 * y - z);
    };
    const auto boundary = [&](unsigned n) {
        for (unsigned k = 0; k < 3; ++k) {
            const double v = m.positions(k, n);
            if (v == 0.0 || v == (k == 0 ? 2.0 : 1.0)) return true;
        }
        return false;
    };
    fem::loads_mgr loads = problem.get_loads_mgr(0);
    unsigned inside = 0;
    for (unsigned n = 0; n < used.size(); ++n) {
        if (!used[n]) continue;
        if (!boundary(n)) {
            ++inside;
            continue;
        }
        for (unsigned i = 0; i < 3; ++i) ASSERT_EQ(loads.record_DOF_prescribed_value(dof(n, i), field(n, i), no_func), no_error);
    }
    ASSERT_GT(inside, 0u);
    fem::solver_static_linear solver;
    fem::solver_static_linear::data_type data(problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    double worst = 0.0;
    for (unsigned n = 0; n < used.size(); ++n)
        if (used[n])
            for (unsigned i = 0; i < 3; ++i) {
                double v = 0.0;
                ASSERT_EQ(data.U.getID_val(dof(n, i), 0, v), no_error);
                worst = std::max(worst, std::fabs(v - field(n, i)));
            }
    EXPECT_LT(worst, 1e-12);
}

} // namespace

// ---------------------------------------------------------------------------------
// Damaged files: each is refused with its code and line, and the mesh given to the
// reader stays as it was.

namespace {

// One hexahedron in a group, in text 4.1.
const char* one_hexa = R"($MeshFormat
4.1 0 8
$EndMeshFormat
$PhysicalNames
1
3 1 "body"
$EndPhysicalNames
$Entities
0 0 0 1
1 0 0 0 1 1 1 1 1 0
$EndEntities
$Nodes
1 8 1 8
3 1 0 8
1
2
3
4
5
6
7
8
0 0 0
1 0 0
1 1 0
0 1 0
0 0 1
1 0 1
1 1 1
0 1 1
$EndNodes
$Elements
1 1 1 1
3 1 5 1
1 1 2 3 4 5 6 7 8
$EndElements
)";

std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

} // namespace

TEST(gmsh_reader, damaged_files_are_refused_with_their_line_and_build_nothing)
{
    scratch_dir dir;
    struct row {
        const char* what;
        std::string text;
        error_type code;
        unsigned line;
        const char* says;
    };
    const std::string ok = one_hexa;
    const row rows[] = {
        {"the reference", ok, no_error, 0, ""},
        {"truncated in the nodes", ok.substr(0, ok.find("\n1 1 0\n") + 1), invalid_data_error, 13,
         "a count of 8 is more than the file holds"},
        {"truncated at the end", ok.substr(0, ok.find("\n$EndElements")), invalid_data_error, 35, "ends early"},
        {"no elements", ok.substr(0, ok.find("$Elements")), invalid_data_error, 0, "no $Elements"},
        {"version 3", replaced(ok, "4.1 0 8", "3.0 0 8"), invalid_data_error, 2, "version 3.0"},
        {"a type without a shape", replaced(ok, "3 1 5 1", "3 1 17 1"), element_type_error, 34, "20-node hexahedron"},
        {"an undefined node", replaced(ok, "1 1 2 3 4 5 6 7 8", "1 1 2 3 4 5 6 7 9"), invalid_data_error, 35,
         "refers to node 9"},
        {"a node twice", replaced(ok, "7\n8\n0 0 0", "7\n7\n0 0 0"), invalid_data_error, 0, "node 7 is defined twice"},
        {"a bad number", replaced(ok, "1 1 0\n0 1 0", "1 1 0\n0 1x 0"), invalid_data_error, 26, "expected a coordinate"},
        {"not finite", replaced(ok, "1 1 0\n0 1 0", "1 1 0\n0 nan 0"), invalid_data_error, 26, "not a finite"},
        {"a huge count", replaced(ok, "1 8 1 8", "1 800000000 1 8"), invalid_data_error, 13, "more than the file holds"},
        {"extra values", replaced(ok, "1 1 2 3 4 5 6 7 8", "1 1 2 3 4 5 6 7 8 9"), invalid_data_error, 35,
         "unexpected \"9\""},
        {"not a mesh", "hello\n", invalid_data_error, 1, "expected a section"},
        {"partitioned", replaced(ok, "$Nodes", "$PartitionedEntities\n$EndPartitionedEntities\n$Nodes"),
         invalid_data_error, 0, "partitioned"},
        {"binary of version 2", replaced(ok, "4.1 0 8", "2.2 1 8"), invalid_data_error, 0, "binary files of version 2"},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.what);
        io::mesh_data m;
        m.positions = dense2D<double>(3, 1);
        const io::file_status st = io::read_gmsh(dir.write("bad.msh", r.text), m);
        EXPECT_EQ(st.code, r.code) << st.text;
        if (r.line) { EXPECT_EQ(st.line, r.line) << st.text; }
        EXPECT_NE(st.text.find(r.says), std::string::npos) << st.text;
        if (r.code == no_error) {
            ASSERT_EQ(m.blocks.size(), 1u);
            EXPECT_EQ(m.blocks[0].name, "body");
            EXPECT_EQ(m.positions.cols(), 8u);
        } else {
            EXPECT_EQ(m.positions.cols(), 1u); // untouched
            EXPECT_TRUE(m.blocks.empty());
        }
    }
    io::mesh_data m;
    const io::file_status st = io::read_gmsh(dir / "absent.msh", m);
    EXPECT_EQ(st.code, file_open_error);
    EXPECT_NE(st.text.find("absent.msh"), std::string::npos);
}
