// Local bases: rules that give an orthonormal, right-handed frame at any point of
// space, for oriented materials, and the manager that holds them by index.
#pragma once

#include <vector>

#include "kelt/core/ref_counted.h"
#include "kelt/math/fixed.h"

namespace kelt::core {

using point3 = vector_fixed<double, 3>;
using frame3 = matrix_fixed<double, 3, 3>;
// Symmetric tensor in the order of the solid laws: xx, yy, zz, xy, xz, yz. Strains
// carry engineering shears (twice the tensor shear), stresses plain ones.
using voigt6 = vector_fixed<double, 6>;

// Tensor rotations with a frame whose columns are the local axes Q: to local is
// Qᵀ T Q, to global Q T Qᵀ.
void rotate_stress_to_local(const frame3& frame, voigt6& stress);
void rotate_stress_to_global(const frame3& frame, voigt6& stress);
void rotate_strain_to_local(const frame3& frame, voigt6& strain);
void rotate_strain_to_global(const frame3& frame, voigt6& strain);
// A constitutive matrix given in the frame becomes the global one: with R the
// strain rotation to local, D_global = Rᵀ D R, which keeps the energy σ·ε.
void rotate_constitutive_to_global(const frame3& frame, matrix_fixed<double, 6, 6>& D);

class basis_base : public ref_counted {
public:
    // Columns of `frame` are the local axes at `point`.
    virtual void get_matrix(const point3& point, frame3& frame) const = 0;
    // v becomes its components in the local frame at the point.
    virtual void to_local(const point3& point, point3& v) const;
    virtual void rotate_stress_to_local(const point3& point, voigt6& stress) const;
    virtual void rotate_strain_to_local(const point3& point, voigt6& strain) const;

    // The inverse rotations; not virtual, since they follow from get_matrix alone.
    void to_global(const point3& point, point3& v) const;
    void rotate_stress_to_global(const point3& point, voigt6& stress) const;
    void rotate_strain_to_global(const point3& point, voigt6& strain) const;
};

// One frame for all of space, made orthonormal on construction.
class cartesian_basis : public basis_base {
public:
    explicit cartesian_basis(const frame3& given);
    void get_matrix(const point3& point, frame3& out) const override;

    frame3 frame;
};

// A frame that turns about the line through `origin` along `axis`.
class axial_basis : public basis_base {
public:
    axial_basis(const point3& origin, const point3& axis);

    point3 origin;
    point3 axis; // unit
};

// Columns: radial, tangential, axial, about the line through `origin` along `axis`.
class cylindrical_basis : public axial_basis {
public:
    using axial_basis::axial_basis;
    void get_matrix(const point3& point, frame3& frame) const override;
};

// Columns: first tangential (axis x radial), second tangential, radial from `origin`.
class spherical_basis : public axial_basis {
public:
    using axial_basis::axial_basis;
    void get_matrix(const point3& point, frame3& frame) const override;
};

// The unit vector of an axis; a null axis (norm at most 1e-12) gets 1 as its third
// entry, the others kept, so that a zero vector becomes z.
point3 normalised_axis(const point3& axis);

// Orthonormalisation of the three columns in turn. A null first column becomes x; a
// second or third column that has nothing left after removal of the earlier ones is
// replaced (a coordinate axis, or the cross product of the first two), so that the
// result is always orthonormal. The handedness of a regular input is kept.
frame3 orthonormalised(const frame3& given);

class bases_mgr : public ref_counted {
public:
    // Each returns the index of the new basis.
    unsigned create_cartesian(const frame3& frame);
    unsigned create_cylindrical(const point3& origin, const point3& axis);
    unsigned create_spherical(const point3& origin, const point3& axis);

    unsigned size() const noexcept { return unsigned(bases.size()); }
    void clear() { bases.clear(); }
    // Null when out of range.
    const basis_base* get(unsigned index) const noexcept
    {
        return index < bases.size() ? bases[index].get() : nullptr;
    }

    std::vector<Ptr<basis_base>> bases;
};

} // namespace kelt::core
