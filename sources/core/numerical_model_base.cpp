// The defaults of the model interface that need no element record; the element
// loops and computations are in element_loop.cpp, the state moves in
// internal_states.cpp.
#include "kelt/core/numerical_model_base.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "kelt/core/context.h"
#include "kelt/core/vector_fast.h"

namespace kelt::core {

numerical_model_base::numerical_model_base() noexcept = default;

numerical_model_base::numerical_model_base(context_type* context_) noexcept : context(context_) {}

numerical_model_base::~numerical_model_base() = default;

Ptr<ref_counted> numerical_model_base::get_physics_model() const { return {}; }

unsigned numerical_model_base::physics_code() const { return 0; }

unsigned numerical_model_base::physics_variant_code() const { return 0; }

unsigned numerical_model_base::model_code() const { return 0; }

void numerical_model_base::get_mesh(dense2D<unsigned>& mesh, element_type& type) const
{
    mesh = dense2D<unsigned>();
    type = element_none;
}

element_type numerical_model_base::get_FE_type() const
{
    dense2D<unsigned> mesh;
    element_type type = element_none;
    get_mesh(mesh, type);
    return type;
}

unsigned numerical_model_base::nbr_elements() const { return 0; }

unsigned numerical_model_base::add_nbr_elements(unsigned& counter) const { return counter += nbr_elements(); }

void numerical_model_base::collect_models(std::vector<Ptr<numerical_model_base>>& list)
{
    list.push_back(Ptr<numerical_model_base>(this));
}

Ptr<numerical_model_base> numerical_model_base::find_model(unsigned ID_)
{
    return ID_ == ID ? Ptr<numerical_model_base>(this) : Ptr<numerical_model_base>();
}

bool numerical_model_base::handles_field_family(pass_kind) const { return true; }

double numerical_model_base::get_stiffness_scale(field_tag) const { return 0.0; }

double numerical_model_base::get_mesh_size(const dense2D<double>&) const { return 0.0; }

error_type numerical_model_base::get_element_basis(unsigned, const dense2D<double>&, const DOF_values_view*,
                                                   matrix_fixed<double, 3, 3>&) const
{
    return element_index_error;
}

void numerical_model_base::set_FE_transformer(const Ptr<ref_counted>& transformer) { FE_transformer = transformer; }

void numerical_model_base::get_element_DOFs(unsigned, pass_kind, const dense2D<double>&, unsigned,
                                            vector_fast&) const
{
}

error_type numerical_model_base::get_elements_DOFs(unsigned, pass_kind, const dense2D<double>&, unsigned,
                                                   std::vector<unsigned>&, std::vector<unsigned>&) const
{
    return no_error;
}

void numerical_model_base::fill_DOF_to_elements(unsigned element_selector, pass_kind kind,
                                                const vector_fast& DOF_index_map, dense1D<unsigned, 8>& counters,
                                                dense1D<FE_pair, 8>& pairs) const
{
    const unsigned n = nbr_elements();
    const unsigned first = element_selector == all_elements ? 0 : element_selector;
    const unsigned last = element_selector == all_elements ? n : std::min(n, element_selector + 1);
    const bool counting = pairs.empty();
    // The listing needs no positions: DOFs of a mesh come from its connectivity.
    const dense2D<double> no_pos;
    vector_fast DOFs;
    for (unsigned e = first; e < last; ++e) {
        DOFs.clear();
        get_element_DOFs(e, kind, no_pos, all_fields, DOFs);
        for (unsigned k = 0; k < DOFs.size(); ++k) {
            const unsigned r = DOF_index_map.rank(DOFs[k]);
            if (r == vector_fast::none || r >= counters.size()) continue;
            if (counting)
                ++counters[r];
            else if (counters[r] < pairs.size())
                pairs[counters[r]++] = FE_pair{ID, e};
        }
    }
}

error_type numerical_model_base::get_DOF_to_elements(unsigned element_selector, pass_kind kind,
                                                     const vector_fast& DOF_index_map, dense1D<unsigned, 8>& offsets,
                                                     dense1D<FE_pair, 8>& pairs) const
{
    offsets.clear();
    const unsigned n = DOF_index_map.size();
    if (n == 0) {
        pairs.clear();
        return offsets.resize(1, 0u) ? no_error : memory_error;
    }
    if (n > 0xFFFFFFFFu - 3 || !offsets.resize(n + 3, 0u)) return memory_error;
    // Counts land two places up, so that after the running sum the places one up
    // are the row starts, which the second pass advances to the row ends.
    dense1D<unsigned, 8> counters = offsets.sub_vector(2, n);
    dense1D<FE_pair, 8> none;
    fill_DOF_to_elements(element_selector, kind, DOF_index_map, counters, none);
    for (unsigned i = 1; i < n + 3; ++i) offsets[i] += offsets[i - 1];
    pairs.clear();
    if (!pairs.resize(offsets[n + 2], FE_pair{})) return memory_error;
    dense1D<unsigned, 8> positions = offsets.sub_vector(1, n);
    fill_DOF_to_elements(element_selector, kind, DOF_index_map, positions, pairs);
    (void)offsets.resize(n + 1); // shrinking cannot fail
    return no_error;
}

bool numerical_model_base::has_internal_states() const { return false; }

void numerical_model_base::clear_internal_states() {}

error_type numerical_model_base::commit_states() { return no_error; }

void numerical_model_base::rollback_states() {}

void numerical_model_base::get_result_field(unsigned, unsigned& physics_code_, pass_kind& kind) const
{
    physics_code_ = 0;
    kind = kind_none;
}

error_type numerical_model_base::get_element_transform(unsigned, dense2D<double>& transform) const
{
    transform.clear();
    return invalid_data_error;
}

error_type numerical_model_base::record()
{
    if (!context) return invalid_data_error;
    Ptr<numerical_models_mgr> mgr = context->numerical_models_mgr;
    return mgr->record(this, ID, nbr_elements());
}

double numerical_model_base::evolution_factor(double t) const
{
    if (!context || !context->evolution_funcs_mgr) return 1.0;
    const evolution_func_base* f = context->evolution_funcs_mgr->get(evolution_func_ID);
    return f ? f->value(t) : 1.0;
}

error_type numerical_model_base::get_model_DOFs(pass_kind kind, const dense2D<double>& pos, unsigned field_selector,
                                                dense1D<unsigned, 8>& DOFs) const
{
    DOFs.clear();
    try {
        std::vector<unsigned> ends, listed;
        if (auto e = get_elements_DOFs(all_elements, kind, pos, field_selector, ends, listed); e != no_error)
            return e;
        vector_fast unique;
        for (unsigned ID_ : listed)
            if (unique.push_back(ID_) == vector_fast::none && ID_ != vector_fast::none) return memory_error;
        return DOFs.copy(unique.IDs()) ? no_error : memory_error;
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
}

bool numerical_model_base::describe_unusable_law(char*, unsigned) const { return false; }

} // namespace kelt::core
