// Public handles on the discrete elements: springs, dash-pots, point masses, user
// matrices and Rayleigh damping. Each is one element, registered in the context
// like a mesh model and joined to meshes by numerical_model_composite:
//
//   fem::law_scalar k;  k.init(2.0e5);
//   fem::spring support(ctx);                      // created and registered
//   support.init(node, 0xFFFFFFFF, displacement_tag, k);  // to the ground
//   fem::numerical_model_composite all(ctx);  all.insert(support.get_ID());
//
// Sign rule: with the element matrix A and the multiplier u, the element adds
// -factor A u to the right-hand side and factor A to the matrix. A node 0xFFFFFFFF
// is the ground. Refusals: invalid_data_error (-101) for bad arguments (an empty
// law, an unknown field, a matrix whose order is not the number of distinct DOFs,
// which also clears the element), element_index_error (-102) for an element other
// than 0 or all.
#pragma once

#include "kelt/core/types.h"
#include "kelt/fem/laws.h"
#include "kelt/fem/numerical_model_base.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"
#include "kelt/math/fixed.h"
#include "kelt/math/symmetric_full.h"

namespace kelt::fem {

class context;

// What every discrete element handle shares: `create` makes a new element, empty
// until `init`, and registers it.
class discrete_element : public numerical_model_base {
public:
    // An empty handle until create.
    discrete_element() = default;

protected:
    template <class Core>
    void make(context& ctx);
};

// An isotropic spring in the space of a field between two nodes; the law's value,
// read at the length of the relative vector, is a secant stiffness.
class spring : public discrete_element {
public:
    spring() = default;
    explicit spring(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field, const law_base& law);
    [[nodiscard]] error_type get_params(unsigned& node1, unsigned& node2, field_tag& field, law_scalar& law) const;
};

// A spring on a linear form of DOFs: s = coefs . u.
class spring_directional : public discrete_element {
public:
    spring_directional() = default;
    explicit spring_directional(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& DOFs, const dense1D<double, 8>& coefs,
                                  const law_base& law);
    // c1 dir on node1 and c2 dir on node2, dir normalised.
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field, const vector_fixed<double, 3>& dir,
                                  double c1, double c2, const law_base& law);
    // The list as built: distinct DOFs with their coefficients.
    [[nodiscard]] error_type get_params(dense1D<unsigned, 8>& DOFs, dense1D<double, 8>& coefs,
                                        law_scalar& law) const;
};

// A directional spring on the sum (not the mean) of the displacements of nodes.
class spring_centroid : public spring_directional {
public:
    spring_centroid() = default;
    explicit spring_centroid(context& ctx) { create(ctx); }
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& nodes, field_tag field,
                                  const vector_fixed<double, 3>& dir, const law_base& law);
};

// The rotation of node1 about an axis tied elastically to the rotation of the
// segment node1-node2 about it.
class spring_drill : public spring_directional {
public:
    spring_drill() = default;
    explicit spring_drill(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense2D<double>& pos, unsigned node1, unsigned node2,
                                  const vector_fixed<double, 3>& axis, const law_base& law);
};

// Springs whose law gives a damping coefficient, on the velocities.
class dash_pot : public discrete_element {
public:
    dash_pot() = default;
    explicit dash_pot(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field, const law_base& law);
    [[nodiscard]] error_type get_params(unsigned& node1, unsigned& node2, field_tag& field, law_scalar& law) const;
};

class dash_pot_directional : public discrete_element {
public:
    dash_pot_directional() = default;
    explicit dash_pot_directional(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& DOFs, const dense1D<double, 8>& coefs,
                                  const law_base& law);
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field, const vector_fixed<double, 3>& dir,
                                  double c1, double c2, const law_base& law);
    [[nodiscard]] error_type get_params(dense1D<unsigned, 8>& DOFs, dense1D<double, 8>& coefs,
                                        law_scalar& law) const;
};

// Values on the diagonal of a list of DOFs (a DOF listed twice gets the sum).
template <class Core>
class diagonal_element : public discrete_element {
public:
    diagonal_element() = default;
    explicit diagonal_element(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& DOFs);
    [[nodiscard]] error_type get_params(dense1D<double, 8>& values, dense1D<unsigned, 8>& DOFs) const;
};

