// The conduction family: steady conduction in the 8 volumes, the conduction rule
// and the load rule of each shape. Every instance of the family is made here.
#include "kelt/elements/conduction_server.h"
#include "kelt/elements/model_init.h"
#include "kelt/elements/numerical_model_mesh.h"

namespace kelt::core {

error_type make_conduction_3d(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                              element_type type, Ptr<numerical_model_base>& out)
{
    auto* conduction = dynamic_cast<conduction_3d*>(&physics);
    if (!conduction) return element_type_error;
    return for_volume(type, [&]<class Shape>() {
        using rules = volume_rules<Shape>;
        using model = numerical_model_thermal_mesh<heat_conduction_server<conduction_3d, Shape, typename rules::matrix>,
                                                   external_work_server<conduction_3d, Shape, typename rules::load>>;
        return new_mesh_model<model>(context, *conduction, mesh, Shape::type, out);
    });
}

} // namespace kelt::core
