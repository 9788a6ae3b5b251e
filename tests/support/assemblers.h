// A right-hand side that keeps, by identifier, the sum of what is added to it.
#pragma once

#include <map>

#include "kelt/core/assembler_base.h"

namespace kelt::test {

class sum_vector_assembler : public core::vector_assembler_base {
public:
    bool is_null() const override { return false; }
    error_type add(unsigned ID, double value) override
    {
        sums[ID] += value;
        return no_error;
    }
    error_type add_vector(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs) override
    {
        for (unsigned i = 0; i < values.size(); ++i) sums[IDs[i]] += values[i];
        return no_error;
    }
    std::map<unsigned, double> sums;
};

} // namespace kelt::test
