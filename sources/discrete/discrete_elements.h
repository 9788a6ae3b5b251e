// Discrete elements: models without a mesh that are one element in all. Springs and
// dash-pots read a scalar law; point masses and the diagonal and symmetric matrices
// hold their values. Every element obeys one sign rule: with its matrix A and the
// multiplier u, Fe = -factor A u, energy = 0.5 factor u'A u, and the matrix handed
// out is factor A.
#pragma once

#include <new>
#include <utility>
#include <vector>

#include "kelt/core/element_records.h"
#include "kelt/elements/numerical_model_mesh.h"
#include "kelt/laws/law_scalar.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"
#include "kelt/math/fixed.h"
#include "kelt/math/symmetric_full.h"

namespace kelt::core {

// The node number that stands for the ground in a spring.
inline constexpr unsigned ground_node = 0xFFFFFFFFu;

// node x 9 + place of component c (0 to 2) of a field; the temperature has one place.
unsigned field_DOF(unsigned node, field_tag field, unsigned c) noexcept;
bool valid_field(field_tag field) noexcept;

// Inserts the identifiers that the field selector keeps.
void insert_selected(const dense1D<unsigned, 8>& IDs, unsigned field_selector, vector_fast& set);

// The passes whose numbering lists an element of a kind: its own, and for
// conduction also the right-hand side pass of a heat problem, as the meshes do.
constexpr bool listed_in(pass_kind own, pass_kind kind) noexcept
{
    return kind == own || (own == kind_conduction && kind == kind_thermal_load);
}

// The first step of every evaluation: -102 for an element other than 0 or all;
// false in `go` when there is nothing to compute (outputs then cleared).
error_type begin_discrete(element_work_type& w, bool& go);

// A one-element model on a scalar law that may keep a state at its one point:
// the committed and trial values live here, as in the mesh models, so that a
// pass reads the committed state and writes the trial one.
class law_state_element : public numerical_model_stiff_simple {
public:
    using numerical_model_stiff_simple::numerical_model_stiff_simple;

    bool has_internal_states() const override { return states_per_point() != 0; }
    bool layout_internal_states(internal_states_block& block) const override;
    [[nodiscard]] error_type set_element_states(unsigned element, const dense1D<double, 8>& values) override;
    [[nodiscard]] error_type get_element_states(internal_states_block& block, unsigned element) const override;
    void clear_internal_states() override { states.clear(); }
    [[nodiscard]] error_type commit_states() override;
    void rollback_states() override { states.rollback(); }
    // The states must exist before the pass writes them.
    [[nodiscard]] error_type run_elements(pass_kind kind, element_pass_type& pass) override;

    Ptr<law_scalar> law;

protected:
    unsigned states_per_point() const { return law ? law->nbr_internal_states() : 0; }
    // The committed state to read (null: virgin) and the trial one to write.
    const double* committed_state() const noexcept { return states.committed(0); }
    double* trial_state() const noexcept { return states.trial(0); }

private:
    [[nodiscard]] error_type allocate_states();
    mutable element_states_store states;
};

// Two nodes, a field, and an isotropic stiffness in the field's space: the law's
// value read at the length of the relative vector, used as a secant stiffness.
class spring : public law_state_element {
public:
    using law_state_element::law_state_element;

    // node2 == node1, or one of them the ground, gives a spring to the ground.
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field, const Ptr<law_scalar>& law);
    void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>& pos, unsigned field_selector,
                          vector_fast& set) const override;
    double get_stiffness_scale(field_tag field) const override;
    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override;
    // The evaluation of kind 1, also reached by the dash-pots for kind 3 (which
    // read the virgin state and keep none).
    [[nodiscard]] error_type evaluate(element_work_type& w, const double* state_in = nullptr,
                                      double* state_out = nullptr) const;

    field_tag field = displacement_tag;
    unsigned node1 = ground_node;
    unsigned node2 = ground_node;

private:
    // The element's DOFs with their signs: +1 at node2, -1 at node1.
    unsigned element_DOFs(unsigned (&IDs)[6], double (&B)[6]) const noexcept;
};

// A linear form of DOFs, s = coefs . u + c0, whose law gives k and f: the matrix
// k c c' and the force -f c.
class spring_directional : public law_state_element {
public:
    using law_state_element::law_state_element;

