// Elastic laws of three-dimensional solids: isotropic (StVenant), orthotropic in a
// material basis, and the orthotropic law with extra couplings given by skyline
// columns. Strains and stresses are in the order xx, yy, zz, xy, xz, yz, strains
// with engineering shears.
#pragma once

#include <utility>

#include "kelt/core/bases_mgr.h"
#include "kelt/laws/law_base.h"
#include "kelt/math/fixed.h"

namespace kelt::core {

using constitutive6 = symmetric_fixed<double, 6>;

// What the solid physics asks of a law at an integration point.
class law_solid_stiff : public law_3d {
public:
    // The material frame at a point: false (the global frame stands) by default.
    virtual bool get_material_basis(const law_key& key, const point3& x, frame3& basis) const;
    // Adds the strain that stands for the law's initial stress, in the frame in
    // which the law works.
    virtual void add_initial_strain(const law_key& key, voigt6& strain) const;
    // D, sigma and the energy density at a point; an elastic law gives
    // sigma = D eps and eps.sigma / 2. False, with all outputs zero, when the
    // element's parameters cannot be read. A law with history reads the point's
    // last committed state at `state_in` and writes its new one at `state_out`
    // (nbr_internal_states values each): a null `state_in` is the virgin state,
    // a null `state_out` means the new state is not wanted. Both are null for a
    // law without states. The law itself never changes, so threads may share it.
    virtual bool get_stress(const law_key& key, const voigt6& eps, constitutive6& D, voigt6& sigma,
                            double& energy_density, const double* state_in, double* state_out) const = 0;
    // The free thermal strain of a temperature T (T[0]; n values given).
    virtual void get_thermal_strain(const law_key& key, const double* T, unsigned n, voigt6& out) const = 0;
    virtual void get_constitutive(const law_key& key, constitutive6& D) const = 0;
};

// E (0), nu (1), thermal expansion (2), then optionally an initial stress (3 to 8).
class law_solid_StVenant : public law_solid_stiff {
public:
    bool valid(const dense1D<double, 8>& data) const override;
    std::pair<double, double> get_stiffness_range(field_tag field) const override;
    // E at or below 0, nu outside (-1, 0.5).
    bool describe_unusable(char* text, unsigned size) const override;
    void add_initial_strain(const law_key& key, voigt6& strain) const override;
    bool get_stress(const law_key& key, const voigt6& eps, constitutive6& D, voigt6& sigma, double& energy_density,
                    const double* state_in, double* state_out) const override;
    void get_thermal_strain(const law_key& key, const double* T, unsigned n, voigt6& out) const override;
    void get_constitutive(const law_key& key, constitutive6& D) const override;

    // The isotropic matrix; zero unless -1 < nu < 0.5.
    static void isotropic(double E, double nu, constitutive6& D);
};

// Values in the material frame:
//   0 to 5    the diagonal of D: xx, yy, zz, then the shear moduli xy, xz, yz
//   6 to 8    the three principal moduli, which set the stiffness range
//   9 to 11   the normal couplings D(xx, yy), D(xx, zz), D(yy, zz)
//   12 to 17  thermal expansion xx, yy, zz, xy, xz, yz (engineering shears)
//   18 to 23  optionally, an initial stress
class law_solid_orthotropic : public law_solid_stiff {
public:
    // Without a basis the material frame is the global one.
    [[nodiscard]] error_type init(const dense1D<double, 8>& data) override;
    [[nodiscard]] error_type init(const dense1D<double, 8>& data, const Ptr<bases_mgr>& bases, unsigned basis);

    bool valid(const dense1D<double, 8>& data) const override;
    std::pair<double, double> get_stiffness_range(field_tag field) const override;
    bool get_material_basis(const law_key& key, const point3& x, frame3& basis) const override;
    void add_initial_strain(const law_key& key, voigt6& strain) const override;
    bool get_stress(const law_key& key, const voigt6& eps, constitutive6& D, voigt6& sigma, double& energy_density,
                    const double* state_in, double* state_out) const override;
    void get_thermal_strain(const law_key& key, const double* T, unsigned n, voigt6& out) const override;
    void get_constitutive(const law_key& key, constitutive6& D) const override;

    Ptr<bases_mgr> bases;
    unsigned basis_ID = 0xFFFFFFFFu;

protected:
    // Where the groups of values start in a parameter vector of this law.
    struct layout_type {
        unsigned diagonal, moduli, thermal, initial;
        bool has_initial;
        bool valid;
    };
    virtual layout_type layout(const dense1D<double, 8>& data) const;
    // D from a valid parameter vector.
    virtual void fill(const dense1D<double, 8>& data, constitutive6& D) const;
};

// The orthotropic law with couplings: column j of D has `heights[j]` entries above
// its diagonal, given first, column by column from the top; then the values of the
// orthotropic law without its normal couplings (15), then optionally an initial
// stress (6).
class law_solid_skyline : public law_solid_orthotropic {
public:
    explicit law_solid_skyline(const vector_fixed<unsigned, 6>& heights);

    bool valid(const dense1D<double, 8>& data) const override;

    vector_fixed<unsigned, 6> heights;

protected:
    layout_type layout(const dense1D<double, 8>& data) const override;
    void fill(const dense1D<double, 8>& data, constitutive6& D) const override;

private:
    unsigned nbr_couplings() const noexcept;
};

} // namespace kelt::core
