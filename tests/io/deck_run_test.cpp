// Decks run: every solid type passes the patch test through a deck; a small deck
// solved through the reader and the runner equals the same model built through the
// library's API; and Debian's calculix-ccx-test decks, those
// the reader accepts, run and compared with their reference displacements.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "io_support.h"
#include "kelt/fem.h"
#include "kelt/fem/solver_static_linear.h"
#include "kelt/io.h"

using namespace kelt;
using namespace kelt::test;

namespace {

// The nodal blocks of a .dat file: header, then (node, values) rows.
struct dat_block {
    std::string header;
    std::vector<std::pair<std::size_t, std::vector<double>>> rows;
};

std::vector<dat_block> read_dat(const std::string& path, const std::string& kind)
{
    std::vector<dat_block> out;
    std::ifstream in(path);
    bool inside = false;
    for (std::string line; std::getline(in, line);) {
        std::istringstream s(line);
        std::size_t node = 0;
        if (line.rfind(" " + kind, 0) == 0) {
            out.push_back({line, {}}), inside = true;
        } else if (inside && s >> node) {
            std::vector<double> v;
            for (double x; s >> x;) v.push_back(x);
            out.back().rows.emplace_back(node, v);
        } else if (line.find_first_not_of(' ') != std::string::npos) {
            inside = false; // the next block's header
        }
    }
    return out;
}

// Element types the reference integrates as the library does: their decks must
// agree; the others (converted quadratic bricks and wedges) print their gap.
bool integrated_alike(const io::deck_data& d)
{
    for (const io::deck_block& b : d.blocks)
        if (b.deck_type != "C3D8" && b.deck_type != "C3D4" && b.deck_type != "C3D10") return false;
    return true;
}

TEST(deck_run, debian_reference_decks_accepted_run_and_agree)
{
    const std::filesystem::path from = "/usr/share/doc/calculix-ccx-test/examples/test";
    if (!std::filesystem::is_directory(from))
        GTEST_SKIP() << "calculix-ccx-test is not installed (scripts/test.sh installs it)";
    scratch_dir dir;
    ASSERT_EQ(std::system(("cp -r " + from.string() + "/. " + dir.path.string() + " && gunzip -f -q " +
                           dir.path.string() + "/*.gz")
                              .c_str()),
              0);
    std::vector<std::string> decks;
    for (const auto& f : std::filesystem::directory_iterator(dir.path))
        if (f.path().extension() == ".inp") decks.push_back(f.path().string());
    std::sort(decks.begin(), decks.end());

    std::map<std::string, unsigned> reasons;
    unsigned accepted = 0, agreed = 0, printed = 0;
    for (const std::string& path : decks) {
        const std::string name = std::filesystem::path(path).stem().string();
        io::deck_data d;
        io::file_status st = io::read_deck(path, d);
        std::vector<io::deck_step_result> results;
        if (st) st = io::run_deck(path, d, {}, results);
        if (!st) {
            // The reason without its place: the keyword and what is refused.
            std::string why = st.text.substr(st.text.find(": ", st.file.size()) + 2);
            std::printf("refused %-24s %s\n", name.c_str(), st.text.substr(dir.path.string().size() + 1).c_str());
            ++reasons[why.substr(0, why.find(" is not supported"))];
            continue;
        }
        ++accepted;
        std::vector<std::string> skipped;
        ASSERT_TRUE(io::write_deck_dat(dir / (name + ".dat"), d, results, skipped));
        // Displacements, then forces, each relative to its own largest value.
        double relative = 0.0;
        bool same_shape = true, none = true;
        for (const char* kind : {"displacements", "forces"}) {
            const std::vector<dat_block> ours = read_dat(dir / (name + ".dat"), kind);
            const std::vector<dat_block> ref = read_dat(dir / (name + ".dat.ref"), kind);
            double gap = 0.0, largest = 0.0;
            same_shape = same_shape && ours.size() == ref.size();
            none = none && ref.empty();
            for (std::size_t b = 0; same_shape && b < ours.size(); ++b) {
                same_shape = ours[b].rows.size() == ref[b].rows.size();
                for (std::size_t r = 0; same_shape && r < ours[b].rows.size(); ++r) {
                    same_shape = ours[b].rows[r].first == ref[b].rows[r].first;
                    for (std::size_t k = 0; same_shape && k < 3; ++k) {
                        largest = std::fmax(largest, std::fabs(ref[b].rows[r].second.at(k)));
                        gap = std::fmax(gap, std::fabs(ours[b].rows[r].second.at(k) - ref[b].rows[r].second.at(k)));
                    }
                }
            }
            relative = std::fmax(relative, largest > 0.0 ? gap / largest : gap);
        }
        if (integrated_alike(d)) {
            SCOPED_TRACE(name);
            EXPECT_TRUE(same_shape);
            EXPECT_FALSE(none);
            // The reference prints 7 digits: 1e-5 of the largest value leaves room
            // for the solvers' round-off on these small meshes.
            EXPECT_LT(relative, 1e-5);
            agreed += same_shape && !none && relative < 1e-5;
            std::printf("agrees  %-24s gap %.2e of the largest value\n", name.c_str(), relative);
        } else {
            ++printed;
            std::printf("differs %-24s gap %.2e of the largest value (converted elements)%s\n", name.c_str(),
                        relative, same_shape ? "" : ", other blocks");
        }
    }
    std::printf("%zu decks: %u accepted (%u agree, %u with converted elements), %zu refused\n", decks.size(), accepted,
                agreed, printed, decks.size() - accepted);
    std::vector<std::pair<unsigned, std::string>> by_count;
    for (const auto& [why, n] : reasons) by_count.emplace_back(n, why);
    std::sort(by_count.rbegin(), by_count.rend());
    for (const auto& [n, why] : by_count) std::printf("%5u  %s\n", n, why.c_str());
    EXPECT_GT(accepted, 0u);
}

} // namespace

