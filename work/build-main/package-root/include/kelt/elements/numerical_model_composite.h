// A model made of other models, held by identifier in the context's registry: each
// operation goes to every child that the registry still knows, in turn.
#pragma once

#include "kelt/core/numerical_model_base.h"
#include "kelt/core/omp_lock.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

class numerical_model_composite : public numerical_model_base {
public:
    using numerical_model_base::numerical_model_base;
    ~numerical_model_composite() override;

    // Appends children; memory_error leaves the list as it was.
    [[nodiscard]] error_type insert(unsigned child);
    [[nodiscard]] error_type insert(const dense1D<unsigned, 8>& children);
    // A copy of the list, taken under the lock.
    dense1D<unsigned, 8> get_children() const;

    unsigned add_nbr_elements(unsigned& counter) const override;
    void collect_models(std::vector<Ptr<numerical_model_base>>& list) override;
    Ptr<numerical_model_base> find_model(unsigned ID) override;
    double get_stiffness_scale(field_tag field) const override;
    bool describe_unusable_law(char* text, unsigned size) const override;
    double get_mesh_size(const dense2D<double>& pos) const override;
    void set_FE_transformer(const Ptr<ref_counted>& transformer) override;
    void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>& pos, unsigned field_selector,
                          vector_fast& DOF_set) const override;
    [[nodiscard]] error_type get_elements_DOFs(unsigned element_selector, pass_kind kind, const dense2D<double>& pos,
                                               unsigned field_selector, std::vector<unsigned>& ends,
                                               std::vector<unsigned>& DOFs) const override;
    void fill_DOF_to_elements(unsigned element_selector, pass_kind kind, const vector_fast& DOF_index_map,
                              dense1D<unsigned, 8>& counters, dense1D<FE_pair, 8>& pairs) const override;
    void clear_internal_states() override;
    [[nodiscard]] error_type commit_states() override;
    void rollback_states() override;
    [[nodiscard]] error_type set_internal_states(const internal_states& store) override;
    [[nodiscard]] error_type get_internal_states(internal_states& store) const override;
    [[nodiscard]] error_type run_elements(pass_kind kind, element_pass_type& pass) override;
    [[nodiscard]] error_type run_element_loads(const elementary_load& load, load_pass_type& pass) override;
    [[nodiscard]] error_type run_element_results(pass_kind kind, unsigned result, element_pass_type& pass) override;
    void get_result_field(unsigned result, unsigned& physics_code, pass_kind& kind) const override;

private:
    // f(child) for each child the registry knows, itself excepted; the children are
    // held for the time of the call.
    template <class F>
    void for_each_child(F&& f) const;
    // The same for operations that report: the first failure is returned, and the
    // other children still run.
    template <class F>
    error_type for_each_child_status(F&& f) const;

    dense1D<unsigned, 8> children;
    mutable omp_mutex lock;
};

} // namespace kelt::core
