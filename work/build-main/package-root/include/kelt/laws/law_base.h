// The root of the material laws: a parameter vector shared by all elements of the
// models that use the law, and per-element replacements of it. A law keeps no
// state of its own: the states of its points live in the models that use it, and
// the law only says how many values a point needs.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <utility>

#include "kelt/core/ref_counted.h"
#include "kelt/core/types.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

// The one failure of init, valid and set_element_by_element.
inline constexpr error_type law_data_error = error_type(-1);

// Where a law is evaluated: model identifier, element index, point identifier.
struct law_key {
    unsigned model = 0;
    unsigned element = 0;
    unsigned point = 0;
};

class law_base : public ref_counted {
public:
    law_base() = default;
    law_base(const law_base&) = delete;
    law_base& operator=(const law_base&) = delete;

    ~law_base() override;
    // A deep copy of `data`, checked by valid and extended by process_data;
    // law_data_error, with the law left without data, when it is not valid.
    [[nodiscard]] virtual error_type init(const dense1D<double, 8>& data);
    virtual const dense1D<double, 8>& get_data() const;
    // Gives one element of one model its own parameters. Values equal to the
    // law's own store nothing (and drop a previous entry of the element).
    [[nodiscard]] virtual error_type set_element_by_element(unsigned model, unsigned element,
                                                            const dense1D<double, 8>& data);
    virtual bool has_element_data(unsigned model, unsigned element) const;
    // A processed copy of the element's parameters, or of the law's.
    [[nodiscard]] virtual error_type get_element_data(unsigned model, unsigned element,
                                                      dense1D<double, 8>& out) const;
    // Tests the size only.
    virtual bool valid(const dense1D<double, 8>& data) const;
    // Extends a short form in place; false when memory fails.
    [[nodiscard]] virtual bool process_data(dense1D<double, 8>& data) const;
    // (lower, upper) stiffness scale of a field, for the penalty factors.
    virtual std::pair<double, double> get_stiffness_range(field_tag field) const;
    // A parameter that init accepts but that gives no usable matrix (a value that
    // is not finite; a law adds its own ranges), said in `text`; false when every
    // parameter is usable. A run that meets a bad pivot tells the host which.
    virtual bool describe_unusable(char* text, unsigned size) const;
    // Values of internal state a point needs; 0 for a law without history.
    virtual unsigned nbr_internal_states() const;
    virtual bool has_internal_states() const;

    // The processed parameters that an element reads: its own, else the law's.
    // No copy, so element loops may call it at every point.
    const dense1D<double, 8>& element_data(unsigned model, unsigned element) const noexcept;

    dense1D<double, 8> data;

private:
    static std::uint64_t element_key(unsigned model, unsigned element) noexcept
    {
        return (std::uint64_t(model) << 32) | element;
    }
    struct element_hash {
        std::size_t operator()(std::uint64_t key) const noexcept
        {
            const unsigned model = unsigned(key >> 32), element = unsigned(key);
            return std::size_t(3u * model + 5u * element);
        }
    };
    // Processed per-element parameters.
    std::unordered_map<std::uint64_t, dense1D<double, 8>, element_hash> element_table;
};

// The families by dimension of what they describe.
class law_1d : public law_base {};
class law_2d : public law_base {};
class law_3d : public law_base {};

} // namespace kelt::core
