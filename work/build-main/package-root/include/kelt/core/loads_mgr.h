// One load case: forces on DOFs, values imposed on DOFs and loads on the elements
// of numerical models, each scaled in time by an evolution function. It holds no
// numbers of its own until a solver has it write itself into a right-hand side.
#pragma once

#include <unordered_map>
#include <vector>

#include "kelt/core/DOF_load_recording.h"
#include "kelt/core/elementary_load.h"
#include "kelt/core/load_pass.h"
#include "kelt/core/ref_counted.h"
#include "kelt/core/triad.h"
#include "kelt/core/types.h"
#include "kelt/core/vector_fast.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/fixed.h"

namespace kelt::core {

class context_type;

// A value on a DOF: identifier, evolution function index, value.
using DOF_value = triad<unsigned, unsigned, double>;

// An element load of a model: the element and the entry of `elementary_loads`.
struct NM_load_record {
    unsigned NM_ID;
    unsigned element;
    unsigned load;
};

class loads_mgr : public ref_counted, public DOF_load_recording<loads_mgr> {
public:
    // How far back a new element load looks for an equal one to share.
    static constexpr unsigned look_back = 3;

    explicit loads_mgr(context_type* context);
    // The combination sum_i coefficients[i] x list[i]; entries beyond the shorter of
    // the two are ignored, as are empty ones.
    loads_mgr(context_type* context, const std::vector<Ptr<loads_mgr>>& list, const dense1D<double, 8>& coefficients);
    ~loads_mgr() override;
    loads_mgr(const loads_mgr&) = delete;
    loads_mgr& operator=(const loads_mgr&) = delete;

    // Recording checks no identifier and no function index. Memory shortage drops
    // a record, as push_back does; a batch is recorded whole or not at all. The
    // record_DOF_ and record_nodal_ forms come from DOF_load_recording through
    // these two.
    [[nodiscard]] error_type record_value(load_list which, unsigned ID, double value, unsigned func);
    [[nodiscard]] error_type record_values(load_list which, const dense1D<unsigned, 8>& IDs,
                                           const dense1D<double, 8>& values, const dense1D<unsigned, 8>* funcs,
                                           unsigned func);
    // Nothing is recorded for an all-zero load or a missing model or element.
    [[nodiscard]] error_type record_NM_load(unsigned NM_ID, unsigned element, const elementary_load& load,
                                            unsigned func);
    void clear();

    unsigned nbr_DOF_loads() const noexcept { return DOF_loads.size(); }
    unsigned nbr_prescribed_values() const noexcept { return prescribed_values.size(); }
    unsigned nbr_NM_loads() const noexcept { return unsigned(NM_loads.size()); }

    // Adds the case, at `pass.factor` and `pass.time`, to `pass.assembler`: element
    // loads through their models, then the DOF loads. The first failure of a model
    // stops and is returned. Loads that reach nothing are passed over, as before,
    // and counted in `pass.nbr_skipped`.
    [[nodiscard]] error_type assemble(load_pass_type& pass) const;
    // Appends the identifiers of the prescribed values in order, repeats included.
    void prescribed_IDs(dense1D<unsigned, 8>& list) const;
    // Writes the prescribed values, at the pass's factor and time, into a vector
    // addressed by the ranks of `rows`; values on one DOF add up, and DOFs with no
    // rank are skipped.
    void prescribed_vector(const load_pass_type& pass, const vector_fast& rows, dense1D<double, 8>& values) const;
    // Adds the records of `other` scaled by `factor`; nothing for 0 or not a number.
    void merge(const loads_mgr& other, double factor);

    Ptr<context_type> context;
    std::unordered_multimap<unsigned, NM_load_record> NM_loads; // by evolution function index
    std::vector<elementary_load> elementary_loads;
    dense1D<DOF_value, 8> DOF_loads;
    dense1D<DOF_value, 8> prescribed_values;

private:
    // Index of an entry equal to `load` among the last ones, or of a deep copy of
    // it appended, scaled by `factor`, with function `func`. False when memory fails.
    bool store_load(const elementary_load& load, unsigned func, double factor, unsigned& index);
    void add_NM_load(unsigned func, const NM_load_record& record);
    double evolution(unsigned func, double t) const;
};

} // namespace kelt::core
