// One-dimensional non-linear laws: the table of stiffness by breakpoint of the
// discrete elements, and the elastoplastic laws with isotropic hardening of the
// discrete elements (law_scalar_ep_*) and of rods and spring beds
// (law_spring_ep_*, which keep the thermal strain, the initial strain and the
// force floor of law_spring). A point's state is 3 values: the strain and the
// force of the last commit, then the equivalent plastic strain.
#pragma once

#include <limits>
#include <utility>

#include "kelt/laws/hardening.h"
#include "kelt/laws/law_scalar.h"
#include "kelt/laws/law_spring.h"
#include "kelt/math/dense2D.h"

namespace kelt::core {

// Breakpoints (column 0) and stiffness (column 1) of n rows, then the shift:
// 2 n + 1 values. The force at s is the integral of the stiffness from 0 to
// s + shift; the last breakpoint is the largest finite double.
class law_scalar_nl : public law_scalar {
public:
    [[nodiscard]] error_type init(const dense2D<double>& table, double shift);
    using law_scalar::init;
    bool valid(const dense1D<double, 8>& data) const override;
    std::pair<double, double> get_stiffness_range(field_tag field) const override;
    using law_scalar::get_force;
    void get_force(const law_key& key, double s, double& k, double& f, double& energy, const double* state_in,
                   double* state_out) const override;

    unsigned nbr_rows = 0;
};

// Beyond either limit (|s| >= strain, |f| >= stress) a member has broken: no
// force, no stiffness.
struct ep_limits {
    double strain = std::numeric_limits<double>::max();
    double stress = std::numeric_limits<double>::max();
};

// The elastoplastic step of one point from its committed state (null: virgin) at
// the number s with the elastic stiffness E; the new state is written only for a
// point that has yielded and whose return converged, else the committed one is.
void ep_step(double E, const hardening_curve& curve, const ep_limits& limits, double s, double& k, double& f,
             double& energy, const double* state_in, double* state_out) noexcept;

inline constexpr unsigned ep_1d_states = 3;

class law_scalar_ep_iso_hardening : public law_scalar {
public:
    unsigned nbr_internal_states() const override { return ep_1d_states; }
    bool valid(const dense1D<double, 8>& data) const override = 0;
    std::pair<double, double> get_stiffness_range(field_tag field) const override;
    using law_scalar::get_force;
    void get_force(const law_key& key, double s, double& k, double& f, double& energy, const double* state_in,
                   double* state_out) const override;
    void set_limit_states(double strain, double stress) noexcept { limits = {strain, stress}; }
    // E and the curve of a parameter vector; false when it has none.
    virtual bool get_hardening_data(const dense1D<double, 8>& data, double& E, hardening_curve& out) const = 0;

    ep_limits limits;
};

// 0 E, 1 Et, 2 yield stress.
class law_scalar_ep_perfect : public law_scalar_ep_iso_hardening {
public:
    bool valid(const dense1D<double, 8>& data) const override { return data.size() >= 3; }
    bool get_hardening_data(const dense1D<double, 8>& data, double& E, hardening_curve& out) const override;
};

// 0 E, 1 yield stress s0, 2 coefficient a, 3 exponent n.
class law_scalar_ep_power : public law_scalar_ep_iso_hardening {
public:
    bool valid(const dense1D<double, 8>& data) const override { return data.size() >= 4; }
    bool get_hardening_data(const dense1D<double, 8>& data, double& E, hardening_curve& out) const override;
};

class law_scalar_ep_RambergOsgood : public law_scalar_ep_power {
public:
    bool get_hardening_data(const dense1D<double, 8>& data, double& E, hardening_curve& out) const override;
};

// The slopes a (a0 the elastic stiffness) and the strains b of the curve, then
// once processed its points, ordinates and slopes: 5 n values.
class law_scalar_ep_piecewise_linear : public law_scalar_ep_iso_hardening {
public:
    [[nodiscard]] error_type init(const dense1D<double, 8>& a, const dense1D<double, 8>& b);
    [[nodiscard]] error_type init(const dense2D<double>& table);
    using law_scalar_ep_iso_hardening::init;
    bool valid(const dense1D<double, 8>& data) const override;
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    bool get_hardening_data(const dense1D<double, 8>& data, double& E, hardening_curve& out) const override;

    unsigned nbr_points = 0;
};

// ---------------------------------------------------------------------------------

// The spring laws with hardening: 0 the elastic stiffness, 1 the value kept for
// the host, 2 thermal expansion, then the curve, then the initial strain and the
// force floor, which applies after the return.
class law_spring_ep_iso_hardening : public law_spring {
public:
    unsigned nbr_internal_states() const override { return ep_1d_states; }
    bool valid(const dense1D<double, 8>& data) const override = 0;
    using law_spring::get_force;
    void get_force(const law_key& key, double s, double& k, double& f, double& energy, const double* state_in,
                   double* state_out) const override;
    double initial_strain_of(const dense1D<double, 8>& data) const noexcept override;
    double force_floor_of(const dense1D<double, 8>& data) const noexcept override;
    void set_limit_states(double strain, double stress) noexcept { limits = {strain, stress}; }
    virtual bool get_hardening_data(const dense1D<double, 8>& data, hardening_curve& out) const = 0;

    ep_limits limits;

protected:
    // Where the initial strain stands; the force floor follows it.
    virtual unsigned tail_at(const dense1D<double, 8>& data) const noexcept = 0;
};

// 0 to 2 as law_spring, 3 Et, 4 yield stress, 5 initial strain, 6 force floor (5
// or 7 values).
class law_spring_ep_perfect : public law_spring_ep_iso_hardening {
public:
    bool valid(const dense1D<double, 8>& data) const override { return data.size() == 5 || data.size() == 7; }
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    bool get_hardening_data(const dense1D<double, 8>& data, hardening_curve& out) const override;

protected:
    unsigned tail_at(const dense1D<double, 8>&) const noexcept override { return 5; }
};

// 0 to 2 as law_spring, 3 s0, 4 a, 5 n, 6 initial strain, 7 force floor (6 or 8
// values).
class law_spring_ep_power : public law_spring_ep_iso_hardening {
public:
    bool valid(const dense1D<double, 8>& data) const override { return data.size() == 6 || data.size() == 8; }
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    bool get_hardening_data(const dense1D<double, 8>& data, hardening_curve& out) const override;

protected:
    unsigned tail_at(const dense1D<double, 8>&) const noexcept override { return 6; }
};

class law_spring_ep_RambergOsgood : public law_spring_ep_power {
public:
    bool get_hardening_data(const dense1D<double, 8>& data, hardening_curve& out) const override;
};

// The 5 values of law_spring (3 extended with zeros: 3 initial strain, 4 force
// floor), then the lists a and b, then once processed the compiled curve.
class law_spring_ep_piecewise_linear : public law_spring_ep_iso_hardening {
public:
    [[nodiscard]] error_type init(const dense1D<double, 8>& data, const dense1D<double, 8>& a,
                                  const dense1D<double, 8>& b);
    [[nodiscard]] error_type init(const dense1D<double, 8>& data, const dense2D<double>& table);
    using law_spring_ep_iso_hardening::init;
    bool valid(const dense1D<double, 8>& data) const override;
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    bool get_hardening_data(const dense1D<double, 8>& data, hardening_curve& out) const override;

    unsigned nbr_points = 0;

protected:
    unsigned tail_at(const dense1D<double, 8>&) const noexcept override { return 3; }
};

} // namespace kelt::core
