// The parts of the mesh models that need no template: DOF listings from the
// connectivity, the size of a mesh, and the one-element models.
#include "kelt/elements/numerical_model_mesh.h"

#include <cmath>
#include <limits>
#include <new>

#include "kelt/core/DOFs_mgr.h"

namespace kelt::core {

bool field_selected(unsigned field_selector, unsigned place) noexcept
{
    switch (field_selector) {
    case all_fields: return true;
    case displacement_tag: return place < 3;
    case rotation_tag: return place >= 3 && place < 6;
    case temperature_tag: return place == 6;
    default: return false;
    }
}

double mesh_connectivity::size(const dense2D<double>& pos) const
{
    if (pos.rows() < 3) return 0.0;
    double low[3], high[3];
    for (unsigned k = 0; k < 3; ++k) {
        low[k] = std::numeric_limits<double>::infinity();
        high[k] = -std::numeric_limits<double>::infinity();
    }
    bool any = false;
    for (unsigned e = 0; e < nodes.cols(); ++e)
        for (unsigned a = 0; a < nodes.rows(); ++a) {
            const unsigned node = nodes(a, e);
            if (node >= pos.cols()) continue;
            any = true;
            for (unsigned k = 0; k < 3; ++k) {
                low[k] = std::min(low[k], pos(k, node));
                high[k] = std::max(high[k], pos(k, node));
            }
        }
    if (!any) return 0.0;
    double s = 0.0;
    for (unsigned k = 0; k < 3; ++k) s += (high[k] - low[k]) * (high[k] - low[k]);
    return std::sqrt(s);
}

void mesh_connectivity::insert_DOFs(unsigned element, const unsigned* places, unsigned nbr_places,
                                    vector_fast& set) const
{
    const unsigned* c = column(element);
    for (unsigned a = 0; a < nodes.rows(); ++a)
        for (unsigned k = 0; k < nbr_places; ++k) (void)set.push_back(DOFs_mgr::place_ID(c[a], places[k]));
}

error_type mesh_connectivity::list_DOFs(unsigned element_selector, const unsigned* places, unsigned nbr_places,
                                        std::vector<unsigned>& ends, std::vector<unsigned>& DOFs) const
{
    const unsigned n = nbr_elements();
    unsigned first = 0, last = n;
    if (element_selector != all_elements) {
        first = element_selector < n ? element_selector : n;
        last = element_selector < n ? element_selector + 1 : n;
    }
    try {
        if (ends.empty()) ends.push_back(unsigned(DOFs.size()));
        ends.reserve(ends.size() + (last - first));
        DOFs.reserve(DOFs.size() + std::size_t(last - first) * nodes.rows() * nbr_places);
        for (unsigned e = first; e < last; ++e) {
            const unsigned* c = column(e);
            for (unsigned a = 0; a < nodes.rows(); ++a)
                for (unsigned k = 0; k < nbr_places; ++k) {
                    const unsigned ID = DOFs_mgr::place_ID(c[a], places[k]);
                    if (ID == DOFs_mgr::no_ID) return invalid_data_error; // a node no table can hold
                    DOFs.push_back(ID);
                }
            ends.push_back(unsigned(DOFs.size()));
        }
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
    return no_error;
}

error_type single_element_DOFs(const numerical_model_base& model, unsigned element_selector, pass_kind kind,
                               const dense2D<double>& pos, unsigned field_selector, std::vector<unsigned>& ends,
                               std::vector<unsigned>& DOFs)
{
    if (element_selector != all_elements && element_selector != 0) return no_error;
    try {
        vector_fast set;
        model.get_element_DOFs(0, kind, pos, field_selector, set);
        if (ends.empty()) ends.push_back(unsigned(DOFs.size()));
        DOFs.insert(DOFs.end(), set.IDs().begin(), set.IDs().end());
        ends.push_back(unsigned(DOFs.size()));
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
    return no_error;
}

} // namespace kelt::core
