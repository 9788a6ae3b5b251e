#include "kelt/fem/laws.h"

#include <new>

#include "kelt/core/bases_mgr.h"
#include "kelt/fem/bases_mgr.h"
#include "kelt/fem/handle_call.h"
#include "kelt/laws/law_beam.h"
#include "kelt/laws/law_membrane.h"
#include "kelt/laws/law_scalar.h"
#include "kelt/laws/law_scalar_ep.h"
#include "kelt/laws/law_spring.h"
#include "kelt/laws/law_shell.h"
#include "kelt/laws/law_solid.h"
#include "kelt/laws/law_solid_ep.h"

namespace kelt::fem {

namespace {

using detail::call;

template <class Core>
void make(base_class& h)
{
    attach(h, new (std::nothrow) Core);
}

Ptr<core::bases_mgr> core_bases(const bases_mgr& b)
{
    return Ptr<core::bases_mgr>(static_cast<core::bases_mgr*>(core_of(b)));
}

} // namespace

dense1D<double, 8> law_base::get_data() const
{
    const auto* l = core<core::law_base>();
    return l ? l->data : dense1D<double, 8>();
}

error_type law_base::set_element_by_element(unsigned model, unsigned element, const dense1D<double, 8>& data)
{
    return call<core::law_base>(*this, [&](core::law_base& l) { return l.set_element_by_element(model, element, data); });
}

bool law_base::has_element_data(unsigned model, unsigned element) const
{
    const auto* l = core<core::law_base>();
    return l && l->has_element_data(model, element);
}

error_type law_base::get_element_data(unsigned model, unsigned element, dense1D<double, 8>& out) const
{
    return call<core::law_base>(*this, [&](core::law_base& l) { return l.get_element_data(model, element, out); });
}

std::pair<double, double> law_base::get_stiffness_range(field_tag field) const
{
    const auto* l = core<core::law_base>();
    return l ? l->get_stiffness_range(field) : std::pair<double, double>(0.0, 0.0);
}

law_solid_StVenant::law_solid_StVenant() { make<core::law_solid_StVenant>(*this); }

error_type law_solid_StVenant::init(const dense1D<double, 8>& data)
{
    return call<core::law_solid_StVenant>(*this, [&](core::law_solid_StVenant& l) { return l.init(data); });
}

law_solid_orthotropic::law_solid_orthotropic() { make<core::law_solid_orthotropic>(*this); }

error_type law_solid_orthotropic::init(const dense1D<double, 8>& data)
{
    return call<core::law_solid_orthotropic>(*this, [&](core::law_solid_orthotropic& l) { return l.init(data); });
}

error_type law_solid_orthotropic::init(const dense1D<double, 8>& data, const bases_mgr& bases, unsigned basis)
{
    return call<core::law_solid_orthotropic>(
        *this, [&](core::law_solid_orthotropic& l) { return l.init(data, core_bases(bases), basis); });
}

law_solid_skyline::law_solid_skyline() : law_solid_orthotropic(no_object{})
{
    attach(*this, new (std::nothrow) core::law_solid_skyline(vector_fixed<unsigned, 6>{}));
}

error_type law_solid_skyline::init(const vector_fixed<unsigned, 6>& heights, const dense1D<double, 8>& data)
{
    return call<core::law_solid_skyline>(*this, [&](core::law_solid_skyline& l) {
        l.heights = heights;
        return l.init(data);
    });
}

error_type law_solid_skyline::init(const vector_fixed<unsigned, 6>& heights, const dense1D<double, 8>& data,
                                   const bases_mgr& bases, unsigned basis)
{
    return call<core::law_solid_skyline>(*this, [&](core::law_solid_skyline& l) {
        l.heights = heights;
        return l.init(data, core_bases(bases), basis);
    });
}

law_solid_ep_perfect::law_solid_ep_perfect() { make<core::law_solid_ep_perfect>(*this); }

error_type law_solid_ep_perfect::init(const dense1D<double, 8>& data)
{
    return call<core::law_solid_ep_perfect>(*this, [&](core::law_solid_ep_perfect& l) { return l.init(data); });
}

law_solid_ep_power::law_solid_ep_power() { make<core::law_solid_ep_power>(*this); }

error_type law_solid_ep_power::init(const dense1D<double, 8>& data)
{
    return call<core::law_solid_ep_power>(*this, [&](core::law_solid_ep_power& l) { return l.init(data); });
}

law_solid_ep_RambergOsgood::law_solid_ep_RambergOsgood() : law_solid_ep_power(no_object{})
{
    make<core::law_solid_ep_RambergOsgood>(*this);
}

law_solid_ep_piecewise_linear::law_solid_ep_piecewise_linear() { make<core::law_solid_ep_piecewise_linear>(*this); }

error_type law_solid_ep_piecewise_linear::init(const dense1D<double, 8>& base, const dense1D<double, 8>& a,
                                               const dense1D<double, 8>& b)
{
    return call<core::law_solid_ep_piecewise_linear>(
        *this, [&](core::law_solid_ep_piecewise_linear& l) { return l.init(base, a, b); });
}

error_type law_solid_ep_piecewise_linear::init(const dense1D<double, 8>& base, const dense2D<double>& table)
{
    return call<core::law_solid_ep_piecewise_linear>(
        *this, [&](core::law_solid_ep_piecewise_linear& l) { return l.init(base, table); });
}

law_scalar::law_scalar() { make<core::law_scalar>(*this); }

error_type law_scalar::init(double value)
{
    dense1D<double, 8> data;
    data.push_back(value);
    if (data.size() != 1) return memory_error;
    return init(data);
}

error_type law_scalar::init(const dense1D<double, 8>& data)
{
    return call<core::law_scalar>(*this, [&](core::law_scalar& l) { return l.init(data); });
}

law_scalar_nl::law_scalar_nl() : law_scalar(no_object{}) { make<core::law_scalar_nl>(*this); }

error_type law_scalar_nl::init(const dense2D<double>& table, double shift)
{
    return call<core::law_scalar_nl>(*this, [&](core::law_scalar_nl& l) { return l.init(table, shift); });
}

void law_scalar_ep_iso_hardening::set_limit_states(double limit_strain, double limit_stress)
{
    detail::run<core::law_scalar_ep_iso_hardening>(
        *this, [&](core::law_scalar_ep_iso_hardening& l) { l.set_limit_states(limit_strain, limit_stress); });
}

law_scalar_ep_perfect::law_scalar_ep_perfect() { make<core::law_scalar_ep_perfect>(*this); }

law_scalar_ep_power::law_scalar_ep_power() { make<core::law_scalar_ep_power>(*this); }

law_scalar_ep_RambergOsgood::law_scalar_ep_RambergOsgood() : law_scalar_ep_power(no_object{})
{
    make<core::law_scalar_ep_RambergOsgood>(*this);
}

law_scalar_ep_piecewise_linear::law_scalar_ep_piecewise_linear() { make<core::law_scalar_ep_piecewise_linear>(*this); }

error_type law_scalar_ep_piecewise_linear::init(const dense1D<double, 8>& a, const dense1D<double, 8>& b)
{
    return call<core::law_scalar_ep_piecewise_linear>(
        *this, [&](core::law_scalar_ep_piecewise_linear& l) { return l.init(a, b); });
}

error_type law_scalar_ep_piecewise_linear::init(const dense2D<double>& table)
{
    return call<core::law_scalar_ep_piecewise_linear>(
        *this, [&](core::law_scalar_ep_piecewise_linear& l) { return l.init(table); });
}

law_spring::law_spring() { make<core::law_spring>(*this); }

error_type law_spring::init(const dense1D<double, 8>& data)
{
    return call<core::law_spring>(*this, [&](core::law_spring& l) { return l.init(data); });
}

law_spring_nl::law_spring_nl() : law_spring(no_object{}) { make<core::law_spring_nl>(*this); }

error_type law_spring_nl::init(const dense2D<double>& table, double p1, double p2, double p3, double p4)
{
    return call<core::law_spring_nl>(*this, [&](core::law_spring_nl& l) { return l.init(table, p1, p2, p3, p4); });
}

void law_spring_ep_iso_hardening::set_limit_states(double limit_strain, double limit_stress)
{
    detail::run<core::law_spring_ep_iso_hardening>(
        *this, [&](core::law_spring_ep_iso_hardening& l) { l.set_limit_states(limit_strain, limit_stress); });
}

law_spring_ep_perfect::law_spring_ep_perfect() { make<core::law_spring_ep_perfect>(*this); }

law_spring_ep_power::law_spring_ep_power() { make<core::law_spring_ep_power>(*this); }

law_spring_ep_RambergOsgood::law_spring_ep_RambergOsgood() : law_spring_ep_power(no_object{})
{
    make<core::law_spring_ep_RambergOsgood>(*this);
}

law_spring_ep_piecewise_linear::law_spring_ep_piecewise_linear() { make<core::law_spring_ep_piecewise_linear>(*this); }

error_type law_spring_ep_piecewise_linear::init(const dense1D<double, 8>& data, const dense1D<double, 8>& a,
                                                const dense1D<double, 8>& b)
{
    return call<core::law_spring_ep_piecewise_linear>(
        *this, [&](core::law_spring_ep_piecewise_linear& l) { return l.init(data, a, b); });
}

error_type law_spring_ep_piecewise_linear::init(const dense1D<double, 8>& data, const dense2D<double>& table)
{
    return call<core::law_spring_ep_piecewise_linear>(
        *this, [&](core::law_spring_ep_piecewise_linear& l) { return l.init(data, table); });
}

law_beam_StVenant::law_beam_StVenant() { make<core::law_beam_StVenant>(*this); }

error_type law_beam_StVenant::init(const dense1D<double, 8>& data)
{
    return call<core::law_beam_StVenant>(*this, [&](core::law_beam_StVenant& l) { return l.init(data); });
}

law_beam_mass::law_beam_mass() { make<core::law_beam_mass>(*this); }

error_type law_beam_mass::init(const dense1D<double, 8>& data)
{
    return call<core::law_beam_mass>(*this, [&](core::law_beam_mass& l) { return l.init(data); });
}

law_shell_StVenant::law_shell_StVenant() { make<core::law_shell_StVenant>(*this); }

error_type law_shell_StVenant::init(const dense1D<double, 8>& data)
{
    return call<core::law_shell_StVenant>(*this, [&](core::law_shell_StVenant& l) { return l.init(data); });
}

law_shell_orthotropic::law_shell_orthotropic() { make<core::law_shell_orthotropic>(*this); }

error_type law_shell_orthotropic::init(const dense1D<double, 8>& data)
{
    return call<core::law_shell_orthotropic>(*this, [&](core::law_shell_orthotropic& l) { return l.init(data); });
}

law_shell_skyline::law_shell_skyline()
{
    attach(*this, new (std::nothrow) core::law_shell_skyline(vector_fixed<unsigned, 8>{}));
}

error_type law_shell_skyline::init(const vector_fixed<unsigned, 8>& heights, const dense1D<double, 8>& data)
{
    return call<core::law_shell_skyline>(*this, [&](core::law_shell_skyline& l) {
        l.heights = heights;
        return l.init(data);
    });
}

law_shell_mass::law_shell_mass() { make<core::law_shell_mass>(*this); }

error_type law_shell_mass::init(const dense1D<double, 8>& data)
{
    return call<core::law_shell_mass>(*this, [&](core::law_shell_mass& l) { return l.init(data); });
}

law_membrane_StVenant::law_membrane_StVenant() { make<core::law_membrane_StVenant>(*this); }

error_type law_membrane_StVenant::init(const dense1D<double, 8>& data)
{
    return call<core::law_membrane_StVenant>(*this, [&](core::law_membrane_StVenant& l) { return l.init(data); });
}

law_membrane_orthotropic::law_membrane_orthotropic() { make<core::law_membrane_orthotropic>(*this); }

error_type law_membrane_orthotropic::init(const dense1D<double, 8>& data)
{
    return call<core::law_membrane_orthotropic>(*this,
                                                [&](core::law_membrane_orthotropic& l) { return l.init(data); });
}

error_type law_solid_stiff_2d::init(const law_base& solid)
{
    auto* s = dynamic_cast<core::law_solid_stiff*>(static_cast<core::law_base*>(core_of(solid)));
    if (!s || s->data.empty()) return invalid_data_error;
    // The view's own axes are the global ones; each model sets its plane's.
    static constexpr unsigned global_axes[3] = {0, 1, 2};
    auto* view = new (std::nothrow) core::law_solid_stiff_2d(Ptr<core::law_solid_stiff>(s), global_axes);
    if (!view) return memory_error;
    attach(*this, view);
    return no_error;
}

} // namespace kelt::fem
