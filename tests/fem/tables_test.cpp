// Interpolation tables: the bracketing rule, exact reproduction of (bi)linear
// data, behaviour beyond the ends, and the text-file reader on good and broken
// files.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "kelt/fem/tables.h"

namespace {

using kelt::dense1D;
using kelt::dense2D;
using kelt::fem::bracket;
using kelt::fem::oneD_table;
using kelt::fem::twoD_table;

constexpr double eps = std::numeric_limits<double>::epsilon();

dense1D<double, 8> vec(const std::vector<double>& v)
{
    dense1D<double, 8> out;
    for (double x : v) out.push_back(x);
    return out;
}

// Sorted random abscissas with a few repeated ones.
dense1D<double, 8> random_abscissas(std::mt19937& gen, unsigned n)
{
    std::uniform_real_distribution<double> u(-10.0, 10.0);
    std::vector<double> v(n);
    for (double& x : v) x = u(gen);
    if (n > 3) v[2] = v[1];
    std::sort(v.begin(), v.end());
    dense1D<double, 8> out;
    for (double x : v) out.push_back(x);
    return out;
}

bool is_empty(const twoD_table& t)
{
    return t.xs.size() == 0 && t.ys.size() == 0 && t.values.rows() == 0 && t.values.cols() == 0;
}

// ---- bracketing ----

TEST(tables_bracket, edge_cases)
{
    struct row {
        std::vector<double> xs;
        double x;
        int i;
        double r;
    };
    const row rows[] = {
        {{}, 3.0, -1, 0.0}, {{2.0}, -5.0, 0, 1.0}, {{2.0}, 2.0, 0, 1.0}, {{2.0}, 7.0, 0, 1.0},
        // Below and above: the nearest end, full weight.
        {{0, 1, 1, 3}, -1.0, 0, 1.0}, {{0, 1, 1, 3}, 3.0, 3, 1.0}, {{0, 1, 1, 3}, 9.0, 3, 1.0},
        // On an abscissa: the interval above it, full weight on it; a repeated
        // abscissa picks the last copy, so no division by a zero width.
        {{0, 1, 1, 3}, 0.0, 0, 1.0}, {{0, 1, 1, 3}, 1.0, 2, 1.0},
        {{0, 1, 1, 3}, 0.25, 0, 0.75}, {{0, 1, 1, 3}, 2.5, 2, 0.25},
    };
    for (const row& w : rows) {
        const auto b = bracket(vec(w.xs), w.x);
        EXPECT_EQ(b.i, w.i) << w.xs.size() << " at " << w.x;
        EXPECT_EQ(b.r, w.r) << w.xs.size() << " at " << w.x;
    }
}

// ---- oneD_table ----

TEST(tables_oneD, empty_and_constant_tables)
{
    EXPECT_EQ(oneD_table()(1.0), 0.0);
    EXPECT_EQ(twoD_table()(0.5, 0.5), 0.0);
    for (double x : {-1e9, 0.0, 3.0, 1e9}) EXPECT_EQ(oneD_table(5.0)(x), 5.0);
}

// Ordinates shorter than the abscissas must be read safely.
TEST(tables_oneD, mismatched_sizes_stay_in_bounds)
{
    const oneD_table t(vec({0.0, 1.0, 2.0, 3.0}), vec({4.0, 6.0}));
    EXPECT_EQ(t(0.5), 5.0);
    EXPECT_EQ(t(2.5), 6.0);
    EXPECT_EQ(oneD_table(vec({0.0, 1.0}), vec({}))(0.5), 0.0);
}

// A linear function is reproduced inside the range and held at the end values
// outside. Each result is a convex combination y1 + (y0 - y1) r of two values
// bounded by M, with r itself a ratio of rounded differences: a few roundings of
// size eps * M each, so 16 eps M bounds the error with room to spare.
TEST(tables_oneD, reproduces_linear_data)
{
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> u(-12.0, 12.0);
    for (unsigned n : {2u, 3u, 5u, 17u}) {
        const dense1D<double, 8> xs = random_abscissas(gen, n);
        const double a = u(gen), b = u(gen);
        dense1D<double, 8> ys;
        for (double x : xs) ys.push_back(a * x + b);
        const oneD_table t(xs, ys);
        const double M = std::abs(a) * 10.0 + std::abs(b);
        for (int k = 0; k < 200; ++k) {
            const double x = u(gen);
            const double expect = a * std::clamp(x, xs[0], xs[n - 1]) + b;
            EXPECT_NEAR(t(x), expect, 16 * eps * M) << n << " " << x;
        }
        const dense1D<double, 8> some = vec({-20.0, xs[0], 20.0}), at = t(some);
        for (unsigned k = 0; k < 3; ++k) EXPECT_EQ(at[k], t(some[k]));
    }
}

// ---- twoD_table ----

TEST(tables_twoD, single_row_or_column)
{
    const double w[] = {1.0, 5.0, 7.0};
    dense2D<double> row(1, 3), col(3, 1);
    for (unsigned k = 0; k < 3; ++k) row(0, k) = col(k, 0) = w[k];
    const twoD_table t(vec({2.0}), vec({0.0, 1.0, 2.0}), row);
    EXPECT_EQ(t(-3.0, 0.5), 3.0);
    EXPECT_EQ(t(8.0, 1.5), 6.0);
    const twoD_table s(vec({0.0, 1.0, 2.0}), vec({4.0}), col);
    EXPECT_EQ(s(0.5, -3.0), 3.0);
    EXPECT_EQ(s(1.5, 9.0), 6.0);
}

// Bilinear interpolation reproduces any a + b x + c y + d x y exactly inside the
// range: on each cell the interpolant is bilinear and agrees at the four corners.
// Two nested convex combinations of the bound M, as for oneD: 32 eps M.
TEST(tables_twoD, reproduces_bilinear_data)
{
    std::mt19937 gen(11);
    std::uniform_real_distribution<double> u(-10.0, 10.0);
    for (unsigned nx : {2u, 4u, 9u})
        for (unsigned ny : {2u, 3u, 8u}) {
            const dense1D<double, 8> xs = random_abscissas(gen, nx), ys = random_abscissas(gen, ny);
            const double a = u(gen), b = u(gen), c = u(gen), d = u(gen);
            auto f = [&](double x, double y) { return a + b * x + c * y + d * x * y; };
            dense2D<double> v(nx, ny);
            for (unsigned i = 0; i < nx; ++i)
                for (unsigned j = 0; j < ny; ++j) v(i, j) = f(xs[i], ys[j]);
            const twoD_table t(xs, ys, v);
            ASSERT_EQ(t.values.rows(), nx);
            const double M = std::abs(a) + 10 * (std::abs(b) + std::abs(c)) + 100 * std::abs(d);
            for (int k = 0; k < 200; ++k) {
                const double x = u(gen), y = u(gen);
                const double cx = std::clamp(x, xs[0], xs[nx - 1]);
                const double cy = std::clamp(y, ys[0], ys[ny - 1]);
                EXPECT_NEAR(t(x, y), f(cx, cy), 32 * eps * M) << nx << "x" << ny << " at " << x << ", " << y;
            }
            // The vector form pairs the abscissas up to the shorter list.
            const dense1D<double, 8> px = vec({-20.0, xs[1], 20.0}), py = vec({ys[0], 20.0}), at = t(px, py);
            ASSERT_EQ(at.size(), 2u);
            for (unsigned k = 0; k < 2; ++k) EXPECT_EQ(at[k], t(px[k], py[k]));
        }
}

TEST(tables_twoD, init_rejects_bad_shapes_and_orders)
{
    dense2D<double> v(2, 3, 1.0);
    const dense1D<double, 8> x2 = vec({0.0, 1.0}), y3 = vec({0.0, 1.0, 2.0});
    EXPECT_FALSE(is_empty(twoD_table(x2, y3, v)));
    EXPECT_TRUE(is_empty(twoD_table(vec({1.0, 0.0}), y3, v)));
    EXPECT_TRUE(is_empty(twoD_table(x2, vec({0.0, 2.0, 1.0}), v)));
    EXPECT_TRUE(is_empty(twoD_table(y3, x2, v)));
    EXPECT_TRUE(is_empty(twoD_table(x2, vec({0.0, NAN, 1.0}), v)));

    // init on a good table clears it first, and leaves its copies alone.
    twoD_table t(x2, y3, v);
    const twoD_table shared = t;
    t.init(vec({1.0, 0.0}), y3, v);
    EXPECT_TRUE(is_empty(t));
    EXPECT_EQ(t(0.5, 0.5), 0.0);
    EXPECT_EQ(shared(0.5, 0.5), 1.0);
    // Re-initialising from its own fields keeps the table.
    twoD_table s(x2, y3, v);
    s.init(s.xs, s.ys, s.values);
    EXPECT_EQ(s(0.5, 1.5), 1.0);
}

TEST(tables, init_copies_deeply)
{
    dense1D<double, 8> x = vec({0.0, 1.0}), y = vec({1.0, 3.0});
    dense2D<double> v(2, 1, 2.0);
    const oneD_table t(x, y);
    const twoD_table u(x, vec({0.0}), v);
    y[1] = 100.0;
    v(1, 0) = 50.0;
    x[1] = 10.0;
    EXPECT_EQ(t(1.0), 3.0);
    EXPECT_EQ(u(1.0, 0.0), 2.0);
}

// ---- file reader ----

class tables_file : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        char pattern[] = "/tmp/kelt_tables_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    static void TearDownTestSuite()
    {
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
    static std::string write(const std::string& name, const std::string& text)
    {
        const std::string path = dir + "/" + name;
        std::ofstream(path) << text;
        return path;
    }
    static inline std::string dir;
};

TEST_F(tables_file, reads_the_documented_layout)
{
    const std::string path = write("good.txt", "2 [0 1]  3 [0 1 2]  2 3 [1 2 3 4 5 6]");
    const twoD_table t(path.c_str());
    ASSERT_EQ(t.xs.size(), 2u);
    ASSERT_EQ(t.ys.size(), 3u);
    ASSERT_EQ(t.values.rows(), 2u);
    ASSERT_EQ(t.values.cols(), 3u);
    // Row order in the file.
    EXPECT_EQ(t.values(0, 2), 3.0);
    EXPECT_EQ(t.values(1, 0), 4.0);
    EXPECT_EQ(t(1.0, 2.0), 6.0);
    EXPECT_EQ(t(0.5, 0.5), 3.0);
}

// Counts are optional and advisory, brackets of the matrix optional, any blanks
// separate.
TEST_F(tables_file, tolerates_the_optional_parts)
{
    const char* texts[] = {
        "[0 1] [0 1 2] 2 3 1 2 3 4 5 6",
        "7 [0 1]\n1 [0 1 2]\n2 3\n[1 2 3\n4 5 6]\n",
        "\t2[0\t1]3[0 1 2]2 3[1 2 3 4 5 6]trailing text",
        "2 [0.0 1e0] 3 [-0 +1 2.] 2 3 [1 2 3 4 5 6",
    };
    int k = 0;
    for (const char* text : texts) {
        const std::string path = write("optional" + std::to_string(k++), text);
        const twoD_table t(path.c_str());
        SCOPED_TRACE(text);
        ASSERT_EQ(t.values.rows(), 2u);
        ASSERT_EQ(t.values.cols(), 3u);
        EXPECT_EQ(t(0.5, 0.5), 3.0);
        EXPECT_EQ(t(1.0, 1.0), 5.0);
    }
}

class tables_file_broken : public tables_file, public ::testing::WithParamInterface<const char*> {};

TEST_P(tables_file_broken, gives_an_empty_table)
{
    const std::string path = write("broken.txt", GetParam());
    const twoD_table t(path.c_str());
    EXPECT_TRUE(is_empty(t));
    EXPECT_EQ(t(0.5, 0.5), 0.0);
}

INSTANTIATE_TEST_SUITE_P(contents, tables_file_broken,
                         ::testing::Values("",                                      // nothing
                                           "2 [0 1] 3 [0 1 2] 2 2 [1 2 3 4]",       // matrix too small
                                           "2 [0 1] 3 [0 1 2] 3 3 [1 2 3 4 5 6 7 8 9]", // rows != xs
                                           "2 0 1] 3 [0 1 2] 2 3 [1 2 3 4 5 6]",    // no '['
                                           "2 [0 1] 3 [0 1 2 2 3 [1 2 3 4 5 6]",    // ys never closed
                                           "2 [0 1] 3 [0 1 2] 2 3 [1 2 3 4 5",      // values missing
                                           "2 [0 1] 3 [0 1 2] 2 3 [1 2 3 4 5 6e]",  // truncated exponent
                                           "2 [0 1] 3 [0 1 -] 2 3 [1 2 3 4 5 6]",   // lone sign
                                           "2 [0 1.5.2] 3 [0 1 2] 2 3 [1 2 3 4 5 6]", // two points
                                           "2 [0 1] 3 [0 1 2] 2 x [1 2 3 4 5 6]",   // bad column count
                                           "2 [1 0] 3 [0 1 2] 2 3 [1 2 3 4 5 6]",   // xs unsorted
                                           "2 [0 1] 3 [0 1 2] 99999 99999 [1 2]",   // huge matrix
                                           "[] [] 0 4294967295"));                  // no entries, 4e9 columns

TEST_F(tables_file, unreadable_paths_give_an_empty_table)
{
    EXPECT_TRUE(is_empty(twoD_table(static_cast<const char*>(nullptr))));
    EXPECT_TRUE(is_empty(twoD_table((dir + "/no_such_file").c_str())));
    EXPECT_TRUE(is_empty(twoD_table(dir.c_str()))); // a directory
}

} // namespace
