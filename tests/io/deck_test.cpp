// Keyword decks: a table of damaged or unsupported decks, each refused with its file,
// line and keyword and nothing built; a deck of every card read back; quadratic
// elements converted with their added nodes where the serendipity interpolation
// puts them and shared between neighbours.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
#include <string>

#include "io_support.h"
#include "kelt/core/element_catalogue.h"
#include "kelt/io.h"

using namespace kelt;
using namespace kelt::test;

namespace {

// One C3D8 cube [0,1]^3 with a set of its bottom nodes, a material and a section.
const std::string cube = R"(*NODE, NSET=NALL
1, 0, 0, 0
2, 1, 0, 0
3, 1, 1, 0
4, 0, 1, 0
5, 0, 0, 1
6, 1, 0, 1
7, 1, 1, 1
8, 0, 1, 1
*ELEMENT, TYPE=C3D8, ELSET=EALL
1, 1, 2, 3, 4, 5, 6, 7, 8
*NSET, NSET=BOTTOM
1, 2, 3, 4
*MATERIAL, NAME=STEEL
*ELASTIC
210000, 0.3
*SOLID SECTION, ELSET=EALL, MATERIAL=STEEL
)";

TEST(deck_reader, damaged_or_unsupported_decks_say_where_and_build_nothing)
{
    const std::string step = "*STEP\n*STATIC\n*END STEP\n"; // lines 19-21 after the cube
    const struct {
        const char* name;
        std::string text;
        unsigned line;
        const char* says;
    } rows[] = {
        {"bad coordinate", "*NODE\n1, 0, x1, 0\n", 2, "*NODE: expected a coordinate, read \"x1\""},
        {"node twice", "*NODE\n1, 0, 0, 0\n2, 1, 0, 0\n1, 0, 1, 0\n", 4, "node 1 is defined twice"},
        {"missing node", cube + "*ELEMENT, TYPE=C3D4\n2, 1, 2, 3, 9\n", 19, "*ELEMENT: node 9 is not defined"},
        {"short element at the end", cube + "*ELEMENT, TYPE=C3D10\n2, 1, 2, 3, 5,\n", 19, "has 4 nodes, C3D10 takes 10"},
        {"unknown element type", cube + "*ELEMENT, TYPE=S8R\n", 18, "*ELEMENT: element type S8R is not supported"},
        {"unknown keyword", cube + "*EQUATION\n2\n1, 1, 1.0, 2, 1, -1.0\n", 18, "*EQUATION: this keyword is not supported"},
        {"unknown set", cube + "*BOUNDARY\nTOP, 1, 3\n", 19, "*BOUNDARY: unknown node set TOP"},
        {"rotation dof", cube + "*BOUNDARY\nBOTTOM, 4\n", 19, "degree of freedom 4 is not supported"},
        {"gravity", cube + "*STEP\n*STATIC\n*DLOAD\nEALL, GRAV, 9.81, 0, 0, -1\n*END STEP\n", 21, "load type GRAV is not supported"},
        {"face 7", cube + "*STEP\n*STATIC\n*DLOAD\nEALL, P7, 1\n*END STEP\n", 21, "load type P7 is not supported"},
        {"amplitude", cube + "*STEP\n*STATIC\n*CLOAD, AMPLITUDE=A1\n7, 3, 1\n*END STEP\n", 20, "the parameter AMPLITUDE is not supported"},
        {"nlgeom", cube + "*STEP, NLGEOM\n*STATIC\n*END STEP\n", 18, "NLGEOM (geometric nonlinearity) is not supported"},
        {"transient heat", cube + "*STEP\n*HEAT TRANSFER\n*END STEP\n", 19, "transient heat transfer"},
        {"orthotropic", cube + "*MATERIAL, NAME=M2\n*ELASTIC, TYPE=ORTHO\n", 19, "*ELASTIC: TYPE=ORTHO is not supported"},
        {"temperature table", cube + "*MATERIAL, NAME=M2\n*ELASTIC\n1, 0.3, 20\n2, 0.3, 200\n", 21, "several temperatures"},
        {"no end step", cube + "*STEP\n*STATIC\n", 20, "the file ends early"},
        {"no procedure", cube + "*STEP\n*END STEP\n", 19, "a step without a procedure"},
        {"unknown material", cube + "*SOLID SECTION, ELSET=EALL, MATERIAL=WOOD\n" + step, 18, "unknown material WOOD"},
        {"data outside a card", "1, 0, 0, 0\n", 1, "a data line outside any card"},
        {"bad generate", cube + "*NSET, NSET=S, GENERATE\n5, 1\n", 19, "GENERATE needs first <= last"},
        {"unknown variable", cube + "*STEP\n*STATIC\n*NODE PRINT, NSET=NALL\nPU\n*END STEP\n", 21, "the variable PU"},
    };
    scratch_dir dir;
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        const std::string path = dir.write("bad.inp", r.text);
        io::deck_data d;
        d.notes.push_back("kept");
        const io::file_status st = io::read_deck(path, d);
        EXPECT_FALSE(st);
        EXPECT_EQ(st.line, r.line) << st.text;
        EXPECT_EQ(st.file, path);
        EXPECT_NE(st.text.find(r.says), std::string::npos) << st.text;
        EXPECT_EQ(st.text.rfind(path + ":" + std::to_string(r.line) + ": ", 0), 0u) << st.text;
        EXPECT_EQ(d.notes.size(), 1u); // nothing built
        EXPECT_EQ(d.positions.cols(), 0u);
    }
}

