// Laws of plates and shells: the section matrix of order 8 that relates the
// generalised strains (membrane xx, yy, xy, curvatures xx, yy, xy, transverse
// shears xz, yz; engineering shears) to the forces and moments per unit width,
// and the mass of the section.
#pragma once

#include <utility>

#include "kelt/laws/law_base.h"
#include "kelt/math/fixed.h"

namespace kelt::core {

using section8 = symmetric_fixed<double, 8>;
using strain8 = vector_fixed<double, 8>;

// What the plate and shell physics ask of a law at an integration point.
class law_shell_stiff : public law_2d {
public:
    // The section matrix of the element's parameters; false, with D zero, when
    // they cannot be read. Axes are the element's local ones.
    virtual bool get_section(const law_key& key, section8& D) const = 0;
    // D, the generalised stresses D eps and the energy density eps.sigma / 2.
    bool get_stress(const law_key& key, const strain8& eps, section8& D, strain8& sigma,
                    double& energy_density) const;
    // The generalised strains of n section temperatures (the mean change, then its
    // gradient across the thickness): membrane alpha T0, curvatures alpha T1; zero
    // for a law without expansion.
    virtual void get_thermal_strain(const law_key& key, const double* T, unsigned n, strain8& out) const;
};

// 0 E, 1 nu, 2 thermal expansion, 3 thickness h; then 4 the transverse shear
// modulus with its factor, 5 the bending inertia (or, given, the offset z of the
// mid-surface), 6 the membrane-bending coupling h z. Sizes 4, 6 and 15; the short
// forms are completed to 15.
class law_shell_StVenant : public law_shell_stiff {
public:
    bool valid(const dense1D<double, 8>& data) const override;
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    std::pair<double, double> get_stiffness_range(field_tag field) const override;
    bool get_section(const law_key& key, section8& D) const override;
    void get_thermal_strain(const law_key& key, const double* T, unsigned n, strain8& out) const override;
};

// The same section from an orthotropic plane-stress matrix in the element frame:
//   0 to 3   C(xx, xx), C(yy, yy), C(xx, yy), C(xy, xy)
//   4, 5     the transverse shear moduli xz, yz with their factor
//   6, 7     the two principal moduli, which set the stiffness range
//   8 to 10  thermal expansion xx, yy, xy
//   14       thickness h, then 15 the inertia (or the offset z) and 16 h z
// Sizes 15, 16 and 25; the short forms are completed to 25.
class law_shell_orthotropic : public law_shell_stiff {
public:
    bool valid(const dense1D<double, 8>& data) const override;
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    std::pair<double, double> get_stiffness_range(field_tag field) const override;
    bool get_section(const law_key& key, section8& D) const override;
    void get_thermal_strain(const law_key& key, const double* T, unsigned n, strain8& out) const override;
};

// The section matrix given as it is: column j has heights[j] (at most j) entries
// above its diagonal, given first column by column from the top, then the 8
// diagonal values. The translation range is read on the membrane diagonal, the
// rotation range on the bending one.
class law_shell_skyline : public law_shell_stiff {
public:
    explicit law_shell_skyline(const vector_fixed<unsigned, 8>& heights);

    bool valid(const dense1D<double, 8>& data) const override;
    std::pair<double, double> get_stiffness_range(field_tag field) const override;
    bool get_section(const law_key& key, section8& D) const override;

    vector_fixed<unsigned, 8> heights;

private:
    unsigned nbr_couplings() const noexcept;
};

// 0 density, 1 thickness h, 2 offset z of the mid-surface (0 when not given).
class law_shell_mass : public law_2d {
public:
    struct section_type {
        double translation; // rho h
        double coupling;    // rho h z
        double rotation;    // rho (h^3 / 12 + z^2 h)
    };

    bool valid(const dense1D<double, 8>& data) const override;
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    // The element's section; all zero when its parameters cannot be read.
    section_type get_section(const law_key& key) const noexcept;
};

} // namespace kelt::core
