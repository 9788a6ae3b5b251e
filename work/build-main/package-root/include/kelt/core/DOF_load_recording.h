// The recording of values on DOF identifiers and on nodes, written once for the
// load case and its public handle: each form comes down to one of two operations
// of Self, on the list of forces or on the list of prescribed values.
#pragma once

#include "kelt/core/DOFs_mgr.h"
#include "kelt/core/types.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/fixed.h"

namespace kelt::core {

enum class load_list { forces, prescribed };

// Self provides record_value(list, ID, value, func) and record_values(list, IDs,
// values, funcs or null, func). No DOF identifier or function index is checked; a
// batch whose sizes differ is refused whole with `invalid_data_error`. A node
// whose identifiers do not fit in 32 bits is refused with `invalid_data_error`,
// the six-record forms whole; a tag that is no field records on identifier
// node x 9 - 1, a place that no field uses.
template <class Self>
class DOF_load_recording {
public:
    [[nodiscard]] error_type record_DOF_load(unsigned ID, double value, unsigned func)
    {
        return self().record_value(load_list::forces, ID, value, func);
    }
    [[nodiscard]] error_type record_DOF_loads(const dense1D<unsigned, 8>& IDs, const dense1D<double, 8>& values,
                                              const dense1D<unsigned, 8>& funcs)
    {
        return self().record_values(load_list::forces, IDs, values, &funcs, 0);
    }
    [[nodiscard]] error_type record_DOF_loads(const dense1D<unsigned, 8>& IDs, const dense1D<double, 8>& values,
                                              unsigned func)
    {
        return self().record_values(load_list::forces, IDs, values, nullptr, func);
    }
    [[nodiscard]] error_type record_DOF_prescribed_value(unsigned ID, double value, unsigned func)
    {
        return self().record_value(load_list::prescribed, ID, value, func);
    }
    [[nodiscard]] error_type record_DOF_prescribed_values(const dense1D<unsigned, 8>& IDs,
                                                          const dense1D<double, 8>& values,
                                                          const dense1D<unsigned, 8>& funcs)
    {
        return self().record_values(load_list::prescribed, IDs, values, &funcs, 0);
    }
    [[nodiscard]] error_type record_DOF_prescribed_values(const dense1D<unsigned, 8>& IDs,
                                                          const dense1D<double, 8>& values, unsigned func)
    {
        return self().record_values(load_list::prescribed, IDs, values, nullptr, func);
    }

    [[nodiscard]] error_type record_nodal_load(unsigned node, field_tag f, unsigned comp, double value,
                                               unsigned func)
    {
        return record_nodal(load_list::forces, node, f, comp, value, func);
    }
    // Force on the translations and moment on the rotations of a node: six records.
    [[nodiscard]] error_type record_nodal_load(unsigned node, const vector_fixed<double, 3>& F,
                                               const vector_fixed<double, 3>& M, unsigned func)
    {
        return record_six(load_list::forces, node, F, M, func);
    }
    [[nodiscard]] error_type record_nodal_prescribed_value(unsigned node, field_tag f, unsigned comp, double value,
                                                           unsigned func)
    {
        return record_nodal(load_list::prescribed, node, f, comp, value, func);
    }
    [[nodiscard]] error_type record_nodal_prescribed_values(unsigned node, const vector_fixed<double, 3>& U,
                                                            const vector_fixed<double, 3>& R, unsigned func)
    {
        return record_six(load_list::prescribed, node, U, R, func);
    }

private:
    Self& self() noexcept { return static_cast<Self&>(*this); }

    error_type record_nodal(load_list which, unsigned node, field_tag f, unsigned comp, double value, unsigned func)
    {
        unsigned ID = DOFs_mgr::no_ID;
        if (f == displacement_tag || f == rotation_tag || f == temperature_tag)
            ID = DOFs_mgr::ID(node, f, comp);
        else if (node == 0) // the place before node 0 is no_ID itself, which no DOF has
            return self().record_value(which, DOFs_mgr::no_ID, value, func);
        else
            ID = DOFs_mgr::place_ID(node - 1, DOFs_mgr::nbr_places - 1);
        if (ID == DOFs_mgr::no_ID) return invalid_data_error;
        return self().record_value(which, ID, value, func);
    }
    error_type record_six(load_list which, unsigned node, const vector_fixed<double, 3>& A,
                          const vector_fixed<double, 3>& B, unsigned func)
    {
        if (DOFs_mgr::place_ID(node, place_rz) == DOFs_mgr::no_ID) return invalid_data_error;
        dense1D<unsigned, 8> IDs;
        dense1D<double, 8> values;
        if (!IDs.reserve(6, 1) || !values.reserve(6, 1)) return no_error; // dropped whole, as push_back drops
        for (unsigned c = 0; c < 6; ++c) {
            IDs.push_back(DOFs_mgr::place_ID(node, c));
            values.push_back(c < 3 ? A[c] : B[c - 3]);
        }
        return self().record_values(which, IDs, values, nullptr, func);
    }
};

} // namespace kelt::core
