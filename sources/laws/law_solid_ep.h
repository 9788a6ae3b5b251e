// Elastoplastic solids: von Mises plasticity with isotropic hardening, an
// incremental elastic predictor from the last committed state, a scalar radial
// return and its consistent tangent. Each derived law gives only its hardening
// curve. A point's state is 13 values: the total strain (6) and the stress (6) of
// the last commit, then the equivalent plastic strain.
#pragma once

#include <utility>

#include "kelt/laws/hardening.h"
#include "kelt/laws/law_solid.h"
#include "kelt/math/dense2D.h"

namespace kelt::core {

class law_solid_ep_iso_hardening : public law_solid_stiff {
public:
    static constexpr unsigned nbr_states = 13;

    unsigned nbr_internal_states() const override { return nbr_states; }
    std::pair<double, double> get_stiffness_range(field_tag field) const override;
    // E at or below 0, nu outside (-1, 0.5).
    bool describe_unusable(char* text, unsigned size) const override;
    void add_initial_strain(const law_key& key, voigt6& strain) const override;
    // The new state is the committed one unless the point has yielded and its
    // return converged: a point that never yielded keeps the virgin state of
    // zeros, and a failed return keeps its last commit (its stress then is the
    // elastic trial).
    bool get_stress(const law_key& key, const voigt6& eps, constitutive6& D, voigt6& sigma, double& energy_density,
                    const double* state_in, double* state_out) const override;
    void get_thermal_strain(const law_key& key, const double* T, unsigned n, voigt6& out) const override;
    // The elastic matrix.
    void get_constitutive(const law_key& key, constitutive6& D) const override;

    // The initial stress of a parameter vector; false when it has none.
    virtual bool get_initial_stress(const dense1D<double, 8>& data, voigt6& out) const = 0;
    virtual bool get_hardening_data(const dense1D<double, 8>& data, hardening_curve& out) const = 0;
    virtual bool return_mapping(double E, double G, const hardening_curve& curve, voigt6& stress, double& p,
                                constitutive6& D) const;

protected:
    // Reads the initial stress at `at` when the vector reaches that far.
    static bool initial_stress_at(const dense1D<double, 8>& data, unsigned at, voigt6& out) noexcept;
};

// 0 E, 1 nu, 2 thermal expansion, 3 tangent modulus Et, 4 yield stress, then
// optionally 5 to 10 an initial stress (5 or 11 values). Et = 0 is perfectly
// plastic; Et = E cannot yield, and a point beyond yield fails its return.
class law_solid_ep_perfect : public law_solid_ep_iso_hardening {
public:
    bool valid(const dense1D<double, 8>& data) const override;
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    bool get_initial_stress(const dense1D<double, 8>& data, voigt6& out) const override;
    bool get_hardening_data(const dense1D<double, 8>& data, hardening_curve& out) const override;
};

// 0 E, 1 nu, 2 thermal expansion, 3 yield stress s0, 4 coefficient a, 5 exponent
// n, then optionally 6 to 11 an initial stress (6 or 12 values); y = s0 + k p^(1/n).
class law_solid_ep_power : public law_solid_ep_iso_hardening {
public:
    bool valid(const dense1D<double, 8>& data) const override;
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    bool get_initial_stress(const dense1D<double, 8>& data, voigt6& out) const override;
    bool get_hardening_data(const dense1D<double, 8>& data, hardening_curve& out) const override;
};

// The values of the power law in the curve eps = sigma / E + a (s0 / E) (sigma /
// s0)^n: y = k p^(1/n) with no offset. The power law's plastic strain is
// a (s0 / E) ((sigma - s0) / s0)^n instead.
class law_solid_ep_RambergOsgood : public law_solid_ep_power {
public:
    bool get_hardening_data(const dense1D<double, 8>& data, hardening_curve& out) const override;
};

// 0 E, 1 nu, 2 thermal expansion, 3 to 8 an initial stress, then the slopes a
// (n values, a0 the elastic one) and the strains b (n values) of the curve.
class law_solid_ep_piecewise_linear : public law_solid_ep_iso_hardening {
public:
    // `base` of 3 or 9 values; lists of one size, a0 and b0 positive, b not
    // decreasing.
    [[nodiscard]] error_type init(const dense1D<double, 8>& base, const dense1D<double, 8>& a,
                                  const dense1D<double, 8>& b);
    // The lists as the columns 0 and 1 of a table.
    [[nodiscard]] error_type init(const dense1D<double, 8>& base, const dense2D<double>& table);
    using law_solid_ep_iso_hardening::init;

    bool valid(const dense1D<double, 8>& data) const override;
    // Appends the compiled curve (points, ordinates, slopes) to the lists.
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    bool get_initial_stress(const dense1D<double, 8>& data, voigt6& out) const override;
    bool get_hardening_data(const dense1D<double, 8>& data, hardening_curve& out) const override;

    unsigned nbr_points = 0;
};

} // namespace kelt::core
