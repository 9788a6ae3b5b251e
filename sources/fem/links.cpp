#include "kelt/fem/links.h"

#include <limits>

#include "kelt/discrete/links.h"
#include "kelt/fem/handle_call.h"

namespace kelt::fem {

using detail::call;

// ---------------------------------------------------------------- links

void link::create(context& ctx) { make<core::link>(ctx); }

error_type link::init(unsigned node1, unsigned node2, field_tag field)
{
    return call<core::link>(*this, [&](core::link& l) { return l.init(node1, node2, field); });
}

error_type link::get_params(unsigned& node1, unsigned& node2, field_tag& field) const
{
    return call<core::link>(*this, [&](core::link& l) {
        node1 = l.node1, node2 = l.node2, field = l.field;
        return no_error;
    });
}

void link_gnl::create(context& ctx) { make<core::link_gnl>(ctx); }

error_type link_gnl::init(unsigned node1, unsigned node2, field_tag field, double gap)
{
    return call<core::link_gnl>(*this, [&](core::link_gnl& l) { return l.init(node1, node2, field, gap); });
}

error_type link_gnl::get_params(unsigned& node1, unsigned& node2, field_tag& field, double& gap) const
{
    return call<core::link_gnl>(*this, [&](core::link_gnl& l) {
        node1 = l.node1, node2 = l.node2, field = l.field, gap = l.gap;
        return no_error;
    });
}

void link_directional::create(context& ctx) { make<core::link_directional>(ctx); }

error_type link_directional::init(const dense1D<unsigned, 8>& DOFs, const dense1D<double, 8>& coefs, double c0)
{
    return call<core::link_directional>(*this, [&](core::link_directional& l) { return l.init(DOFs, coefs, c0); });
}

error_type link_directional::init(unsigned node1, unsigned node2, field_tag field, const vector_fixed<double, 3>& dir,
                                  double c1, double c2, double c0)
{
    return call<core::link_directional>(
        *this, [&](core::link_directional& l) { return l.init(node1, node2, field, dir, c1, c2, c0); });
}

error_type link_directional::get_params(dense1D<unsigned, 8>& DOFs, dense1D<double, 8>& coefs, double& c0) const
{
    return call<core::link_directional>(*this, [&](core::link_directional& l) {
        c0 = l.c0;
        return DOFs.copy(l.DOFs) && coefs.copy(l.coefs) ? no_error : memory_error;
    });
}

void link_directional_gnl::create(context& ctx) { make<core::link_directional_gnl>(ctx); }

error_type link_directional_gnl::init(const dense1D<unsigned, 8>& DOFs, const dense1D<double, 8>& coefs, double gap,
                                      bool side)
{
    return call<core::link_directional_gnl>(
        *this, [&](core::link_directional_gnl& l) { return l.init(DOFs, coefs, gap, side); });
}

error_type link_directional_gnl::init(unsigned node1, unsigned node2, field_tag field,
                                      const vector_fixed<double, 3>& dir, double gap, bool side)
{
    return call<core::link_directional_gnl>(
        *this, [&](core::link_directional_gnl& l) { return l.init(node1, node2, field, dir, gap, side); });
}

error_type link_directional_gnl::get_params(dense1D<unsigned, 8>& DOFs, dense1D<double, 8>& coefs, double& gap,
                                            bool& side) const
{
    return call<core::link_directional_gnl>(*this, [&](core::link_directional_gnl& l) {
        gap = l.gap, side = l.side;
        return DOFs.copy(l.DOFs) && coefs.copy(l.coefs) ? no_error : memory_error;
    });
}

void link_drill::create(context& ctx) { make<core::link_drill>(ctx); }

error_type link_drill::init(const dense2D<double>& pos, unsigned node1, unsigned node2,
                            const vector_fixed<double, 3>& axis)
{
    return call<core::link_drill>(*this, [&](core::link_drill& l) { return l.init(pos, node1, node2, axis); });
}

error_type link_drill::get_params(dense1D<unsigned, 8>& DOFs, dense1D<double, 8>& coefs) const
{
    return call<core::link_drill>(*this, [&](core::link_drill& l) {
        return DOFs.copy(l.DOFs) && coefs.copy(l.coefs) ? no_error : memory_error;
    });
}

// ---------------------------------------------------------------- rigid bodies

void rigid_body_lin::create(context& ctx) { make<core::rigid_body_st>(ctx); }

error_type rigid_body_lin::init(const dense1D<unsigned, 8>& nodes, bool with_rotations)
{
    return init(nodes, core::all_displacements, core::all_rotations, with_rotations);
}

error_type rigid_body_lin::init(const dense1D<unsigned, 8>& nodes, unsigned first_mask, unsigned second_mask,
                                bool with_rotations)
{
    return call<core::rigid_body_st>(
        *this, [&](core::rigid_body_st& b) { return b.init(nodes, first_mask, second_mask, with_rotations); });
}

error_type rigid_body_lin::get_params(dense1D<unsigned, 8>& nodes, unsigned& first_mask, unsigned& second_mask,
                                      bool& with_rotations) const
{
    return call<core::rigid_body_st>(*this, [&](core::rigid_body_st& b) {
        first_mask = b.first_mask, second_mask = b.second_mask, with_rotations = b.with_rotations;
        return nodes.copy(b.nodes) ? no_error : memory_error;
    });
}

void rigid_diaphragm_lin::create(context& ctx) { make<core::rigid_body_st>(ctx); }

error_type rigid_diaphragm_lin::init(const dense1D<unsigned, 8>& nodes, unsigned normal_axis)
{
    return call<core::rigid_body_st>(*this,
                                     [&](core::rigid_body_st& b) { return b.init_diaphragm(nodes, normal_axis); });
}

error_type rigid_diaphragm_lin::get_params(dense1D<unsigned, 8>& nodes, unsigned& normal_axis) const
{
    return call<core::rigid_body_st>(*this, [&](core::rigid_body_st& b) {
        normal_axis = b.normal_axis();
        return nodes.copy(b.nodes) ? no_error : memory_error;
    });
}

void rigid_body_gnl::create(context& ctx) { make<core::rigid_body_ft>(ctx); }

void rigid_diaphragm_gnl::create(context& ctx) { make<core::rigid_body_ft>(ctx); }

// ---------------------------------------------------------------- tie rods

error_type tie_rods::init(const dense2D<unsigned>& connectivity, double k, double p1, double p2, double p3, bool side)
{
    // Stiffness k beyond the strain 0 (tension) or up to it (compression), 0 on
    // the other side; the last breakpoint is the largest finite double.
    dense2D<double> table(2, 2, 0.0);
    table(1, 0) = std::numeric_limits<double>::max();
    table(side ? 1 : 0, 1) = k;
    law_spring_nl law;
    model_rod_lin physics;
    if (auto e = law.init(table, p1, p2, p3, 0.0); e != no_error) return e;
    if (auto e = physics.init(law); e != no_error) return e;
    return numerical_model_stiff_lin::init(*ctx_, physics, connectivity, element_edge2);
}

} // namespace kelt::fem
