// Public handle on a set of local bases, referred to by index by oriented
// materials.
#pragma once

#include "kelt/fem/base_class.h"
#include "kelt/math/fixed.h"

namespace kelt::fem {

class bases_mgr : public base_class {
public:
    // A manager of its own; context::the_bases_mgr() gives the context's.
    bases_mgr();

    // Each returns the index of the new basis, size() - 1.
    // The frame's columns are made orthonormal in turn; a null first column is x.
    unsigned create_cartesian(const matrix_fixed<double, 3, 3>& frame);
    // Radial, tangential, axial axes about the line through origin; a null axis is z.
    unsigned create_cylindrical(const vector_fixed<double, 3>& origin, const vector_fixed<double, 3>& axis);
    // Two tangential axes and the radial one from origin; a null axis is z.
    unsigned create_spherical(const vector_fixed<double, 3>& origin, const vector_fixed<double, 3>& axis);

    unsigned size() const;
    void clear();
};

} // namespace kelt::fem
