#include "kelt/core/dense2D_OOC.h"

namespace kelt::core {

template class dense2D_proxy_data<double>;
template class dense2D_proxy_data<std::complex<double>>;
template class dense2D_OOC<double>;
template class dense2D_OOC<std::complex<double>>;

} // namespace kelt::core