TEST(deck_reader, a_fault_in_an_included_file_names_that_file)
{
    scratch_dir dir;
    const std::string inner = dir.write("mesh.inp", "** the nodes\n*NODE\n1, 0, 0, 0\n1, 1, 0, 0\n");
    const std::string outer = dir.write("main.inp", "*HEADING\nincluded mesh\n*INCLUDE, INPUT=mesh.inp\n");
    io::deck_data d;
    const io::file_status st = io::read_deck(outer, d);
    EXPECT_EQ(st.file, inner);
    EXPECT_EQ(st.line, 4u);
    EXPECT_NE(st.text.find("node 1 is defined twice"), std::string::npos) << st.text;
}

TEST(deck_reader, every_card_read_case_blind_with_includes_sets_and_steps)
{
    scratch_dir dir;
    dir.write("nodes.inp", cube.substr(0, cube.find("*ELEMENT")));
    const std::string text = "** mixed case, continued keyword lines and included nodes\n"
                             "*include, input=nodes.inp\n" +
                             cube.substr(cube.find("*ELEMENT")) +
                             "*Nset, nset=Top,\n generate\n5, 8\n"
                             "*NSET, NSET=BOTH\nbottom, TOP\n"
                             "*Material, Name=Other\n*Density\n7.8e-9\n*Expansion, zero=20\n1.2e-5\n*Conductivity\n50\n"
                             "*BOUNDARY\nBOTTOM, 1, 3\n"
                             "*STEP\n*STATIC\n*CLOAD\n7, 3, -1.5\n8, 3, -1.5\n*BOUNDARY\n6, 1, 1, 0.01\n"
                             "*DLOAD\n1, P2, 2.5\n*NODE PRINT, NSET=TOP\nU\n*END STEP\n"
                             "*STEP\n*HEAT TRANSFER, STEADY STATE\n*CLOAD, OP=NEW\n*BOUNDARY\nTOP, 11, 11, 100\n"
                             "*NODE PRINT, NSET=TOP\nNT\n*END STEP\n";
    const std::string path = dir.write("deck.inp", text);
    io::deck_data d;
    const io::file_status st = io::read_deck(path, d);
    ASSERT_TRUE(st) << st.text;
    EXPECT_EQ(d.positions.cols(), 8u);
    ASSERT_TRUE(d.node_set("top") && d.node_set("Both") && d.material("other"));
    EXPECT_EQ(d.node_set("top")->items, (std::vector<unsigned>{4, 5, 6, 7}));
    EXPECT_EQ(d.node_set("both")->items.size(), 8u);
    EXPECT_EQ(d.material("other")->expansion_zero, 20.0);
    ASSERT_EQ(d.steps.size(), 2u);
    const io::deck_step& s1 = d.steps[0];
    EXPECT_EQ(s1.boundaries.size(), 12u + 1u); // the model's held bottom and the step's pushed node
    EXPECT_EQ(s1.forces.size(), 2u);
    ASSERT_EQ(s1.pressures.size(), 1u);
    EXPECT_EQ(s1.pressures[0].face, 2u);
    EXPECT_EQ(d.steps[1].procedure, io::deck_procedure::heat_steady);
    EXPECT_TRUE(d.steps[1].forces.empty());              // cleared by OP=NEW
    EXPECT_EQ(d.steps[1].boundaries.size(), 13u + 4u);   // kept from the step before, temperatures added
}

