// Thermal loads of a load case: per model, a value for the whole model, values
// per element and values per node, each scaled in time by an evolution function.
// Element servers ask for the value at a point; laws turn it into a strain.
#pragma once

#include <vector>

#include "kelt/core/FEM_matrix.h"
#include "kelt/core/ref_counted.h"
#include "kelt/core/types.h"
#include "kelt/core/vector_fast.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"

namespace kelt::core {

class context_type;

// Values keyed by element or node: key -> column of `values`, one row per
// component, and the evolution function of each column.
struct keyed_values {
    vector_fast keys;
    dense2D<double> values;
    dense1D<unsigned, 8> evols;

    unsigned size() const noexcept { return keys.size(); }
    // Replaces the column of `key`, evolution included, or appends one. The rows
    // grow to the longest value given; shorter ones read 0 beyond their end.
    [[nodiscard]] bool set(unsigned key, const double* v, unsigned n, unsigned evol);
    // Adds factor x the column of `key` in `other` into this table.
    [[nodiscard]] bool add_scaled(const keyed_values& other, double factor);
    void clear();
};

class stress_mgr_base : public ref_counted {
public:
    static constexpr unsigned no_evol = 0xFFFFFFFFu;

    explicit stress_mgr_base(context_type* context);
    ~stress_mgr_base() override;

    Ptr<context_type> context;
    dense1D<double, 8> uniform;
    unsigned uniform_evol = no_evol;
    keyed_values elements;
    keyed_values nodes;

protected:
    // The value of an evolution function at t, 1.0 when the index names none.
    double evolution(unsigned evol, double t) const;
};

class stress_mgr_thermal : public stress_mgr_base {
public:
    explicit stress_mgr_thermal(context_type* context) : stress_mgr_base(context) {}

    // A new, empty instance on the same context.
    virtual Ptr<stress_mgr_thermal> clone() const;

    // out := value x evolution at t. The uniform value may be empty.
    void get_uniform(double t, dense1D<double, 8>& out) const;
    // False, with `out` empty, when the element (node) has no value of its own.
    bool get_element_value(unsigned element, double t, dense1D<double, 8>& out) const;
    bool get_nodal_value(unsigned node, double t, dense1D<double, 8>& out) const;

    [[nodiscard]] bool set_uniform(const double* v, unsigned n, unsigned evol);
    // this += factor x other; nothing at all when factor is exactly 0. A value
    // that this one did not have takes the evolution function of `other`.
    [[nodiscard]] bool add_scaled(const stress_mgr_thermal& other, double factor);
    // The values at t, with no evolution function left; null when memory fails.
    Ptr<stress_mgr_thermal> frozen_at(double t) const;

private:
    bool get_keyed(const keyed_values& table, unsigned key, double t, dense1D<double, 8>& out) const;
};

// The thermal loads of one load case, per model identifier.
class stress_super_mgr : public ref_counted {
public:
    explicit stress_super_mgr(context_type* context);
    ~stress_super_mgr() override;

    void clear() { thermal.clear(); }
    // The model's thermal loads, null when it has none.
    stress_mgr_thermal* get_thermal(unsigned model) const noexcept
    {
        return model < thermal.size() ? thermal[model].get() : nullptr;
    }

    // Setters: `invalid_data_error` for a model that the registry does not know,
    // `memory_error` when a table cannot grow.
    [[nodiscard]] error_type set_thermal_load(unsigned model, const double* v, unsigned n, unsigned evol);
    [[nodiscard]] error_type set_thermal_load_element(unsigned model, unsigned element, const double* v, unsigned n,
                                                      unsigned evol);
    // Column j of `values` is the value of element j, or of node j when `by_node`.
    // `evols` null gives every column `evol`; else it is empty (no function for
    // any) or has one entry per column, another size being refused.
    [[nodiscard]] error_type set_columns(unsigned model, bool by_node, const FEM_real& values,
                                         const dense1D<unsigned, 8>* evols, unsigned evol);

    // Load-case combination: this += factor x other, model by model.
    [[nodiscard]] error_type add_scaled(const stress_super_mgr& other, double factor);
    // The loads at t, with no evolution function left: what a state found at t
    // keeps, so that a results pass at any time sees the loads of that state.
    // Null when memory fails.
    Ptr<stress_super_mgr> frozen_at(double t) const;

    Ptr<context_type> context;
    std::vector<Ptr<stress_mgr_thermal>> thermal; // indexed by model identifier

private:
    stress_mgr_thermal* find_or_create(unsigned model, bool check_model, error_type& e);
};

} // namespace kelt::core
