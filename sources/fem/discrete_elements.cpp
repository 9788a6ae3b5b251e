#include "kelt/fem/discrete_elements.h"

#include <new>

#include "kelt/core/context.h"
#include "kelt/discrete/contact.h"
#include "kelt/discrete/discrete_elements.h"
#include "kelt/discrete/links.h"
#include "kelt/fem/context.h"
#include "kelt/fem/handle_call.h"

namespace kelt::fem {

namespace {

using detail::call;

// The core law of a handle when it is a scalar law (a spring law is one); null
// otherwise.
Ptr<core::law_scalar> scalar_law(const law_base& law)
{
    return Ptr<core::law_scalar>(dynamic_cast<core::law_scalar*>(core_of(law)));
}

void hand_out(law_scalar& handle, const Ptr<core::law_scalar>& law)
{
    attach(handle, law.get());
}

} // namespace

template <class Core>
void discrete_element::make(context& ctx)
{
    clear_w();
    try {
        auto* c = static_cast<core::context_type*>(core_of(ctx));
        if (!c) return;
        Ptr<core::numerical_model_base> model(new Core(c));
        if (model->record() != no_error) return;
        attach(*this, model.get());
    } catch (...) {
        // An empty handle: its operations then answer invalid_data_error.
    }
}

// The constraints' handles live in links.cpp.
template void discrete_element::make<core::link>(context&);
template void discrete_element::make<core::link_gnl>(context&);
template void discrete_element::make<core::link_directional>(context&);
template void discrete_element::make<core::link_directional_gnl>(context&);
template void discrete_element::make<core::link_drill>(context&);
template void discrete_element::make<core::rigid_body_st>(context&);
template void discrete_element::make<core::rigid_body_ft>(context&);
// And those of contact.cpp.
template void discrete_element::make<core::contact_plane>(context&);
template void discrete_element::make<core::contact_sphere>(context&);
template void discrete_element::make<core::contact_cylinder>(context&);
template void discrete_element::make<core::block_stops>(context&);
template void discrete_element::make<core::cable>(context&);
template void discrete_element::make<core::cable_rigid>(context&);

// ---------------------------------------------------------------- springs

void spring::create(context& ctx) { make<core::spring>(ctx); }

error_type spring::init(unsigned node1, unsigned node2, field_tag field, const law_base& law)
{
    return call<core::spring>(*this, [&](core::spring& s) { return s.init(node1, node2, field, scalar_law(law)); });
}

error_type spring::get_params(unsigned& node1, unsigned& node2, field_tag& field, law_scalar& law) const
{
    return call<core::spring>(*this, [&](core::spring& s) {
        node1 = s.node1, node2 = s.node2, field = s.field;
        hand_out(law, s.law);
        return no_error;
    });
}

namespace {

error_type list_of(const core::spring_directional& s, dense1D<unsigned, 8>& DOFs, dense1D<double, 8>& coefs,
                   law_scalar& law)
{
    if (!DOFs.copy(s.DOFs) || !coefs.copy(s.coefs)) return memory_error;
    hand_out(law, s.law);
    return no_error;
}

} // namespace

void spring_directional::create(context& ctx) { make<core::spring_directional>(ctx); }

error_type spring_directional::init(const dense1D<unsigned, 8>& DOFs, const dense1D<double, 8>& coefs,
                                    const law_base& law)
{
    return call<core::spring_directional>(
        *this, [&](core::spring_directional& s) { return s.init(DOFs, coefs, scalar_law(law)); });
}

error_type spring_directional::init(unsigned node1, unsigned node2, field_tag field,
                                    const vector_fixed<double, 3>& dir, double c1, double c2, const law_base& law)
{
    return call<core::spring_directional>(*this, [&](core::spring_directional& s) {
        return s.init(node1, node2, field, dir, c1, c2, scalar_law(law));
    });
}

error_type spring_directional::get_params(dense1D<unsigned, 8>& DOFs, dense1D<double, 8>& coefs,
                                          law_scalar& law) const
{
    return call<core::spring_directional>(*this,
                                          [&](core::spring_directional& s) { return list_of(s, DOFs, coefs, law); });
}

error_type spring_centroid::init(const dense1D<unsigned, 8>& nodes, field_tag field,
                                 const vector_fixed<double, 3>& dir, const law_base& law)
{
    return call<core::spring_directional>(
        *this, [&](core::spring_directional& s) { return s.init_centroid(nodes, field, dir, scalar_law(law)); });
}

void spring_drill::create(context& ctx) { make<core::spring_drill>(ctx); }

error_type spring_drill::init(const dense2D<double>& pos, unsigned node1, unsigned node2,
                              const vector_fixed<double, 3>& axis, const law_base& law)
{
    return call<core::spring_directional>(*this, [&](core::spring_directional& s) {
        auto* drill = dynamic_cast<core::spring_drill*>(&s);
        return drill ? drill->init(pos, node1, node2, axis, scalar_law(law)) : invalid_data_error;
    });
}

// ---------------------------------------------------------------- dash-pots

void dash_pot::create(context& ctx) { make<core::dash_pot>(ctx); }

error_type dash_pot::init(unsigned node1, unsigned node2, field_tag field, const law_base& law)
{
    return call<core::dash_pot>(
        *this, [&](core::dash_pot& d) { return d.spring().init(node1, node2, field, scalar_law(law)); });
}

error_type dash_pot::get_params(unsigned& node1, unsigned& node2, field_tag& field, law_scalar& law) const
{
    return call<core::dash_pot>(*this, [&](core::dash_pot& d) {
        const core::spring& s = d.spring();
        node1 = s.node1, node2 = s.node2, field = s.field;
        hand_out(law, s.law);
        return no_error;
    });
}

void dash_pot_directional::create(context& ctx) { make<core::dash_pot_directional>(ctx); }

error_type dash_pot_directional::init(const dense1D<unsigned, 8>& DOFs, const dense1D<double, 8>& coefs,
                                      const law_base& law)
{
    return call<core::dash_pot_directional>(
        *this, [&](core::dash_pot_directional& d) { return d.spring().init(DOFs, coefs, scalar_law(law)); });
}

error_type dash_pot_directional::init(unsigned node1, unsigned node2, field_tag field,
                                      const vector_fixed<double, 3>& dir, double c1, double c2, const law_base& law)
{
    return call<core::dash_pot_directional>(*this, [&](core::dash_pot_directional& d) {
        return d.spring().init(node1, node2, field, dir, c1, c2, scalar_law(law));
    });
}

error_type dash_pot_directional::get_params(dense1D<unsigned, 8>& DOFs, dense1D<double, 8>& coefs,
                                            law_scalar& law) const
{
    return call<core::dash_pot_directional>(
        *this, [&](core::dash_pot_directional& d) { return list_of(d.spring(), DOFs, coefs, law); });
}

// ---------------------------------------------------------------- matrices

template <class Core>
void diagonal_element<Core>::create(context& ctx)
{
    this->template make<Core>(ctx);
}

template <class Core>
error_type diagonal_element<Core>::init(const dense1D<double, 8>& values, const dense1D<unsigned, 8>& DOFs)
{
    return call<Core>(*this, [&](Core& m) { return m.init(values, DOFs); });
}

template <class Core>
error_type diagonal_element<Core>::get_params(dense1D<double, 8>& values, dense1D<unsigned, 8>& DOFs) const
{
    return call<Core>(*this, [&](Core& m) {
        return values.copy(m.data.values) && DOFs.copy(m.data.DOFs) ? no_error : memory_error;
    });
}

template <class Core>
void symmetric_element<Core>::create(context& ctx)
{
    this->template make<Core>(ctx);
}

template <class Core>
error_type symmetric_element<Core>::init(const symmetric_full<double>& K, const dense1D<unsigned, 8>& DOFs, int order)
{
    return call<Core>(*this, [&](Core& m) { return m.init(K, DOFs, order); });
}

template <class Core>
error_type symmetric_element<Core>::get_params(symmetric_full<double>& K, dense1D<unsigned, 8>& DOFs, int& order) const
{
    return call<Core>(*this, [&](Core& m) {
        order = m.data.order;
        return K.copy(m.data.given) && DOFs.copy(m.data.DOFs) ? no_error : memory_error;
    });
}

template class diagonal_element<core::stiffness_diag>;
template class diagonal_element<core::mass_diag>;
template class diagonal_element<core::damping_diag>;
template class diagonal_element<core::thermal_diag>;
template class symmetric_element<core::stiffness_sym>;
template class symmetric_element<core::mass_sym>;
template class symmetric_element<core::damping_sym>;
template class symmetric_element<core::thermal_sym>;

// ---------------------------------------------------------------- masses, damping

void mass_punctual::create(context& ctx) { make<core::mass_punctual>(ctx); }

error_type mass_punctual::init(unsigned node, double m)
{
    return init(node, m, symmetric_fixed<double, 3>{}, vector_fixed<double, 3>{});
}

error_type mass_punctual::init(unsigned node, double m, const symmetric_fixed<double, 3>& J,
                               const vector_fixed<double, 3>& offset)
{
    return call<core::mass_punctual>(*this, [&](core::mass_punctual& p) { return p.init(node, m, J, offset); });
}

error_type mass_punctual::get_params(unsigned& node, double& m, symmetric_fixed<double, 3>& J,
                                     vector_fixed<double, 3>& offset) const
{
    return call<core::mass_punctual>(*this, [&](core::mass_punctual& p) {
        node = p.node, m = p.mass, J = p.inertia, offset = p.offset;
        return no_error;
    });
}

void damping_Rayleigh::create(context& ctx) { make<core::damping_Rayleigh>(ctx); }

error_type damping_Rayleigh::init(double alpha, unsigned model_ID_K, double beta, unsigned model_ID_M)
{
    return call<core::damping_Rayleigh>(*this, [&](core::damping_Rayleigh& d) {
        d.init(alpha, model_ID_K, beta, model_ID_M);
        return no_error;
    });
}

error_type damping_Rayleigh::get_params(double& alpha, unsigned& model_ID_K, double& beta,
                                        unsigned& model_ID_M) const
{
    return call<core::damping_Rayleigh>(*this, [&](core::damping_Rayleigh& d) {
        alpha = d.alpha, model_ID_K = d.stiffness_model_ID, beta = d.beta, model_ID_M = d.mass_model_ID;
        return no_error;
    });
}

} // namespace kelt::fem
