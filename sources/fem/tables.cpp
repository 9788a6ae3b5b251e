#include "kelt/fem/tables.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace kelt::fem {

namespace {

// NaN fails `<=`, so a table with a NaN abscissa counts as unsorted.
bool non_decreasing(const dense1D<double, 8>& v) noexcept
{
    for (unsigned k = 1; k < v.size(); ++k)
        if (!(v[k - 1] <= v[k])) return false;
    return true;
}

// A cursor over the text of a table file. Every read returns false on malformed
// input, and the caller gives up at the first one.
class text_reader {
public:
    explicit text_reader(std::string_view text) : p(text.data()), end(text.data() + text.size()) {}

    bool read_vector(dense1D<double, 8>& v)
    {
        skip_blanks();
        if (p != end && *p >= '0' && *p <= '9') {
            unsigned count = 0;
            if (!read_unsigned(count)) return false;
            // The count only sizes a reservation, and a number takes at least two
            // characters with its separator: a huge count cannot claim more.
            (void)v.reserve(std::min<std::uint64_t>(count, remaining() / 2 + 1), 1);
        }
        if (!take('[')) return false;
        for (;;) {
            skip_blanks();
            if (p == end) return false;
            if (*p == ']') {
                ++p;
                return true;
            }
            double x = 0.0;
            if (!read_double(x)) return false;
            const unsigned before = v.size();
            v.push_back(x);
            if (v.size() == before) return false; // out of memory
        }
    }

    // A matrix of the shape the two vectors give; any other could only make an
    // empty table, and is refused before allocating: a 0 x 4e9 shape costs nothing
    // to write and billions of steps to build.
    bool read_matrix(dense2D<double>& m, unsigned expected_rows, unsigned expected_cols)
    {
        unsigned rows = 0, cols = 0;
        if (!read_unsigned(rows) || !read_unsigned(cols)) return false;
        if (rows != expected_rows || cols != expected_cols) return false;
        const std::uint64_t n = std::uint64_t(rows) * cols;
        // A size the rest of the text cannot fill is refused before allocating.
        if (n > remaining()) return false;
        if (!m.resize(rows, cols)) return false;
        take('[');
        for (unsigned i = 0; i < rows; ++i)
            for (unsigned j = 0; j < cols; ++j)
                if (!read_double(m(i, j))) return false;
        take(']');
        return true;
    }

private:
    static bool blank(char c) noexcept
    {
        return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
    }
    void skip_blanks() noexcept
    {
        while (p != end && blank(*p)) ++p;
    }
    std::uint64_t remaining() const noexcept { return std::uint64_t(end - p); }

    // Consumes `c` if it is the next non-blank character.
    bool take(char c) noexcept
    {
        skip_blanks();
        if (p == end || *p != c) return false;
        ++p;
        return true;
    }

    // A number ends at a blank or a bracket: "[0 1]" holds two numbers.
    std::string_view token() noexcept
    {
        skip_blanks();
        const char* first = p;
        while (p != end && !blank(*p) && *p != '[' && *p != ']') ++p;
        return std::string_view(first, std::size_t(p - first));
    }

    bool read_unsigned(unsigned& n) noexcept
    {
        const std::string_view t = token();
        const auto [last, ec] = std::from_chars(t.data(), t.data() + t.size(), n);
        return !t.empty() && ec == std::errc() && last == t.data() + t.size();
    }

    bool read_double(double& x) noexcept
    {
        std::string_view t = token();
        if (t.size() > 1 && t[0] == '+' && t[1] != '-') t.remove_prefix(1);
        const auto [last, ec] = std::from_chars(t.data(), t.data() + t.size(), x);
        return !t.empty() && ec == std::errc() && last == t.data() + t.size();
    }

    const char* p;
    const char* end;
};

bool read_table_file(const char* path, dense1D<double, 8>& xs, dense1D<double, 8>& ys, dense2D<double>& values)
{
    if (!path) return false;
    std::ifstream file(path);
    if (!file) return false;
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    text_reader in(text);
    return in.read_vector(xs) && in.read_vector(ys) && in.read_matrix(values, xs.size(), ys.size());
}

} // namespace

