// The intermediate model classes by kind of pass, the models that are one element
// in all, and the template of the mesh models: a homogeneous mesh of one element
// type whose elements a server computes and whose loads an external-work server
// computes.
#pragma once

#include <algorithm>
#include <cstdint>

#include "kelt/core/element_records.h"
#include "kelt/core/elementary_load.h"
#include "kelt/core/internal_states.h"
#include "kelt/core/numerical_model_base.h"
#include "kelt/core/vector_fast.h"
#include "kelt/laws/law_base.h"

namespace kelt::core {

class numerical_model_stiff : public numerical_model_base {
public:
    using numerical_model_base::numerical_model_base;
    bool handles_field_family(pass_kind kind) const override
    {
        return kind == kind_stiffness || kind == kind_thermal_load;
    }
};

class numerical_model_thermal : public numerical_model_base {
public:
    using numerical_model_base::numerical_model_base;
    bool handles_field_family(pass_kind kind) const override
    {
        return kind == kind_conduction || kind == kind_thermal_load;
    }
};

class numerical_model_mass : public numerical_model_base {
public:
    using numerical_model_base::numerical_model_base;
    bool handles_field_family(pass_kind kind) const override { return kind == kind_mass; }
};

class numerical_model_damping : public numerical_model_base {
public:
    using numerical_model_base::numerical_model_base;
    bool handles_field_family(pass_kind kind) const override { return kind == kind_damping; }
};

class numerical_model_gyroscopic : public numerical_model_base {
public:
    using numerical_model_base::numerical_model_base;
    bool handles_field_family(pass_kind kind) const override
    {
        return kind == kind_gyroscopic || kind == kind_stiffness;
    }
};

// Element 0 (or the all selector) answered from get_element_DOFs, for the models
// that are one element in all.
error_type single_element_DOFs(const numerical_model_base& model, unsigned element_selector, pass_kind kind,
                               const dense2D<double>& pos, unsigned field_selector, std::vector<unsigned>& ends,
                               std::vector<unsigned>& DOFs);

template <class Base>
class simple_model : public Base {
public:
    using Base::Base;
    unsigned nbr_elements() const override { return 1; }
    [[nodiscard]] error_type get_elements_DOFs(unsigned element_selector, pass_kind kind, const dense2D<double>& pos,
                                               unsigned field_selector, std::vector<unsigned>& ends,
                                               std::vector<unsigned>& DOFs) const override
    {
        return single_element_DOFs(*this, element_selector, kind, pos, field_selector, ends, DOFs);
    }
};

class numerical_model_stiff_simple : public simple_model<numerical_model_stiff> {
public:
    using simple_model::simple_model;
};
class numerical_model_thermal_simple : public simple_model<numerical_model_thermal> {
public:
    using simple_model::simple_model;
};
class numerical_model_mass_simple : public simple_model<numerical_model_mass> {
public:
    using simple_model::simple_model;
};
class numerical_model_damping_simple : public simple_model<numerical_model_damping> {
public:
    using simple_model::simple_model;
};
class numerical_model_gyroscopic_simple : public simple_model<numerical_model_gyroscopic> {
public:
    using simple_model::simple_model;
};

// What all meshes share and needs no template: the connectivity and its type.
struct mesh_connectivity {
    dense2D<unsigned> nodes; // one column per element
    element_type type = element_none;

    unsigned nbr_elements() const noexcept { return nodes.cols(); }
    const unsigned* column(unsigned element) const noexcept { return nodes.col_data(element); }
    // The diagonal of the bounding box of the nodes that have positions.
    double size(const dense2D<double>& pos) const;
    // Appends node x 9 + place for each node of the element and each place.
    void insert_DOFs(unsigned element, const unsigned* places, unsigned nbr_places, vector_fast& set) const;
    [[nodiscard]] error_type list_DOFs(unsigned element_selector, const unsigned* places, unsigned nbr_places,
                                       std::vector<unsigned>& ends, std::vector<unsigned>& DOFs) const;
};

// True when `field_selector` keeps the DOFs of a place.
bool field_selected(unsigned field_selector, unsigned place) noexcept;

// The mesh model: a server for the elements, one for their loads.
template <class Intermediate, class Server, class External>
class mesh_model : public Intermediate {
public:
    using physics_type = typename Server::physics_type;