// A symmetric matrix on a list of DOFs. order 1: packed by rows of the lower
// triangle, (i, j) with j <= i at i (i + 1) / 2 + j, the library's own packing;
// any other value: packed by columns of the lower triangle.
template <class Core>
class symmetric_element : public discrete_element {
public:
    symmetric_element() = default;
    explicit symmetric_element(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(const symmetric_full<double>& K, const dense1D<unsigned, 8>& DOFs, int order);
    [[nodiscard]] error_type get_params(symmetric_full<double>& K, dense1D<unsigned, 8>& DOFs, int& order) const;
};

} // namespace kelt::fem

namespace kelt::core {
class stiffness_diag;
class mass_diag;
class damping_diag;
class thermal_diag;
class stiffness_sym;
class mass_sym;
class damping_sym;
class thermal_sym;
} // namespace kelt::core

namespace kelt::fem {

extern template class diagonal_element<core::stiffness_diag>;
extern template class diagonal_element<core::mass_diag>;
extern template class diagonal_element<core::damping_diag>;
extern template class diagonal_element<core::thermal_diag>;
extern template class symmetric_element<core::stiffness_sym>;
extern template class symmetric_element<core::mass_sym>;
extern template class symmetric_element<core::damping_sym>;
extern template class symmetric_element<core::thermal_sym>;

class stiffness_diag : public diagonal_element<core::stiffness_diag> {
public:
    using diagonal_element::diagonal_element;
};
class mass_diag : public diagonal_element<core::mass_diag> {
public:
    using diagonal_element::diagonal_element;
};
// Its force is taken from the state U alone.
class damping_diag : public diagonal_element<core::damping_diag> {
public:
    using diagonal_element::diagonal_element;
};
class thermal_diag : public diagonal_element<core::thermal_diag> {
public:
    using diagonal_element::diagonal_element;
};
class stiffness_sym : public symmetric_element<core::stiffness_sym> {
public:
    using symmetric_element::symmetric_element;
};
// A pass of matrix mode 2 takes its diagonal alone, as does damping_sym's.
class mass_sym : public symmetric_element<core::mass_sym> {
public:
    using symmetric_element::symmetric_element;
};
class damping_sym : public symmetric_element<core::damping_sym> {
public:
    using symmetric_element::symmetric_element;
};
// Conduction: no packing flag, the library's packing.
class thermal_sym : public symmetric_element<core::thermal_sym> {
public:
    using symmetric_element::symmetric_element;
    [[nodiscard]] error_type init(const symmetric_full<double>& K, const dense1D<unsigned, 8>& DOFs)
    {
        return symmetric_element::init(K, DOFs, 1);
    }
    [[nodiscard]] error_type get_params(symmetric_full<double>& K, dense1D<unsigned, 8>& DOFs) const
    {
        int order = 1;
        return symmetric_element::get_params(K, DOFs, order);
    }
};

// A mass at a node: translations m, rotations J, with its centre at node + offset;
// the offset couples rotations and translations and moves J by the parallel axes.
class mass_punctual : public discrete_element {
public:
    mass_punctual() = default;
    explicit mass_punctual(context& ctx) { create(ctx); }
    void create(context& ctx);
    // No inertia, no offset: a diagonal m, m, m, 0, 0, 0.
    [[nodiscard]] error_type init(unsigned node, double m);
    [[nodiscard]] error_type init(unsigned node, double m, const symmetric_fixed<double, 3>& J,
                                  const vector_fixed<double, 3>& offset);
    [[nodiscard]] error_type get_params(unsigned& node, double& m, symmetric_fixed<double, 3>& J,
                                        vector_fixed<double, 3>& offset) const;
};

// C = alpha K + beta M of two registered models (a composite among them), looked
// up at each damping pass; an identifier that names no model adds nothing.
class damping_Rayleigh : public discrete_element {
public:
    damping_Rayleigh() = default;
    explicit damping_Rayleigh(context& ctx) { create(ctx); }
    void create(context& ctx);
    [[nodiscard]] error_type init(double alpha, unsigned model_ID_K, double beta, unsigned model_ID_M);
    [[nodiscard]] error_type get_params(double& alpha, unsigned& model_ID_K, double& beta, unsigned& model_ID_M) const;
};

} // namespace kelt::fem
