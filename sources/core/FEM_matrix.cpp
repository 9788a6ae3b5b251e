#include "kelt/core/FEM_matrix.h"

namespace kelt::core {

template class indexed2D_row<vector_fast, dense2D_OOC<double>>;
template class indexed2D_row<vector_fast, dense2D_OOC<std::complex<double>>>;

} // namespace kelt::core
