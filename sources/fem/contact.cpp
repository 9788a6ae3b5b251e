#include "kelt/fem/contact.h"

#include "kelt/discrete/contact.h"
#include "kelt/fem/handle_call.h"

namespace kelt::fem {

using detail::call;

namespace {

vector_fixed<double, 3> fixed3(const double (&v)[3])
{
    vector_fixed<double, 3> out;
    for (unsigned c = 0; c < 3; ++c) out[c] = v[c];
    return out;
}

} // namespace

// ---------------------------------------------------------------- rigid surfaces

void contact_plane::create(context& ctx) { make<core::contact_plane>(ctx); }

error_type contact_plane::init(const dense1D<unsigned, 8>& nodes, unsigned master,
                               const vector_fixed<double, 3>& normal, double offset, double sharpness, double K_max)
{
    return call<core::contact_plane>(
        *this, [&](core::contact_plane& c) { return c.init(nodes, master, normal, offset, sharpness, K_max); });
}

error_type contact_plane::get_params(dense1D<unsigned, 8>& nodes, unsigned& master, vector_fixed<double, 3>& normal,
                                     double& offset, double& sharpness, double& K_max) const
{
    return call<core::contact_plane>(*this, [&](core::contact_plane& c) {
        master = c.master, normal = fixed3(c.normal), offset = c.offset, sharpness = c.sharpness, K_max = c.K_max;
        return nodes.copy(c.nodes) ? no_error : memory_error;
    });
}

void contact_sphere::create(context& ctx) { make<core::contact_sphere>(ctx); }

error_type contact_sphere::init(const dense1D<unsigned, 8>& nodes, unsigned master, double radius, double sharpness,
                                double K_max, bool no_pull)
{
    return call<core::contact_sphere>(
        *this, [&](core::contact_sphere& c) { return c.init(nodes, master, radius, sharpness, K_max, no_pull); });
}

error_type contact_sphere::get_params(dense1D<unsigned, 8>& nodes, unsigned& master, double& radius, double& sharpness,
                                      double& K_max, bool& no_pull) const
{
    return call<core::contact_sphere>(*this, [&](core::contact_sphere& c) {
        master = c.master, radius = c.radius, sharpness = c.sharpness, K_max = c.K_max, no_pull = c.no_pull;
        return nodes.copy(c.nodes) ? no_error : memory_error;
    });
}

void contact_cylinder::create(context& ctx) { make<core::contact_cylinder>(ctx); }

error_type contact_cylinder::init(const dense1D<unsigned, 8>& nodes, unsigned master,
                                  const vector_fixed<double, 3>& axis, double radius, double sharpness, double K_max,
                                  bool no_pull)
{
    return call<core::contact_cylinder>(*this, [&](core::contact_cylinder& c) {
        return c.init(nodes, master, axis, radius, sharpness, K_max, no_pull);
    });
}

error_type contact_cylinder::get_params(dense1D<unsigned, 8>& nodes, unsigned& master, vector_fixed<double, 3>& axis,
                                        double& radius, double& sharpness, double& K_max, bool& no_pull) const
{
    return call<core::contact_cylinder>(*this, [&](core::contact_cylinder& c) {
        master = c.master, axis = fixed3(c.axis), radius = c.radius, sharpness = c.sharpness, K_max = c.K_max;
        no_pull = c.no_pull;
        return nodes.copy(c.nodes) ? no_error : memory_error;
    });
}

// ---------------------------------------------------------------- block stops

void block_stops::create(context& ctx) { make<core::block_stops>(ctx); }

error_type block_stops::init(const dense1D<unsigned, 8>& nodes, field_tag field,
                             const vector_fixed<double, 3>& direction, double limit)
{
    return call<core::block_stops>(*this, [&](core::block_stops& b) { return b.init(nodes, field, direction, limit); });
}

error_type block_stops::get_params(dense1D<unsigned, 8>& nodes, field_tag& field, vector_fixed<double, 3>& direction,
                                   double& limit) const
{
    return call<core::block_stops>(*this, [&](core::block_stops& b) {
        field = b.field, limit = b.limit;
        for (unsigned c = 0; c < 3; ++c) direction[c] = -b.direction[c];
        return nodes.copy(b.nodes) ? no_error : memory_error;
    });
}

// ---------------------------------------------------------------- cables

void cable::create(context& ctx) { make<core::cable>(ctx); }

error_type cable::init(const dense1D<unsigned, 8>& nodes, const law_base& law)
{
    return call<core::cable>(*this, [&](core::cable& c) {
        return c.init(nodes, Ptr<core::law_scalar>(dynamic_cast<core::law_scalar*>(core_of(law))));
    });
}

error_type cable::get_params(dense1D<unsigned, 8>& nodes, law_spring& law) const
{
    return call<core::cable>(*this, [&](core::cable& c) {
        attach(law, c.law.get());
        return nodes.copy(c.nodes) ? no_error : memory_error;
    });
}

void cable_rigid::create(context& ctx) { make<core::cable_rigid>(ctx); }

error_type cable_rigid::init(const dense1D<unsigned, 8>& nodes, bool tension_only, double p1, double p2)
{
    return call<core::cable_rigid>(*this, [&](core::cable_rigid& c) { return c.init(nodes, tension_only, p1, p2); });
}

error_type cable_rigid::get_params(dense1D<unsigned, 8>& nodes, bool& tension_only, double& p1, double& p2) const
{
    return call<core::cable_rigid>(*this, [&](core::cable_rigid& c) {
        tension_only = c.tension_only, p1 = c.p1, p2 = c.p2;
        return nodes.copy(c.nodes) ? no_error : memory_error;
    });
}

} // namespace kelt::fem