namespace {

// A unit cube meshed in one deck element type (split into wedges or tetrahedra,
// with mid-edge nodes for the quadratic ones) and the deck text around it.
struct cube_deck {
    std::vector<std::array<double, 3>> x;
    std::string text;

    cube_deck(const std::string& type, const std::string& step)
    {
        const bool quadratic = type == "C3D10" || type == "C3D15" || type.rfind("C3D20", 0) == 0;
        const std::string base = type == "C3D10" ? "C3D4" : type == "C3D15" ? "C3D6" : type.rfind("C3D20", 0) == 0 ? "C3D8" : type;
        for (int k = 0; k < 2; ++k)
            for (int j = 0; j < 2; ++j)
                for (int i = 0; i < 2; ++i) x.push_back({double(i ^ j), double(j), double(k)});
        // Corners: 0..3 the bottom square counter-clockwise, 4..7 above them.
        std::vector<std::vector<unsigned>> cells;
        if (base == "C3D8") cells = {{0, 1, 2, 3, 4, 5, 6, 7}};
        if (base == "C3D6") cells = {{0, 1, 2, 4, 5, 6}, {0, 2, 3, 4, 6, 7}};
        if (base == "C3D4") cells = {{0, 1, 2, 6}, {0, 2, 3, 6}, {0, 3, 7, 6}, {0, 7, 4, 6}, {0, 4, 5, 6}, {0, 5, 1, 6}};
        const std::vector<std::array<unsigned, 2>> edges =
            base == "C3D4"   ? std::vector<std::array<unsigned, 2>>{{0, 1}, {1, 2}, {2, 0}, {0, 3}, {1, 3}, {2, 3}}
            : base == "C3D6" ? std::vector<std::array<unsigned, 2>>{{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5},
                                                                    {5, 3}, {0, 3}, {1, 4}, {2, 5}}
                             : std::vector<std::array<unsigned, 2>>{{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6},
                                                                    {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};
        std::map<std::pair<unsigned, unsigned>, unsigned> middle;
        for (auto& c : cells) {
            if (base == "C3D4") { // positive volume: the fourth node above the first three
                double a[3], b[3], d[3];
                for (unsigned k = 0; k < 3; ++k)
                    a[k] = x[c[1]][k] - x[c[0]][k], b[k] = x[c[2]][k] - x[c[0]][k], d[k] = x[c[3]][k] - x[c[0]][k];
                const double v = (a[1] * b[2] - a[2] * b[1]) * d[0] + (a[2] * b[0] - a[0] * b[2]) * d[1] +
                                 (a[0] * b[1] - a[1] * b[0]) * d[2];
                if (v < 0) std::swap(c[1], c[2]);
            }
            if (!quadratic) continue;
            const std::vector<unsigned> corners = c;
            for (const auto& e : edges) {
                const auto key = std::minmax(corners[e[0]], corners[e[1]]);
                auto [it, added] = middle.emplace(key, unsigned(x.size()));
                if (added) {
                    std::array<double, 3> m;
                    for (unsigned k = 0; k < 3; ++k) m[k] = (x[key.first][k] + x[key.second][k]) / 2;
                    x.push_back(m);
                }
                c.push_back(it->second);
            }
        }
        text = "*NODE, NSET=NALL\n";
        for (std::size_t n = 0; n < x.size(); ++n)
            text += std::to_string(n + 1) + ", " + std::to_string(x[n][0]) + ", " + std::to_string(x[n][1]) + ", " +
                    std::to_string(x[n][2]) + "\n";
        text += "*ELEMENT, TYPE=" + type + ", ELSET=EALL\n";
        for (std::size_t e = 0; e < cells.size(); ++e) {
            text += std::to_string(e + 1);
            for (unsigned n : cells[e]) text += ", " + std::to_string(n + 1);
            text += "\n";
        }
        const char* planes[4] = {"X0", "Y0", "Z0", "X1"};
        for (unsigned p = 0; p < 4; ++p) {
            text += std::string("*NSET, NSET=") + planes[p] + "\n";
            for (std::size_t n = 0; n < x.size(); ++n)
                if (x[n][p % 3] == (p == 3 ? 1.0 : 0.0)) text += std::to_string(n + 1) + ",\n";
        }
        text += "*MATERIAL, NAME=M\n*ELASTIC\n1000, 0.3\n*CONDUCTIVITY\n2.0\n"
                "*SOLID SECTION, ELSET=EALL, MATERIAL=M\n" + step;
    }
};

} // namespace

// Linear fields are in every element's space, converted ones included: a bar pulled
// by a prescribed end displacement, and a bar held at two temperatures, give them
// exactly at every node, the added ones too. A wrong node order breaks them.
TEST(deck_run, every_solid_type_passes_the_patch_test_through_a_deck)
{
    const double d = 1e-3, nu = 0.3, T1 = 10.0;
    const std::string pull = "*BOUNDARY\nX0, 1\nY0, 2\nZ0, 3\n*STEP\n*STATIC\n*BOUNDARY\nX1, 1, 1, 0.001\n*END STEP\n";
    const std::string heat = "*STEP\n*HEAT TRANSFER, STEADY STATE\n*BOUNDARY\nX0, 11\nX1, 11, 11, 10\n*END STEP\n";
    scratch_dir dir;
    for (const char* type : {"C3D4", "C3D6", "C3D8", "C3D10", "C3D15", "C3D20", "C3D20R"})
        for (const bool thermal : {false, true}) {
            SCOPED_TRACE(std::string(type) + (thermal ? " heat" : " static"));
            const cube_deck cube(type, thermal ? heat : pull);
            const std::string path = dir.write("cube.inp", cube.text);
            io::deck_data deck;
            io::file_status st = io::read_deck(path, deck);
            ASSERT_TRUE(st) << st.text;
            std::vector<io::deck_step_result> results;
            st = io::run_deck(path, deck, {}, results);
            ASSERT_TRUE(st) << st.text;
            double worst = 0.0;
            for (unsigned n = 0; n < deck.positions.cols(); ++n) {
                const double X = deck.positions(0, n), Y = deck.positions(1, n), Z = deck.positions(2, n);
                if (thermal) {
                    worst = std::fmax(worst, std::fabs(results[0].values(0, n) - T1 * X) / T1);
                } else {
                    const double exact[3] = {d * X, -nu * d * Y, -nu * d * Z};
                    for (unsigned k = 0; k < 3; ++k)
                        worst = std::fmax(worst, std::fabs(results[0].values(k, n) - exact[k]) / d);
                }
            }
            // Coordinates written with 6 decimals are exact here (0, 0.5, 1); what
            // is left is the solve's round-off on a handful of DOFs.
            EXPECT_LT(worst, 1e-9);
        }
}

// One C3D8 cube clamped at x = 0, a force at a corner and a pressure on the face
// x = 1 (the deck's face 4): through the deck, and through the API with the face
// as a quadrangle under a traction of -5 along x (a pressure of 5 pushes inwards).
TEST(deck_run, a_deck_equals_the_same_model_built_through_the_api)
{
    const cube_deck cube("C3D8", "*BOUNDARY\nX0, 1, 3\n*STEP\n*STATIC\n*CLOAD\n7, 2, 3.0\n*DLOAD\n1, P4, 5.0\n"
                                 "*NODE PRINT, NSET=NALL\nU\n*NODE PRINT, NSET=X0, TOTALS=YES\nRF\n*END STEP\n");
    scratch_dir dir;
    const std::string path = dir.write("cube.inp", cube.text);
    io::deck_data deck;
    ASSERT_TRUE(io::read_deck(path, deck));
    std::vector<io::deck_step_result> results;
    const io::file_status st = io::run_deck(path, deck, {}, results);
    ASSERT_TRUE(st) << st.text;

    dense2D<double> pos = deck.positions;
    fem::context ctx;
    fem::law_solid_StVenant law;
    dense1D<double, 8> params;
    params.push_back(1000.0), params.push_back(0.3), params.push_back(0.0);
    fem::model_solid_lin solid;
    fem::numerical_model_stiff_lin body(ctx);
    fem::numerical_model_load_only face(ctx);
    fem::numerical_model_composite model(ctx);
    dense2D<unsigned> cells(8, 1), end(4, 1);
    for (unsigned a = 0; a < 8; ++a) cells(a, 0) = a; // the deck's nodes 1..8 in its order
    const unsigned quad[4] = {1, 2, 6, 5};
    for (unsigned a = 0; a < 4; ++a) end(a, 0) = quad[a];
    ASSERT_EQ(law.init(params), no_error);
    ASSERT_EQ(solid.init(law), no_error);
    ASSERT_EQ(body.init(ctx, solid, cells, element_hexa8), no_error);
    ASSERT_EQ(face.init(ctx, end, element_faceQ4), no_error);
    ASSERT_EQ(model.insert(body.get_ID()), no_error);
    ASSERT_EQ(model.insert(face.get_ID()), no_error);
    fem::DOFs_mgr dofs(8, false);
    for (unsigned n = 0; n < 8; ++n) ASSERT_EQ(dofs.set(n, displacement_tag, pos(0, n) != 0.0), no_error);
    fem::problem_data problem(ctx, pos, dofs, model.get_ID(), 1);
    fem::loads_mgr loads = problem.get_loads_mgr(0);
    ASSERT_EQ(loads.record_DOF_load(fem::DOFs_mgr::ID(6, displacement_tag, 1), 3.0, 0), no_error);
    fem::elementary_load traction;
    traction.kind = 1;
    traction.values.push_back(-5.0);
    ASSERT_EQ(loads.record_NM_load(face.get_ID(), 0, traction, 0), no_error);
    fem::solver_static_linear solver;
    fem::solver_static_linear::data_type data(problem);
    solver.run(data);
    ASSERT_FALSE(data.error_raised()) << data.msg_title;

    double worst = 0.0, largest = 0.0;
    for (unsigned n = 0; n < 8; ++n)
        for (unsigned k = 0; k < 3; ++k) {
            double u = 0.0;
            if (pos(0, n) != 0.0) {
                ASSERT_EQ(data.U.getID_val(fem::DOFs_mgr::ID(n, displacement_tag, k), 0, u), no_error);
            }
            worst = std::fmax(worst, std::fabs(results[0].values(k, n) - u));
            largest = std::fmax(largest, std::fabs(u));
        }
    EXPECT_GT(largest, 1e-3); // the loads move the cube: the comparison is not of zeros
    // One factorisation of the same matrix each way: round-off apart only.
    EXPECT_LT(worst, 1e-10 * largest);

    // The written file holds what was solved, at the printed precision.
    std::vector<std::string> skipped;
    ASSERT_TRUE(io::write_deck_dat(dir / "cube.dat", deck, results, skipped));
    const std::vector<dat_block> blocks = read_dat(dir / "cube.dat", "displacements");
    ASSERT_EQ(blocks.size(), 1u);
    ASSERT_EQ(blocks[0].rows.size(), 8u);
    EXPECT_EQ(blocks[0].header, " displacements (vx,vy,vz) for set NALL and time  0.1000000E+01");
    for (const auto& [tag, v] : blocks[0].rows)
        for (unsigned k = 0; k < 3; ++k)
            EXPECT_NEAR(v.at(k), results[0].values(k, unsigned(tag - 1)), 1e-6 * largest);

    // The clamped face's total force balances the loads: 5 x 1 of pressure
    // pushing along -x and 3 at the corner along y.
    std::ifstream in(dir / "cube.dat");
    std::string line;
    while (std::getline(in, line) && line.rfind(" total force", 0) != 0) {}
    EXPECT_EQ(line, " total force (fx,fy,fz) for set X0 and time  0.1000000E+01");
    std::getline(in, line), std::getline(in, line);
    std::istringstream row(line);
    double total[3] = {NAN, NAN, NAN};
    row >> total[0] >> total[1] >> total[2];
    EXPECT_NEAR(total[0], 5.0, 1e-5);
    EXPECT_NEAR(total[1], -3.0, 1e-5);
    EXPECT_NEAR(total[2], 0.0, 1e-5);
}
