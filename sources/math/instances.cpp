// Compiled instances of the common containers, so that users of the headers do
// not each instantiate them.
#include "kelt/math/dense2D.h"

namespace kelt {
template class vector_num<double, 8>;
template class vector_num<unsigned, 8>;
template class dense1D<double, 8>;
template class dense1D<unsigned, 8>;
template class dense2D<double>;
template class dense2D<unsigned>;
} // namespace kelt
