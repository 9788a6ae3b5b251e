// One-dimensional elastic laws of rods and distributed springs: a force of one
// strain-like number, with a thermal strain, an initial strain and a force floor.
// The linear law holds one stiffness; the non-linear one a table of stiffness by
// breakpoint, whose force is the integral of the stiffness from 0.
#pragma once

#include <utility>

#include "kelt/laws/law_scalar.h"
#include "kelt/math/dense2D.h"

namespace kelt::core {

// 0 k, 1 a value kept for the host, 2 thermal expansion a, 3 initial strain,
// 4 force floor; the short form of 3 is extended with zeros.
class law_spring : public law_scalar {
public:
    bool valid(const dense1D<double, 8>& data) const override;
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    std::pair<double, double> get_stiffness_range(field_tag field) const override;

    // At the strain s: stiffness k, force f (after the floor), energy.
    using law_scalar::get_force;
    void get_force(const law_key& key, double s, double& k, double& f, double& energy, const double* state_in,
                   double* state_out) const override;
    double get_entry_1(const law_key& key) const noexcept;
    double get_thermal_expansion(const law_key& key) const noexcept;
    void get_spring_data(const law_key& key, double& d1, double& d2, double& d3, double& d4) const noexcept;
    void add_initial_strain(const law_key& key, double& strain) const noexcept;
    // strain -= a T, force -= a T k.
    void get_thermal_strain(const law_key& key, double T, double& strain) const noexcept;
    virtual void get_thermal_force(const law_key& key, double T, double& force) const;
    // The initial strain and the force floor of a parameter vector of this class.
    virtual double initial_strain_of(const dense1D<double, 8>& data) const noexcept;
    virtual double force_floor_of(const dense1D<double, 8>& data) const noexcept;

protected:
    // Where the four trailing values stand in a parameter vector of this class.
    virtual unsigned tail(const dense1D<double, 8>& data) const noexcept;
    static void apply_floor(double floor, double& f) noexcept;
};

// Breakpoints (column 0) and stiffness (column 1) of n rows, then data[1], a, the
// initial strain and the force floor: 2 n + 4 values. The last breakpoint is the
// largest finite double, so that every strain falls in a row.
class law_spring_nl : public law_spring {
public:
    [[nodiscard]] error_type init(const dense2D<double>& table, double p1, double p2, double p3, double p4);
    using law_spring::init;
    bool valid(const dense1D<double, 8>& data) const override;
    [[nodiscard]] bool process_data(dense1D<double, 8>&) const override { return true; }
    std::pair<double, double> get_stiffness_range(field_tag field) const override;
    using law_spring::get_force;
    void get_force(const law_key& key, double s, double& k, double& f, double& energy, const double* state_in,
                   double* state_out) const override;
    void get_thermal_force(const law_key& key, double T, double& force) const override;

    unsigned nbr_rows = 0;

protected:
    unsigned tail(const dense1D<double, 8>& data) const noexcept override;

private:
    void walk(const dense1D<double, 8>& d, double x, double& k, double& f, double& energy) const;
};

// f and energy as integrals from 0 to x of a table of n breakpoints b (the last
// one the largest finite double) and stiffnesses; k at x. All 0 past the end.
void stiffness_table_walk(const double* b, const double* stiffness, unsigned n, double x, double& k, double& f,
                          double& energy) noexcept;

} // namespace kelt::core
