// The assemblers that the solvers use on the engine's own matrices and vectors,
// compiled once here.
#include "kelt/engine/assemblers.h"

namespace kelt::core {

template class matrix_sym_assembler<indexed_sym_matrix>;
template class matrix_skew_assembler<indexed_sym_matrix>;
template class matrix_diag_assembler<indexed_vector>;
template class matrix_sym_assembler_projection<DOF_selector>;
template class vector_assembler<indexed_vector>;
template class vector_assembler<indexed_zvector>;

} // namespace kelt::core