// Two C3D20R bricks along x, placed by a quadratic map: the serendipity
// interpolation holds every quadratic, so each added node lies where the map puts
// its reference point; the face the two share gets one node.
TEST(deck_reader, quadratic_elements_converted_with_added_nodes_on_the_interpolation)
{
    const auto map = [](double x, double y, double z) {
        return std::array<double, 3>{1.0 + 2.0 * x + 0.3 * y + 0.2 * y * z, -0.5 + 0.2 * x + 1.5 * y + 0.1 * x * x,
                                     0.4 * y + 3.0 * z + 0.15 * x * y};
    };
    const int corner[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
    const unsigned edge[12][2] = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6}, {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};
    std::string nodes = "*NODE\n", elements = "*ELEMENT, TYPE=C3D20R, ELSET=E\n";
    std::map<std::array<int, 3>, unsigned> tag_at; // doubled coordinates to tag
    const auto node = [&](int x2, int y2, int z2) {
        const auto [it, added] = tag_at.emplace(std::array<int, 3>{x2, y2, z2}, unsigned(tag_at.size() + 1));
        if (added) {
            const auto p = map(x2 / 2.0, y2 / 2.0, z2 / 2.0);
            nodes += std::to_string(it->second) + ", " + std::to_string(p[0]) + ", " + std::to_string(p[1]) + ", " +
                     std::to_string(p[2]) + "\n";
        }
        return it->second;
    };
    for (int e = 0; e < 2; ++e) {
        std::vector<unsigned> n;
        for (const auto& c : corner) n.push_back(node(2 * (c[0] + e), 2 * c[1], 2 * c[2]));
        for (const auto& g : edge)
            n.push_back(node(corner[g[0]][0] + corner[g[1]][0] + 2 * e, corner[g[0]][1] + corner[g[1]][1],
                             corner[g[0]][2] + corner[g[1]][2]));
        elements += std::to_string(e + 1);
        for (unsigned k = 0; k < 20; ++k) elements += (k == 15 ? ",\n" : ", ") + std::to_string(n[k]);
        elements += "\n";
    }
    scratch_dir dir;
    const std::string path = dir.write("quad.inp", nodes + elements);
    io::deck_data d;
    const io::file_status st = io::read_deck(path, d);
    ASSERT_TRUE(st) << st.text;
    ASSERT_EQ(d.blocks.size(), 1u);
    const io::deck_block& b = d.blocks[0];
    ASSERT_EQ(b.type, element_hexa27);
    ASSERT_EQ(b.cells.cols(), 2u);
    EXPECT_EQ(d.positions.cols(), tag_at.size() + 13u); // 6 faces a brick less the shared one, 2 centres
    EXPECT_EQ(b.cells(21, 0), b.cells(20, 1));          // the shared face: +x of the first, -x of the second
    EXPECT_EQ(d.notes.size(), 1u);
    // The library's face and centre nodes by the corners they are the middle of.
    const unsigned groups[7][8] = {{0, 3, 7, 4}, {1, 5, 6, 2}, {0, 4, 5, 1}, {3, 2, 6, 7},
                                   {0, 1, 2, 3}, {4, 7, 6, 5}, {0, 1, 2, 3, 4, 5, 6, 7}};
    double worst = 0.0;
    for (unsigned e = 0; e < 2; ++e)
        for (unsigned a = 20; a < 27; ++a) {
            const unsigned count = a == 26 ? 8 : 4;
            double ref[3] = {};
            for (unsigned k = 0; k < count; ++k)
                for (unsigned i = 0; i < 3; ++i) ref[i] += (corner[groups[a - 20][k]][i] + (i == 0 ? e : 0.0)) / count;
            const auto p = map(ref[0], ref[1], ref[2]);
            for (unsigned i = 0; i < 3; ++i) worst = std::fmax(worst, std::fabs(d.positions(i, b.cells(a, e)) - p[i]));
        }
    // The deck's coordinates carry 6 decimals; the map's entries are at most 3.
    EXPECT_LT(worst, 1e-5);
}

} // namespace
