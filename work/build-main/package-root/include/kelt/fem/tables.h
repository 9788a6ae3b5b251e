// Small interpolation tables over increasing abscissas (a response spectrum, a
// law curve, a frequency-dependent coefficient), one and two dimensional.
// Plain values: copies share the data by the rules of the containers.
#pragma once

#include <cstdint>

#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"

namespace kelt::fem {

// Where `x` falls on increasing abscissas `v`: interval [i, i + 1] with `r` the
// weight of the lower end. i = -1 for no abscissa; outside the range, the nearest
// end with r = 1.
struct bracket_type {
    std::int64_t i = -1;
    double r = 0.0;
};
bracket_type bracket(const dense1D<double, 8>& v, double x) noexcept;

class oneD_table {
public:
    oneD_table() = default;
    // The constant `c` everywhere.
    oneD_table(double c);
    oneD_table(const dense1D<double, 8>& xs, const dense1D<double, 8>& ys);

    // Deep copies, with no test of size or order.
    void init(const dense1D<double, 8>& xs, const dense1D<double, 8>& ys);

    // Linear between abscissas, the end value beyond either end, 0 when empty.
    double operator()(double x) const noexcept;
    dense1D<double, 8> operator()(const dense1D<double, 8>& x) const;

    dense1D<double, 8> xs;
    dense1D<double, 8> ys;
};

class twoD_table {
public:
    twoD_table() = default;
    twoD_table(const dense1D<double, 8>& xs, const dense1D<double, 8>& ys, const dense2D<double>& values);
    // Reads "xs ys values" from a text file: a vector is an optional count then
    // "[ numbers ]", the matrix is "rows cols" then its numbers row after row,
    // optionally between brackets. Anything unreadable gives an empty table.
    explicit twoD_table(const char* path);

    // Deep copies when `values` is xs.size() x ys.size() and both abscissas are
    // non-decreasing; otherwise the table is left empty, with no report.
    void init(const dense1D<double, 8>& xs, const dense1D<double, 8>& ys, const dense2D<double>& values);

    // Bilinear inside; beyond the range of an abscissa, the first or last row
    // (column) is used. 0 when empty.
    double operator()(double x, double y) const noexcept;
    // Entry by entry over the pairs (xs[k], ys[k]) of the shorter length.
    dense1D<double, 8> operator()(const dense1D<double, 8>& xs, const dense1D<double, 8>& ys) const;

    dense1D<double, 8> xs; // one per row of `values`
    dense1D<double, 8> ys; // one per column of `values`
    dense2D<double> values;
};

} // namespace kelt::fem