    mesh_model(context_type* context, const Ptr<physics_type>& physics, const dense2D<unsigned>& nodes,
               element_type type)
        : Intermediate(context), server(physics)
    {
        mesh.nodes = nodes;
        mesh.type = type;
    }

    Ptr<ref_counted> get_physics_model() const override { return Ptr<ref_counted>(server.physics.get()); }
    unsigned physics_code() const override { return Server::first_code; }
    unsigned physics_variant_code() const override { return Server::second_code; }
    unsigned model_code() const override { return Server::second_code ? Server::second_code + mesh.type : 0; }
    void get_mesh(dense2D<unsigned>& nodes, element_type& type) const override
    {
        nodes = mesh.nodes;
        type = mesh.type;
    }
    element_type get_FE_type() const override { return mesh.type; }
    unsigned nbr_elements() const override { return mesh.nbr_elements(); }
    double get_stiffness_scale(field_tag field) const override
    {
        const law_base* law = server.law();
        return law ? law->get_stiffness_range(field).second : 0.0;
    }
    bool describe_unusable_law(char* text, unsigned size) const override
    {
        const law_base* law = server.law();
        return law && law->describe_unusable(text, size);
    }
    double get_mesh_size(const dense2D<double>& pos) const override { return mesh.size(pos); }
    [[nodiscard]] error_type get_element_basis(unsigned element, const dense2D<double>& pos, const DOF_values_view* U,
                                               matrix_fixed<double, 3, 3>& basis) const override
    {
        if (element >= mesh.nbr_elements()) return element_index_error;
        return server.element_basis(mesh.column(element), pos, U, basis);
    }
    // The short form, with no state.
    [[nodiscard]] error_type get_element_basis(unsigned element, const dense2D<double>& pos,
                                               matrix_fixed<double, 3, 3>& basis) const
    {
        return get_element_basis(element, pos, nullptr, basis);
    }
    void set_FE_transformer(const Ptr<ref_counted>& transformer) override
    {
        this->FE_transformer = transformer;
        server.transformer = transformer;
    }
    void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>&, unsigned field_selector,
                          vector_fast& set) const override
    {
        if (element >= mesh.nbr_elements() || !Server::lists_DOFs(kind) || !selected(field_selector)) return;
        mesh.insert_DOFs(element, Server::places, Server::nbr_places, set);
    }
    [[nodiscard]] error_type get_elements_DOFs(unsigned element_selector, pass_kind kind, const dense2D<double>&,
                                               unsigned field_selector, std::vector<unsigned>& ends,
                                               std::vector<unsigned>& DOFs) const override
    {
        const bool listed = Server::lists_DOFs(kind) && selected(field_selector);
        return mesh.list_DOFs(element_selector, Server::places, listed ? Server::nbr_places : 0, ends, DOFs);
    }

    bool has_internal_states() const override { return states_per_point() != 0; }
    // Element by element: a slice of one stride when any of its points has a
    // committed state.
    bool layout_internal_states(internal_states_block& block) const override
    {
        if (!has_internal_states()) return numerical_model_base::layout_internal_states(block);
        block.clear();
        block.stride = states_per_point() * Server::nbr_points;
        const unsigned n = mesh.nbr_elements();
        if (!block.offsets.resize(n + 1, 0u)) return false;
        unsigned at = 0;
        block.offsets[0] = 0;
        for (unsigned e = 0; e < n; ++e) {
            if (states.has_state(e)) at += block.stride;
            block.offsets[e + 1] = at;
        }
        if (!block.values.resize(at, 0.0)) return false;
        block.values = 0.0;
        return true;
    }
    // Writes the committed and the trial states; empty values give the virgin state.
    [[nodiscard]] error_type set_element_states(unsigned element, const dense1D<double, 8>& values) override
    {
        if (!has_internal_states()) return no_error;
        if (element >= mesh.nbr_elements()) return element_index_error;
        if (!values.empty() && values.size() < states_per_point() * Server::nbr_points) return invalid_data_error;
        if (values.empty() && !states.allocated()) return no_error;
        if (auto e = allocate_states(); e != no_error) return e;
        states.set(element, values.empty() ? nullptr : values.data());
        return no_error;
    }
    [[nodiscard]] error_type get_element_states(internal_states_block& block, unsigned element) const override
    {
        if (!has_internal_states()) return no_error;
        if (element + 1 >= block.offsets.size()) return element_index_error;
        if (block.offsets[element + 1] - block.offsets[element] != block.stride || block.stride == 0) return no_error;
        if (block.stride != states.stride() || block.offsets[element + 1] > block.values.size())
            return invalid_data_error;
        const double* c = states.committed(element);
        if (!c) return invalid_data_error;
        std::copy(c, c + block.stride, block.values.data() + block.offsets[element]);
        return no_error;
    }
    void clear_internal_states() override { states.clear(); }
    [[nodiscard]] error_type commit_states() override
    {
        states.commit();
        return no_error;
    }
    void rollback_states() override { states.rollback(); }
    // The states must exist before the threads write them.
    [[nodiscard]] error_type run_elements(pass_kind kind, element_pass_type& pass) override
    {
        if (auto e = allocate_states(); e != no_error) return e;
        return Intermediate::run_elements(kind, pass);
    }

