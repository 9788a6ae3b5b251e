#include "kelt/fem/numerical_models.h"

#include <new>

#include "kelt/core/context.h"
#include "kelt/core/element_records.h"
#include "kelt/elements/model_init.h"
#include "kelt/elements/numerical_model_composite.h"
#include "kelt/fem/context.h"
#include "kelt/fem/handle_call.h"

namespace kelt::fem {

namespace {

using detail::call;

core::context_type* core_context(const context& ctx) { return static_cast<core::context_type*>(core_of(ctx)); }

core::physics_base* core_physics(const physics_model_base& p)
{
    return static_cast<core::physics_base*>(core_of(p));
}

// Registers a new model in the context and attaches it to the handle.
error_type adopt(base_class& h, core::context_type* ctx, const Ptr<core::numerical_model_base>& model)
{
    model->context = ctx;
    if (auto e = model->record(); e != no_error) return e;
    attach(h, model.get());
    return no_error;
}

template <class Make>
error_type build(base_class& h, context& ctx, Make&& make) noexcept
{
    try {
        core::context_type* c = core_context(ctx);
        if (!c) return invalid_data_error;
        Ptr<core::numerical_model_base> model;
        if (auto e = make(c, model); e != no_error) return e;
        return adopt(h, c, model);
    } catch (const std::bad_alloc&) {
        return memory_error;
    } catch (...) {
        return internal_error;
    }
}

} // namespace

element_type numerical_model_mesh::get_FE_type() const
{
    const auto* m = core<core::numerical_model_base>();
    return m ? m->get_FE_type() : element_none;
}

void numerical_model_mesh::get_mesh(dense2D<unsigned>& mesh, element_type& type) const
{
    mesh = dense2D<unsigned>();
    type = element_none;
    if (const auto* m = core<core::numerical_model_base>()) m->get_mesh(mesh, type);
}

physics_model_base numerical_model_mesh::get_physics_model() const
{
    physics_model_base p;
    if (const auto* m = core<core::numerical_model_base>()) attach(p, m->get_physics_model().get());
    return p;
}

error_type numerical_model_mesh::get_element_basis(unsigned element, const dense2D<double>& pos,
                                                   matrix_fixed<double, 3, 3>& basis) const
{
    return call<core::numerical_model_base>(
        *this, [&](core::numerical_model_base& m) { return m.get_element_basis(element, pos, nullptr, basis); });
}

error_type numerical_model_mesh::get_element_basis(unsigned element, const dense2D<double>& pos, const FEM_matrix& U,
                                                   unsigned col, matrix_fixed<double, 3, 3>& basis) const
{
    return call<core::numerical_model_base>(*this, [&](core::numerical_model_base& m) {
        const auto* values = static_cast<const core::FEM_real*>(core_of(U));
        core::DOF_values_view view;
        if (!values || !view.assign(*values, col)) return invalid_data_error;
        return m.get_element_basis(element, pos, &view, basis);
    });
}

namespace {

// The maker of the implementation for each family.
template <mesh_family Family>
error_type make_mesh(core::context_type* c, core::physics_base* physics, const dense2D<unsigned>& mesh,
                     element_type type, Ptr<core::numerical_model_base>& out)
{
    if constexpr (Family == mesh_family::stiffness)
        return core::make_stiff_mesh(c, physics, mesh, type, out);
    else if constexpr (Family == mesh_family::mass)
        return core::make_mass_mesh(c, physics, mesh, type, out);
    else
        return core::make_thermal_mesh(c, physics, mesh, type, out);
}

} // namespace

template <mesh_family Family>
numerical_model_physics_mesh<Family>::numerical_model_physics_mesh(context&)
{
}

template <mesh_family Family>
numerical_model_physics_mesh<Family>::numerical_model_physics_mesh(context& ctx, const physics_model_base& physics,
                                                                   const dense2D<unsigned>& mesh, element_type type)
{
    (void)init(ctx, physics, mesh, type);
}

template <mesh_family Family>
void numerical_model_physics_mesh<Family>::create(context&)
{
    this->clear_w();
}

template <mesh_family Family>
error_type numerical_model_physics_mesh<Family>::init(context& ctx, const physics_model_base& physics,
                                                      const dense2D<unsigned>& mesh, element_type type)
{
    return build(*this, ctx, [&](core::context_type* c, Ptr<core::numerical_model_base>& out) {
        return make_mesh<Family>(c, core_physics(physics), mesh, type, out);
    });
}

template class numerical_model_physics_mesh<mesh_family::stiffness>;
template class numerical_model_physics_mesh<mesh_family::mass>;
template class numerical_model_physics_mesh<mesh_family::conduction>;

numerical_model_load_only::numerical_model_load_only(context&) {}

numerical_model_load_only::numerical_model_load_only(context& ctx, const dense2D<unsigned>& mesh, element_type type)
{
    (void)init(ctx, mesh, type);
}

void numerical_model_load_only::create(context&) { clear_w(); }

error_type numerical_model_load_only::init(context& ctx, const dense2D<unsigned>& mesh, element_type type)
{
    return build(*this, ctx, [&](core::context_type* c, Ptr<core::numerical_model_base>& out) {
        return core::make_load_only_mesh(c, mesh, type, out);
    });
}

numerical_model_load_only_axi::numerical_model_load_only_axi(context&) {}

numerical_model_load_only_axi::numerical_model_load_only_axi(context& ctx, const dense2D<unsigned>& mesh,
                                                             element_type type)
{
    (void)init(ctx, mesh, type);
}

void numerical_model_load_only_axi::create(context&) { clear_w(); }

error_type numerical_model_load_only_axi::init(context& ctx, const dense2D<unsigned>& mesh, element_type type)
{
    return build(*this, ctx, [&](core::context_type* c, Ptr<core::numerical_model_base>& out) {
        return core::make_load_only_axi_mesh(c, mesh, type, out);
    });
}

numerical_model_composite::numerical_model_composite(context& ctx) { create(ctx); }

void numerical_model_composite::create(context& ctx)
{
    clear_w();
    (void)build(*this, ctx, [](core::context_type* c, Ptr<core::numerical_model_base>& out) {
        out = new core::numerical_model_composite(c);
        return no_error;
    });
}

error_type numerical_model_composite::insert(unsigned ID)
{
    return call<core::numerical_model_composite>(*this, [&](core::numerical_model_composite& m) { return m.insert(ID); });
}

error_type numerical_model_composite::insert(const dense1D<unsigned, 8>& IDs)
{
    return call<core::numerical_model_composite>(*this,
                                                 [&](core::numerical_model_composite& m) { return m.insert(IDs); });
}

} // namespace kelt::fem
