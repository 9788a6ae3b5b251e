#include "kelt/fem/numerical_models_mgr.h"

#include "kelt/core/numerical_models_mgr.h"

namespace kelt::fem {

namespace {
using registry = core::numerical_models_mgr;
}

unsigned numerical_models_mgr::nbr_models() const { return hold<registry>()->nbr_models(); }

void numerical_models_mgr::clear() { hold<registry>()->clear(); }

unsigned numerical_models_mgr::get_ID(const numerical_model_base& m) const { return m.get_ID(); }

error_type numerical_models_mgr::get_NM(unsigned ID, numerical_model_base& m) const
{
    Ptr<registry> r = hold<registry>();
    core::numerical_model_base* model = r->get_NM(ID);
    attach(m, model);
    return model ? no_error : element_type_error;
}

unsigned numerical_models_mgr::global_FE_ID(unsigned ID) const { return hold<registry>()->global_FE_ID(ID); }

std::pair<unsigned, unsigned> numerical_models_mgr::global_FE_ID_range(unsigned ID) const
{
    return hold<registry>()->global_FE_ID_range(ID);
}

std::pair<unsigned, unsigned> numerical_models_mgr::local_FE_ID(unsigned global) const
{
    return hold<registry>()->local_FE_ID(global);
}

} // namespace kelt::fem