    [[nodiscard]] error_type compute_element(pass_kind kind, element_work_type& w) const override
    {
        w.clear_outputs();
        w.DOFs.clear();
        if (w.element >= mesh.nbr_elements()) return element_index_error;
        if (!this->handles_field_family(kind) || w.factor == 0.0) return no_error;
        attach_states(w, true);
        return server.compute(kind, mesh.column(w.element), w);
    }
    [[nodiscard]] error_type compute_element_load(const elementary_load& load, element_work_type& w) const override
    {
        w.clear_outputs();
        w.DOFs.clear();
        if (w.element >= mesh.nbr_elements()) return element_index_error;
        if (w.factor == 0.0) return no_error;
        return external.compute(load, mesh.column(w.element), w);
    }
    [[nodiscard]] error_type compute_element_results(pass_kind kind, unsigned result,
                                                     element_work_type& w) const override
    {
        w.clear_outputs();
        w.DOFs.clear();
        if (w.element >= mesh.nbr_elements()) return element_index_error;
        if (!this->handles_field_family(kind)) return no_error;
        attach_states(w, false);
        return server.compute_results(result, mesh.column(w.element), w);
    }
    void get_result_field(unsigned result, unsigned& physics_code_, pass_kind& kind) const override
    {
        physics_code_ = Server::first_code;
        if (result >= 7 && result <= 10)
            kind = kind_thermal_load;
        else if (result == 11 || result == 12)
            kind = kind_stiffness;
        else {
            physics_code_ = 0;
            kind = kind_none;
        }
    }

    Server server;
    External external;
    mesh_connectivity mesh;

private:
    unsigned states_per_point() const
    {
        const law_base* law = server.law();
        return law ? law->nbr_internal_states() : 0;
    }
    error_type allocate_states()
    {
        const unsigned m = states_per_point();
        if (m == 0) return no_error;
        if (std::uint64_t(m) * Server::nbr_points > 0xFFFFFFFFull) return memory_error;
        return states.allocate(mesh.nbr_elements(), m * Server::nbr_points) ? no_error : memory_error;
    }
    // Points the work record at the element's states; a store not yet allocated
    // reads as the virgin state and keeps no trial.
    void attach_states(element_work_type& w, bool keep_trial) const
    {
        w.states_per_point = states_per_point();
        if (w.states_per_point == 0 || !states.allocated()) return;
        w.committed_states = states.committed(w.element);
        if (keep_trial) w.trial_states = states.trial(w.element);
    }

    // Element passes of several threads write the trial slices of their own
    // elements here, through a const model.
    mutable element_states_store states;

    static bool selected(unsigned field_selector) noexcept
    {
        for (unsigned k = 0; k < Server::nbr_places; ++k)
            if (field_selected(field_selector, Server::places[k])) return true;
        return false;
    }
};

// The stiffness, conduction and mass models of a mesh.
template <class Server, class External_work_server>
using numerical_model_stiff_mesh = mesh_model<numerical_model_stiff, Server, External_work_server>;
template <class Server, class External_work_server>
using numerical_model_thermal_mesh = mesh_model<numerical_model_thermal, Server, External_work_server>;
template <class Server, class External_work_server>
using numerical_model_mass_mesh = mesh_model<numerical_model_mass, Server, External_work_server>;

// Loads alone: no matrix, no DOFs of its own in the numbering.
template <class Server, class External_work_server>
class numerical_model_load_only_mesh : public mesh_model<numerical_model_base, Server, External_work_server> {
public:
    using mesh_model<numerical_model_base, Server, External_work_server>::mesh_model;
    bool handles_field_family(pass_kind) const override { return false; }
};

} // namespace kelt::core
