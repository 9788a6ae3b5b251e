// Parameters of a law and their per-element replacements.
#include "kelt/laws/law_base.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>

namespace kelt::core {

law_base::~law_base() = default;

error_type law_base::init(const dense1D<double, 8>& given)
{
    data.clear_hard();
    if (!valid(given)) return law_data_error;
    dense1D<double, 8> copy;
    if (!copy.copy(given) || !process_data(copy)) return memory_error;
    data = copy;
    return no_error;
}

const dense1D<double, 8>& law_base::get_data() const { return data; }

error_type law_base::set_element_by_element(unsigned model, unsigned element, const dense1D<double, 8>& given)
{
    if (data.empty()) return init(given);
    if (given.size() == data.size() && std::equal(given.begin(), given.end(), data.begin())) {
        element_table.erase(element_key(model, element));
        return no_error;
    }
    if (!valid(given)) return law_data_error;
    dense1D<double, 8> copy;
    if (!copy.copy(given) || !process_data(copy)) return memory_error;
    try {
        element_table[element_key(model, element)] = copy;
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
    return no_error;
}

bool law_base::has_element_data(unsigned model, unsigned element) const
{
    return element_table.count(element_key(model, element)) != 0;
}

error_type law_base::get_element_data(unsigned model, unsigned element, dense1D<double, 8>& out) const
{
    out.clear_hard();
    const auto it = element_table.find(element_key(model, element));
    dense1D<double, 8> copy;
    if (!copy.copy(it == element_table.end() ? data : it->second) || !process_data(copy)) return memory_error;
    out = copy;
    return no_error;
}

bool law_base::valid(const dense1D<double, 8>& given) const { return !given.empty(); }

bool law_base::process_data(dense1D<double, 8>&) const { return true; }

std::pair<double, double> law_base::get_stiffness_range(field_tag) const { return {0.0, 0.0}; }

bool law_base::describe_unusable(char* text, unsigned size) const
{
    for (unsigned i = 0; i < data.size(); ++i)
        if (!std::isfinite(data[i])) {
            std::snprintf(text, size, "Law parameter %u is %g.", i, data[i]);
            return true;
        }
    return false;
}

unsigned law_base::nbr_internal_states() const { return 0; }

bool law_base::has_internal_states() const { return nbr_internal_states() != 0; }

const dense1D<double, 8>& law_base::element_data(unsigned model, unsigned element) const noexcept
{
    if (element_table.empty()) return data;
    const auto it = element_table.find(element_key(model, element));
    return it == element_table.end() ? data : it->second;
}

} // namespace kelt::core
