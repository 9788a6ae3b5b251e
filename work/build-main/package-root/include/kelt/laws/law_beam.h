// Laws of beam sections: the elastic section (stiffness of the axial, bending,
// torsion and shear strains of the beam axis, with offsets, a product of inertia
// and a taper) and the section's mass. Generalised strains and section forces are
// in the order axial, bending y, bending z, torsion, shear y, shear z.
#pragma once

#include <utility>

#include "kelt/laws/law_base.h"
#include "kelt/math/fixed.h"

namespace kelt::core {

using section6 = symmetric_fixed<double, 6>;

// What the beam physics asks of a section law. `xi` runs from -1 at the first node
// to 1 at the second, for sections that vary along the element.
class law_beam_stiff : public law_1d {
public:
    // The orientation vector of the element's y axis; false when it cannot be read.
    virtual bool get_orientation(const law_key& key, double (&y)[3]) const = 0;
    // The section matrix at xi; false, with D zero, when the data cannot be read.
    virtual bool get_section(const law_key& key, double xi, section6& D) const = 0;
    // Section forces at xi with no strain (initial forces); zero when none.
    virtual void get_initial_forces(const law_key& key, double xi, double (&s)[6]) const = 0;
    // The free strains of a section temperature T of n components (mean, then the
    // terms of the two curvatures): axial, bending y, bending z.
    virtual void get_thermal_strain(const law_key& key, const double* T, unsigned n, double (&out)[3]) const = 0;
};

// Parameters (9, 15, 22, 24 or 31 values; the short forms are extended to 22 or 31):
//   0 to 2   the orientation vector of the section's y axis
//   3 E, 4 G (nu in the 9-value form), 5 thermal expansion
//   6 A, 7 Ay, 8 Az (shear areas; A stands in for one that is not positive),
//   9 J, 10 Iy, 11 Iz, 12 Iyz, 13 yc, 14 zc (offsets of the reference point)
//   22 values: 15 to 20 initial section forces, 21 a scale for stress recovery
//   31 values: 15 to 23 the second end's 6 to 14 (a tapered member), 24 to 29 the
//   initial forces, 30 the scale.
class law_beam_StVenant : public law_beam_stiff {
public:
    bool valid(const dense1D<double, 8>& data) const override;
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    std::pair<double, double> get_stiffness_range(field_tag field) const override;
    // E, G or A not positive.
    bool describe_unusable(char* text, unsigned size) const override;

    bool get_orientation(const law_key& key, double (&y)[3]) const override;
    bool get_section(const law_key& key, double xi, section6& D) const override;
    void get_initial_forces(const law_key& key, double xi, double (&s)[6]) const override;
    void get_thermal_strain(const law_key& key, const double* T, unsigned n, double (&out)[3]) const override;

    // The section matrix of the values 6 to 14 at `v`, with E and G.
    static void section(double E, double G, const double* v, section6& D);
    // The taper coefficient of one value between its two ends: 0 when the ends sum
    // to nothing or when it would change the sign of the value.
    static double taper(double end1, double end2) noexcept;
};

// Parameters (6, 11 or 18 values; 6 is extended to 11):
//   0 to 2   orientation of the section's y axis, 3 density rho
//   4 A, 5 polar inertia Ip (torsional rotary inertia about the centroid)
//   11 values: 6 Iy, 7 Iz, 8 Iyz, 9 yc, 10 zc (position of the centroid from the
//   reference point); the 6-value form has Iy = Iz = Ip / 2 and no offset
//   18 values: 11 to 17 the second end's 4 to 10, linear in between.
class law_beam_mass : public law_1d {
public:
    bool valid(const dense1D<double, 8>& data) const override;
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;

    bool get_orientation(const law_key& key, double (&y)[3]) const;
    // The mass per unit length of the section at xi, on the DOFs of a node: three
    // translations then three rotations in the element's frame.
    bool get_section_mass(const law_key& key, double xi, section6& M) const;
};

} // namespace kelt::core
