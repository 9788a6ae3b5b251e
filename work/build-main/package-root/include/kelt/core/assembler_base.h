// What a model sees of a global matrix or vector: it hands element matrices and
// vectors with the DOF identifiers of their rows, and the assembler turns them into
// additions at matrix positions, scaled by its factor. A DOF absent from the
// target's table is dropped with its row and column: that is how prescribed DOFs
// leave the system. The engine implements these interfaces.
#pragma once

#include "kelt/core/types.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"
#include "kelt/math/symmetric_full.h"

namespace kelt::core {

class matrix_assembler_base {
public:
    virtual ~matrix_assembler_base() = default;
    // True when nothing given can have an effect: a model then skips the element's
    // matrix work altogether.
    virtual bool is_null() const = 0;
    // The element gives only a diagonal.
    virtual error_type add_diagonal(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs) = 0;
    virtual error_type add_general(const dense2D<double>& values, const dense1D<unsigned, 8>& IDs) = 0;
    // A packed symmetric matrix, or with `symmetric` false its skew part.
    virtual error_type add_symmetric(const symmetric_full<double>& values, const dense1D<unsigned, 8>& IDs,
                                     bool symmetric) = 0;
};

class vector_assembler_base {
public:
    virtual ~vector_assembler_base() = default;
    virtual bool is_null() const = 0;
    virtual error_type add(unsigned ID, double value) = 0;
    virtual error_type add_vector(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& IDs) = 0;
};

// The do-nothing assemblers, for passes that want no matrix or no vector.
class matrix_null_assembler final : public matrix_assembler_base {
public:
    bool is_null() const override { return true; }
    error_type add_diagonal(const dense1D<double, 8>&, const dense1D<unsigned, 8>&) override { return no_error; }
    error_type add_general(const dense2D<double>&, const dense1D<unsigned, 8>&) override { return no_error; }
    error_type add_symmetric(const symmetric_full<double>&, const dense1D<unsigned, 8>&, bool) override
    {
        return no_error;
    }
};

class vector_null_assembler final : public vector_assembler_base {
public:
    bool is_null() const override { return true; }
    error_type add(unsigned, double) override { return no_error; }
    error_type add_vector(const dense1D<double, 8>&, const dense1D<unsigned, 8>&) override { return no_error; }
};

} // namespace kelt::core