bracket_type bracket(const dense1D<double, 8>& v, double x) noexcept
{
    const unsigned n = v.size();
    if (n == 0) return {-1, 0.0};
    if (n == 1) return {0, 1.0};
    const unsigned k = unsigned(std::upper_bound(v.begin(), v.end(), x) - v.begin());
    if (k == n) return {std::int64_t(n) - 1, 1.0};
    if (k == 0) return {0, 1.0};
    return {std::int64_t(k) - 1, (v[k] - x) / (v[k] - v[k - 1])};
}

// ---- oneD_table -----------------------------------------------------------

oneD_table::oneD_table(double c)
{
    (void)xs.resize(1, 0.0);
    (void)ys.resize(1, c);
}

oneD_table::oneD_table(const dense1D<double, 8>& x, const dense1D<double, 8>& y) { init(x, y); }

void oneD_table::init(const dense1D<double, 8>& x, const dense1D<double, 8>& y)
{
    if (!xs.copy(x) || !ys.copy(y)) {
        xs.clear_hard();
        ys.clear_hard();
    }
}

double oneD_table::operator()(double x) const noexcept
{
    const bracket_type b = bracket(xs, x);
    if (b.i < 0 || ys.empty()) return 0.0;
    // Sizes are not checked by init: extra abscissas read the last ordinate.
    const unsigned i = unsigned(std::min<std::int64_t>(b.i, ys.size() - 1));
    const double y0 = ys[i];
    const double y1 = i + 1 < ys.size() ? ys[i + 1] : y0;
    return y1 + (y0 - y1) * b.r;
}

dense1D<double, 8> oneD_table::operator()(const dense1D<double, 8>& x) const
{
    dense1D<double, 8> out;
    if (!out.resize(x.size())) return dense1D<double, 8>();
    for (unsigned k = 0; k < x.size(); ++k) out[k] = (*this)(x[k]);
    return out;
}

// ---- twoD_table -----------------------------------------------------------

twoD_table::twoD_table(const dense1D<double, 8>& x, const dense1D<double, 8>& y, const dense2D<double>& v)
{
    init(x, y, v);
}

twoD_table::twoD_table(const char* path)
{
    dense1D<double, 8> x, y;
    dense2D<double> v;
    bool read = false;
    try {
        read = read_table_file(path, x, y, v);
    } catch (const std::exception&) {
        read = false; // a file too large for memory reads as a broken one
    }
    if (read) init(x, y, v);
}

void twoD_table::init(const dense1D<double, 8>& x, const dense1D<double, 8>& y, const dense2D<double>& v)
{
    // The arguments may be this table's own fields: hold them before clearing.
    const dense1D<double, 8> x_in = x, y_in = y;
    const dense2D<double> v_in = v;
    xs.clear_hard();
    ys.clear_hard();
    values.clear_hard();
    if (x_in.size() != v_in.rows() || y_in.size() != v_in.cols()) return;
    if (!non_decreasing(x_in) || !non_decreasing(y_in)) return;
    if (xs.copy(x_in) && ys.copy(y_in) && values.copy(v_in)) return;
    xs.clear_hard();
    ys.clear_hard();
    values.clear_hard();
}

double twoD_table::operator()(double x, double y) const noexcept
{
    // Fields written by hand out of shape read as an empty table.
    if (values.rows() != xs.size() || values.cols() != ys.size()) return 0.0;
    const bracket_type bx = bracket(xs, x);
    const bracket_type by = bracket(ys, y);
    if (bx.i < 0 || by.i < 0) return 0.0;
    const unsigned i = unsigned(bx.i), j = unsigned(by.i);
    const bool last_row = i + 1 == xs.size();
    const bool last_col = j + 1 == ys.size();
    const double v00 = values(i, j);
    const double v10 = last_row ? v00 : values(i + 1, j);
    const double v01 = last_col ? v00 : values(i, j + 1);
    const double v11 = last_row ? v01 : last_col ? v10 : values(i + 1, j + 1);
    const double far = v11 + (v01 - v11) * bx.r;
    const double near = v10 + (v00 - v10) * bx.r;
    return far + (near - far) * by.r;
}

dense1D<double, 8> twoD_table::operator()(const dense1D<double, 8>& x, const dense1D<double, 8>& y) const
{
    const unsigned n = std::min(x.size(), y.size());
    dense1D<double, 8> out;
    if (!out.resize(n)) return dense1D<double, 8>();
    for (unsigned k = 0; k < n; ++k) out[k] = (*this)(x[k], y[k]);
    return out;
}

} // namespace kelt::fem
