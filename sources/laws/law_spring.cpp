// Elastic spring laws: the linear one and the table of stiffness by breakpoint.
#include "kelt/laws/law_spring.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kelt::core {

namespace {
constexpr double largest = std::numeric_limits<double>::max();
}

bool law_spring::valid(const dense1D<double, 8>& d) const { return d.size() == 3 || d.size() == 5; }

bool law_spring::process_data(dense1D<double, 8>& d) const { return d.size() >= 5 || d.resize(5, 0.0); }

std::pair<double, double> law_spring::get_stiffness_range(field_tag field) const
{
    if (field != displacement_tag || data.empty()) return {0.0, 0.0};
    return {data[0], data[0]};
}

unsigned law_spring::tail(const dense1D<double, 8>&) const noexcept { return 1; }

double law_spring::initial_strain_of(const dense1D<double, 8>& d) const noexcept
{
    const unsigned t = tail(d);
    return t + 2 < d.size() ? d[t + 2] : 0.0;
}

double law_spring::force_floor_of(const dense1D<double, 8>& d) const noexcept
{
    const unsigned t = tail(d);
    return t + 3 < d.size() ? d[t + 3] : 0.0;
}

void law_spring::apply_floor(double c, double& f) noexcept
{
    if (c > 0.0 && f < c) f = c;
    if (c < 0.0 && c < f) f = c;
}

void law_spring::get_force(const law_key& key, double s, double& k, double& f, double& energy, const double*,
                           double*) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    k = d.empty() ? 0.0 : d[0];
    f = k * s;
    energy = f * s * 0.5;
    apply_floor(force_floor_of(d), f);
}

double law_spring::get_entry_1(const law_key& key) const noexcept
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    const unsigned t = tail(d);
    return t < d.size() ? d[t] : 0.0;
}

double law_spring::get_thermal_expansion(const law_key& key) const noexcept
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    const unsigned t = tail(d);
    return t + 1 < d.size() ? d[t + 1] : 0.0;
}

void law_spring::get_spring_data(const law_key& key, double& d1, double& d2, double& d3, double& d4) const noexcept
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    d1 = get_entry_1(key);
    d2 = get_thermal_expansion(key);
    d3 = initial_strain_of(d);
    d4 = force_floor_of(d);
}

void law_spring::add_initial_strain(const law_key& key, double& strain) const noexcept
{
    strain += initial_strain_of(element_data(key.model, key.element));
}

void law_spring::get_thermal_strain(const law_key& key, double T, double& strain) const noexcept
{
    strain -= get_thermal_expansion(key) * T;
}

void law_spring::get_thermal_force(const law_key& key, double T, double& force) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    force -= get_thermal_expansion(key) * T * (d.empty() ? 0.0 : d[0]);
}

// ---------------------------------------------------------------------------------

error_type law_spring_nl::init(const dense2D<double>& table, double p1, double p2, double p3, double p4)
{
    data.clear_hard();
    if (table.cols() != 2 || table.rows() == 0) return law_data_error;
    const unsigned n = table.rows();
    dense1D<double, 8> d;
    if (!d.resize(2 * n + 4, 0.0)) return memory_error;
    for (unsigned i = 0; i < n; ++i) {
        d[i] = table(i, 0);
        d[n + i] = table(i, 1);
    }
    d[n - 1] = largest;
    d[2 * n] = p1, d[2 * n + 1] = p2, d[2 * n + 2] = p3, d[2 * n + 3] = p4;
    nbr_rows = n;
    return law_spring::init(d);
}

bool law_spring_nl::valid(const dense1D<double, 8>& d) const
{
    return nbr_rows != 0 && d.size() == 2 * nbr_rows + 4;
}

unsigned law_spring_nl::tail(const dense1D<double, 8>& d) const noexcept
{
    return d.size() >= 4 ? d.size() - 4 : d.size();
}

std::pair<double, double> law_spring_nl::get_stiffness_range(field_tag) const
{
    double lower = largest, upper = -largest;
    for (unsigned i = 0; i < nbr_rows && nbr_rows + i < data.size(); ++i) {
        lower = std::min(lower, data[nbr_rows + i]);
        upper = std::max(upper, data[nbr_rows + i]);
    }
    return {lower, upper};
}

void stiffness_table_walk(const double* b, const double* stiffness, unsigned n, double x, double& k, double& f,
                          double& energy) noexcept
{
    k = f = energy = 0.0;
    if (n == 0) return;
    const auto row = [&](double v) { return unsigned(std::lower_bound(b, b + n, v) - b); };
    const unsigned r0 = row(0.0), r1 = row(x);
    if (r0 >= n || r1 >= n) return;
    // From 0 to x piece by piece: each breakpoint passed closes a piece of the
    // stiffness of its row.
    double at = 0.0;
    unsigned r = r0;
    const auto piece = [&](double to, double kr) {
        const double dx = to - at, df = kr * dx;
        energy += dx * (f + 0.5 * df);
        f += df;
        at = to;
    };
    if (x > 0.0) {
        for (; r < r1; ++r) piece(b[r], stiffness[r]);
    } else {
        // Going down, the piece below breakpoint r - 1 belongs to row r - 1's
        // successor: the row whose interval is (b[r - 1], b[r]].
        for (; r > r1; --r) piece(b[r - 1], stiffness[r]);
    }
    piece(x, stiffness[r1]);
    k = stiffness[r1];
}

void law_spring_nl::get_force(const law_key& key, double s, double& k, double& f, double& energy, const double*,
                              double*) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    walk(d, s, k, f, energy);
    apply_floor(force_floor_of(d), f);
}

void law_spring_nl::get_thermal_force(const law_key& key, double T, double& force) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    double k, f, e;
    walk(d, get_thermal_expansion(key) * T, k, f, e);
    force -= f;
}

void law_spring_nl::walk(const dense1D<double, 8>& d, double x, double& k, double& f, double& energy) const
{
    k = f = energy = 0.0;
    if (nbr_rows == 0 || d.size() < 2 * nbr_rows) return;
    stiffness_table_walk(d.data(), d.data() + nbr_rows, nbr_rows, x, k, f, energy);
}

} // namespace kelt::core