    [[nodiscard]] error_type init(const dense1D<unsigned, 8>& DOFs, const dense1D<double, 8>& coefs,
                                  const Ptr<law_scalar>& law);
    // The list from a direction: c1 dir on node1, c2 dir on node2.
    [[nodiscard]] error_type init(unsigned node1, unsigned node2, field_tag field, const vector_fixed<double, 3>& dir,
                                  double c1, double c2, const Ptr<law_scalar>& law);
    // The sum of the directional displacements of all nodes.
    [[nodiscard]] error_type init_centroid(const dense1D<unsigned, 8>& nodes, field_tag field,
                                           const vector_fixed<double, 3>& dir, const Ptr<law_scalar>& law);
    void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>& pos, unsigned field_selector,
                          vector_fast& set) const override;
    double get_stiffness_scale(field_tag field) const override;
    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override;
    [[nodiscard]] error_type evaluate(element_work_type& w, const double* state_in = nullptr,
                                      double* state_out = nullptr) const;

    dense1D<unsigned, 8> DOFs;
    dense1D<double, 8> coefs;
    double c0 = 0.0;
    bool has_U = false;
    bool has_R = false;

protected:
    // Entries whose coefficient is exactly 0 are dropped; an identifier met twice
    // gets the sum of its coefficients (which may be 0: it stays listed).
    [[nodiscard]] error_type set_list(const std::vector<std::pair<unsigned, double>>& entries,
                                      const Ptr<law_scalar>& law);
    void clear_list() noexcept;
};

// The rotation of node1 about an axis tied to the rotation of the segment node1-node2.
class spring_drill : public spring_directional {
public:
    using spring_directional::spring_directional;
    [[nodiscard]] error_type init(const dense2D<double>& pos, unsigned node1, unsigned node2,
                                  const vector_fixed<double, 3>& axis, const Ptr<law_scalar>& law);
};

// A spring of kind 3: the law's value is a damping coefficient on the velocities.
template <class Spring>
class dash_pot_of : public numerical_model_damping_simple {
public:
    using numerical_model_damping_simple::numerical_model_damping_simple;

    void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>& pos, unsigned field_selector,
                          vector_fast& set) const override
    {
        if (kind == kind_damping && spring_)
            spring_->get_element_DOFs(element, kind_stiffness, pos, field_selector, set);
    }
    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override
    {
        if (kind != kind_damping || !spring_) return no_error;
        return spring_->evaluate(w);
    }
    // The wrapped spring, made on first use; it reads its law under this model's key.
    Spring& spring()
    {
        if (!spring_) spring_ = new Spring(nullptr);
        spring_->ID = this->ID;
        return *spring_;
    }
    const Ptr<Spring>& wrapped() const noexcept { return spring_; }

private:
    Ptr<Spring> spring_;
};

class dash_pot : public dash_pot_of<spring> {
public:
    using dash_pot_of::dash_pot_of;
};
class dash_pot_directional : public dash_pot_of<spring_directional> {
public:
    using dash_pot_of::dash_pot_of;
};

// Where the multiplier of a matrix element comes from.
enum class multiplier_rule {
    reference_else_state, // U_ref when given, else U
    state_only,           // U alone
    reference_if_state,   // nothing without U; then U_ref when given, else U
};

// Values on the diagonal of a list of DOFs, in the pass of one kind.
class diagonal_values {
public:
    [[nodiscard]] error_type set(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& DOFs);
    void clear() noexcept;
    void evaluate(multiplier_rule rule, element_work_type& w) const;

    dense1D<double, 8> values;
    dense1D<unsigned, 8> DOFs;
};

// A symmetric matrix on a list of distinct DOFs, in the library's packing.
class symmetric_values {
public:
    // -101, with the element cleared, unless the order is the number of distinct
    // DOFs. order 1: the packing by rows of the lower triangle; any other value:
    // the packing by columns of the lower triangle (the transposed access).
    [[nodiscard]] error_type set(const symmetric_full<double>& K, const dense1D<unsigned, 8>& DOFs, int order);
    void clear() noexcept;
    void evaluate(multiplier_rule rule, bool diagonal_on_mode2, element_work_type& w) const;

    symmetric_full<double> given; // as the host gave it
    symmetric_full<double> matrix; // in the library's packing
    dense1D<unsigned, 8> DOFs;
    int order = 1;
};

