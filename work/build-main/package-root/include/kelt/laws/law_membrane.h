// Elastic laws of membranes (plane stress in a face's own frame) and the view of a
// solid law for the physics that work in a plane: plane strain and the
// axisymmetric solids. Membrane strains are in the order 11, 22, 12 of the face's
// axes, the shear engineering; a membrane law answers with resultants, forces per
// unit length, so that its thickness stays inside it.
#pragma once

#include <utility>

#include "kelt/laws/law_base.h"
#include "kelt/laws/law_solid.h"
#include "kelt/math/fixed.h"

namespace kelt::core {

using membrane3 = vector_fixed<double, 3>;
using constitutive3 = symmetric_fixed<double, 3>;

// What the membrane physics asks of a law at an integration point.
class law_membrane_stiff : public law_2d {
public:
    // D (resultant, thickness included), the resultant N and the energy per unit
    // area of the strain `eps`; false, with all outputs zero, when the element's
    // parameters cannot be read. No membrane law has states yet.
    virtual bool get_stress(const law_key& key, const membrane3& eps, constitutive3& D, membrane3& N,
                            double& energy_density) const = 0;
    // The free thermal strain of a temperature T.
    virtual void get_thermal_strain(const law_key& key, double T, membrane3& out) const = 0;
    // The strain that stands for the law's initial stress (none by default).
    virtual void add_initial_strain(const law_key& key, membrane3& strain) const;
};

// E (0), nu (1), thermal expansion (2), thickness (3); a short form of 3 has the
// unit thickness.
class law_membrane_StVenant : public law_membrane_stiff {
public:
    bool valid(const dense1D<double, 8>& data) const override;
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    std::pair<double, double> get_stiffness_range(field_tag field) const override;
    bool describe_unusable(char* text, unsigned size) const override;
    bool get_stress(const law_key& key, const membrane3& eps, constitutive3& D, membrane3& N,
                    double& energy_density) const override;
    void get_thermal_strain(const law_key& key, double T, membrane3& out) const override;

    // h times the plane-stress matrix; zero unless -1 < nu < 1.
    static void plane_stress(double E, double nu, double h, constitutive3& D);
};

// Values in the material frame, whose first axis makes the angle of entry 6 with
// the face's first axis:
//   0 to 2    the diagonal of C: 11, 22, then the shear modulus 12
//   3, 4      the two principal moduli, which set the stiffness range
//   5         the coupling C(11, 22)
//   6         the angle of the material axes, radians
//   7 to 9    thermal expansion 11, 22, 12
//   10, 11    the couplings C(11, 12), C(22, 12)
//   12        the thickness
//   13 to 15  optionally, an initial membrane stress
// 13 or 16 values; processed, 17, the last one 0 and free for later use.
class law_membrane_orthotropic : public law_membrane_stiff {
public:
    bool valid(const dense1D<double, 8>& data) const override;
    [[nodiscard]] bool process_data(dense1D<double, 8>& data) const override;
    std::pair<double, double> get_stiffness_range(field_tag field) const override;
    bool get_stress(const law_key& key, const membrane3& eps, constitutive3& D, membrane3& N,
                    double& energy_density) const override;
    void get_thermal_strain(const law_key& key, double T, membrane3& out) const override;
    void add_initial_strain(const law_key& key, membrane3& strain) const override;

    static constexpr unsigned processed_size = 17;

    // h C turned from the material axes to the face's.
    static void fill(const dense1D<double, 8>& data, constitutive3& D);
};

// A solid law seen by a physics in a plane. The physics counts its axes a, b in
// the plane and c across it (for the axisymmetric solids: radius, axis, hoop);
// `axes` says which global axis each one is, and strains, stresses and D cross the
// view in the order a, b, c, ab, ac, bc. The solid law works on in its global
// frame (without its material basis).
class law_solid_stiff_2d : public law_2d {
public:
    law_solid_stiff_2d(const Ptr<law_solid_stiff>& solid, const unsigned (&axes)[3]);

    std::pair<double, double> get_stiffness_range(field_tag field) const override;
    bool describe_unusable(char* text, unsigned size) const override;
    unsigned nbr_internal_states() const override;
    bool has_internal_states() const override;

    bool get_stress(const law_key& key, const voigt6& eps, constitutive6& D, voigt6& sigma, double& energy_density,
                    const double* state_in, double* state_out) const;
    void get_thermal_strain(const law_key& key, double T, voigt6& out) const;
    void add_initial_strain(const law_key& key, voigt6& strain) const;
    // Local components (the view's order) from global ones, and back.
    void to_local(const voigt6& global, voigt6& local) const noexcept;
    void to_global(const voigt6& local, voigt6& global) const noexcept;

    Ptr<law_solid_stiff> solid;
    // Global index of each Voigt component of the view's order.
    unsigned map[6];
};

} // namespace kelt::core
