// How a public init turns (physics, mesh, element type) into a mesh model: the
// checks that every family shares, then the instance of the pair (physics family,
// element type), or element_type_error when there is none.
#pragma once

#include "kelt/core/numerical_model_base.h"
#include "kelt/elements/physics.h"
#include "kelt/math/dense2D.h"

namespace kelt::core {

// `out` gets a new model on `context`, not yet recorded; it is left alone on failure.
[[nodiscard]] error_type make_stiff_mesh(context_type* context, physics_base* physics,
                                         const dense2D<unsigned>& mesh, element_type type,
                                         Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_mass_mesh(context_type* context, physics_base* physics, const dense2D<unsigned>& mesh,
                                        element_type type, Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_thermal_mesh(context_type* context, physics_base* physics,
                                           const dense2D<unsigned>& mesh, element_type type,
                                           Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_load_only_mesh(context_type* context, const dense2D<unsigned>& mesh, element_type type,
                                             Ptr<numerical_model_base>& out);

// The instances of each family, by element type; element_type_error for a type
// that the family has no instance of. Each lives in its family's own file.
[[nodiscard]] error_type make_solid_stiff(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                                          element_type type, Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_solid_mass(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                                         element_type type, Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_conduction_3d(context_type* context, physics_base& physics,
                                            const dense2D<unsigned>& mesh, element_type type,
                                            Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_load_only(context_type* context, const dense2D<unsigned>& mesh, element_type type,
                                        Ptr<numerical_model_base>& out);

} // namespace kelt::core
