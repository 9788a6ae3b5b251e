#include "kelt/core/bases_mgr.h"

#include <cmath>

namespace kelt::core {

namespace {

// Below this norm a vector has no direction.
constexpr double null_norm = 1e-12;

double dot(const point3& a, const point3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

double norm(const point3& a) { return std::sqrt(dot(a, a)); }

point3 cross(const point3& a, const point3& b)
{
    return {{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]}};
}

point3 scaled(const point3& a, double s) { return {{a[0] * s, a[1] * s, a[2] * s}}; }

point3 difference(const point3& a, const point3& b) { return {{a[0] - b[0], a[1] - b[1], a[2] - b[2]}}; }

// a minus its part along the unit vector u.
point3 without(const point3& a, const point3& u) { return difference(a, scaled(u, dot(a, u))); }

point3 column(const frame3& f, unsigned j) { return {{f(0, j), f(1, j), f(2, j)}}; }

void set_column(frame3& f, unsigned j, const point3& c)
{
    for (unsigned i = 0; i < 3; ++i) f(i, j) = c[i];
}

point3 coordinate_axis(unsigned k)
{
    point3 e;
    e[k] = 1.0;
    return e;
}

// The first index of the smallest absolute entry.
unsigned smallest_entry(const point3& a)
{
    unsigned k = 0;
    for (unsigned i = 1; i < 3; ++i)
        if (std::fabs(a[i]) < std::fabs(a[k])) k = i;
    return k;
}

// A unit vector orthogonal to the unit vector u: the coordinate axis of u's smallest
// entry, whose part along u is at most 1/sqrt(3), so that enough is left.
point3 orthogonal_unit(const point3& u)
{
    const point3 v = without(coordinate_axis(smallest_entry(u)), u);
    return scaled(v, 1.0 / norm(v));
}

// The direction of a, or a zero vector when a is null.
point3 direction(const point3& a)
{
    const double n = norm(a);
    return n > null_norm ? scaled(a, 1.0 / n) : point3{};
}

// Columns of the frame taken to local (A = Qᵀ) or to global (A = Q): T becomes A T Aᵀ.
// `shear` is the factor between the stored shears and the tensor's: 1 or 2.
void rotate_tensor(const frame3& q, voigt6& s, double shear, bool to_local)
{
    const double h = 1.0 / shear;
    const double t[3][3] = {{s[0], h * s[3], h * s[4]}, {h * s[3], s[1], h * s[5]}, {h * s[4], h * s[5], s[2]}};
    double a[3][3];
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) a[i][j] = to_local ? q(j, i) : q(i, j);
    double at[3][3] = {};
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j)
            for (unsigned k = 0; k < 3; ++k) at[i][j] += a[i][k] * t[k][j];
    double r[3][3] = {};
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j)
            for (unsigned k = 0; k < 3; ++k) r[i][j] += at[i][k] * a[j][k];
    s[0] = r[0][0];
    s[1] = r[1][1];
    s[2] = r[2][2];
    s[3] = shear * r[0][1];
    s[4] = shear * r[0][2];
    s[5] = shear * r[1][2];
}

} // namespace

void rotate_stress_to_local(const frame3& frame, voigt6& stress) { rotate_tensor(frame, stress, 1.0, true); }
void rotate_stress_to_global(const frame3& frame, voigt6& stress) { rotate_tensor(frame, stress, 1.0, false); }
void rotate_strain_to_local(const frame3& frame, voigt6& strain) { rotate_tensor(frame, strain, 2.0, true); }
void rotate_strain_to_global(const frame3& frame, voigt6& strain) { rotate_tensor(frame, strain, 2.0, false); }

void rotate_constitutive_to_global(const frame3& frame, matrix_fixed<double, 6, 6>& D)
{
    // Column k of R is the local strain of the global unit strain k.
    matrix_fixed<double, 6, 6> R;
    for (unsigned k = 0; k < 6; ++k) {
        voigt6 e;
        e[k] = 1.0;
        rotate_strain_to_local(frame, e);
        for (unsigned i = 0; i < 6; ++i) R(i, k) = e[i];
    }
    matrix_fixed<double, 6, 6> DR;
    for (unsigned i = 0; i < 6; ++i)
        for (unsigned j = 0; j < 6; ++j)
            for (unsigned k = 0; k < 6; ++k) DR(i, j) += D(i, k) * R(k, j);
    for (unsigned i = 0; i < 6; ++i)
        for (unsigned j = 0; j < 6; ++j) {
            double sum = 0.0;
            for (unsigned k = 0; k < 6; ++k) sum += R(k, i) * DR(k, j);
            D(i, j) = sum;
        }
}