template <class Simple, pass_kind Kind, multiplier_rule Rule>
class diag_element : public Simple {
public:
    using Simple::Simple;
    [[nodiscard]] error_type init(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& DOFs)
    {
        return data.set(values, DOFs);
    }
    void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>&, unsigned field_selector,
                          vector_fast& set) const override
    {
        if ((element == 0 || element == all_elements) && listed_in(Kind, kind))
            insert_selected(data.DOFs, field_selector, set);
    }
    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override
    {
        if (kind != Kind) return no_error;
        bool go = false;
        if (auto e = begin_discrete(w, go); e != no_error || !go) return e;
        try {
            data.evaluate(Rule, w);
        } catch (const std::bad_alloc&) {
            return memory_error;
        }
        return no_error;
    }

    diagonal_values data;
};

template <class Simple, pass_kind Kind, multiplier_rule Rule, bool Diagonal_on_mode2>
class sym_element : public Simple {
public:
    using Simple::Simple;
    [[nodiscard]] error_type init(const symmetric_full<double>& K, const dense1D<unsigned, 8>& DOFs, int order)
    {
        return data.set(K, DOFs, order);
    }
    void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>&, unsigned field_selector,
                          vector_fast& set) const override
    {
        if ((element == 0 || element == all_elements) && listed_in(Kind, kind))
            insert_selected(data.DOFs, field_selector, set);
    }
    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override
    {
        if (kind != Kind) return no_error;
        bool go = false;
        if (auto e = begin_discrete(w, go); e != no_error || !go) return e;
        try {
            data.evaluate(Rule, Diagonal_on_mode2, w);
        } catch (const std::bad_alloc&) {
            return memory_error;
        }
        return no_error;
    }

    symmetric_values data;
};

class stiffness_diag
    : public diag_element<numerical_model_stiff_simple, kind_stiffness, multiplier_rule::reference_else_state> {
public:
    using diag_element::diag_element;
};
class mass_diag : public diag_element<numerical_model_mass_simple, kind_mass, multiplier_rule::reference_else_state> {
public:
    using diag_element::diag_element;
};
class damping_diag
    : public diag_element<numerical_model_damping_simple, kind_damping, multiplier_rule::state_only> {
public:
    using diag_element::diag_element;
};
class thermal_diag
    : public diag_element<numerical_model_thermal_simple, kind_conduction, multiplier_rule::reference_else_state> {
public:
    using diag_element::diag_element;
};
class stiffness_sym : public sym_element<numerical_model_stiff_simple, kind_stiffness,
                                         multiplier_rule::reference_else_state, false> {
public:
    using sym_element::sym_element;
};
class mass_sym
    : public sym_element<numerical_model_mass_simple, kind_mass, multiplier_rule::reference_else_state, true> {
public:
    using sym_element::sym_element;
};
class damping_sym : public sym_element<numerical_model_damping_simple, kind_damping,
                                       multiplier_rule::reference_if_state, true> {
public:
    using sym_element::sym_element;
};
class thermal_sym : public sym_element<numerical_model_thermal_simple, kind_conduction,
                                       multiplier_rule::reference_else_state, false> {
public:
    using sym_element::sym_element;
};

// A mass at a node, its centre moved by an offset, with its own inertia tensor.
class mass_punctual : public numerical_model_mass_simple {
public:
    using numerical_model_mass_simple::numerical_model_mass_simple;

    [[nodiscard]] error_type init(unsigned node, double m, const symmetric_fixed<double, 3>& J,
                                  const vector_fixed<double, 3>& offset);
    void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>& pos, unsigned field_selector,
                          vector_fast& set) const override;
    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override;

    unsigned node = ground_node;
    double mass = 0.0;
    symmetric_fixed<double, 3> inertia;
    vector_fixed<double, 3> offset;
};

// C = alpha K + beta M over two models of the registry, looked up at each pass.
class damping_Rayleigh : public numerical_model_damping_simple {
public:
    using numerical_model_damping_simple::numerical_model_damping_simple;

    void init(double alpha_, unsigned K_ID, double beta_, unsigned M_ID) noexcept;
    void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>& pos, unsigned field_selector,
                          vector_fast& set) const override;
    [[nodiscard]] error_type run_elements(pass_kind kind, element_pass_type& pass) override;

    double alpha = 0.0;
    double beta = 0.0;
    unsigned stiffness_model_ID = no_model;
    unsigned mass_model_ID = no_model;

private:
    // The named model, none for an unknown identifier or this model itself.
    numerical_model_base* named(unsigned model_ID) const noexcept;
};

} // namespace kelt::core