point3 normalised_axis(const point3& axis)
{
    const double n = norm(axis);
    if (n > null_norm) return scaled(axis, 1.0 / n);
    point3 z = axis;
    z[2] = 1.0;
    return z;
}

frame3 orthonormalised(const frame3& given)
{
    point3 e0 = direction(column(given, 0));
    if (norm(e0) == 0.0) e0 = coordinate_axis(0);

    // Columns are scaled to unit length before the projections, so that the test
    // for "nothing left" does not depend on the caller's units; each projection is
    // done twice, which keeps orthogonality to rounding for nearly parallel input.
    point3 e1 = direction(column(given, 1));
    for (int pass = 0; pass < 2; ++pass) e1 = without(e1, e0);
    e1 = direction(e1);
    if (norm(e1) == 0.0) e1 = orthogonal_unit(e0);

    point3 e2 = direction(column(given, 2));
    for (int pass = 0; pass < 2; ++pass) e2 = without(without(e2, e0), e1);
    e2 = direction(e2);
    if (norm(e2) == 0.0) e2 = cross(e0, e1);

    frame3 f;
    set_column(f, 0, e0);
    set_column(f, 1, e1);
    set_column(f, 2, e2);
    return f;
}

namespace {

frame3 frame_at(const basis_base& b, const point3& point)
{
    frame3 q;
    b.get_matrix(point, q);
    return q;
}

} // namespace

void basis_base::to_local(const point3& point, point3& v) const
{
    const frame3 q = frame_at(*this, point);
    v = {{dot(column(q, 0), v), dot(column(q, 1), v), dot(column(q, 2), v)}};
}

void basis_base::to_global(const point3& point, point3& v) const
{
    const frame3 q = frame_at(*this, point);
    point3 g;
    for (unsigned i = 0; i < 3; ++i) g[i] = q(i, 0) * v[0] + q(i, 1) * v[1] + q(i, 2) * v[2];
    v = g;
}

void basis_base::rotate_stress_to_local(const point3& point, voigt6& stress) const
{
    core::rotate_stress_to_local(frame_at(*this, point), stress);
}

void basis_base::rotate_strain_to_local(const point3& point, voigt6& strain) const
{
    core::rotate_strain_to_local(frame_at(*this, point), strain);
}

void basis_base::rotate_stress_to_global(const point3& point, voigt6& stress) const
{
    core::rotate_stress_to_global(frame_at(*this, point), stress);
}

void basis_base::rotate_strain_to_global(const point3& point, voigt6& strain) const
{
    core::rotate_strain_to_global(frame_at(*this, point), strain);
}

cartesian_basis::cartesian_basis(const frame3& given) : frame(orthonormalised(given)) {}

void cartesian_basis::get_matrix(const point3&, frame3& out) const { out = frame; }

axial_basis::axial_basis(const point3& origin_, const point3& axis_) : origin(origin_), axis(normalised_axis(axis_)) {}

void cylindrical_basis::get_matrix(const point3& point, frame3& frame) const
{
    // The axial part is removed twice: far from the origin the first subtraction
    // leaves rounding along the axis of the size of the coordinates.
    point3 d = difference(point, origin);
    for (int pass = 0; pass < 2; ++pass) d = without(d, axis);
    point3 radial = direction(d);
    if (norm(radial) == 0.0) radial = orthogonal_unit(axis); // on the axis
    set_column(frame, 0, radial);
    set_column(frame, 1, cross(axis, radial));
    set_column(frame, 2, axis);
}

void spherical_basis::get_matrix(const point3& point, frame3& frame) const
{
    point3 radial = direction(difference(point, origin));
    if (norm(radial) == 0.0) radial = coordinate_axis(smallest_entry(axis)); // at the origin
    // axis x radial is short near the axis, and its rounding then tilts it out of
    // the tangent plane: the radial part is removed again after scaling.
    point3 first = direction(cross(axis, radial));
    first = direction(without(first, radial));
    if (norm(first) == 0.0) first = orthogonal_unit(radial); // on the axis
    set_column(frame, 0, first);
    set_column(frame, 1, cross(radial, first));
    set_column(frame, 2, radial);
}

namespace {

unsigned add(bases_mgr& mgr, basis_base* basis)
{
    mgr.bases.push_back(Ptr<basis_base>(basis));
    return mgr.size() - 1;
}

} // namespace

unsigned bases_mgr::create_cartesian(const frame3& frame) { return add(*this, new cartesian_basis(frame)); }

unsigned bases_mgr::create_cylindrical(const point3& origin, const point3& axis)
{
    return add(*this, new cylindrical_basis(origin, axis));
}

unsigned bases_mgr::create_spherical(const point3& origin, const point3& axis)
{
    return add(*this, new spherical_basis(origin, axis));
}

} // namespace kelt::core
