// A careless host driven by the fuzzer's bytes: a context with a small memory
// budget, nodes at positions, a DOF table with some supports, a mesh of one
// element type (some node numbers out of range), a law with any values, load
// cases of nodal, DOF and element loads and prescribed values, then a linear static
// run. Whatever the bytes say, the run must end with a result or an error code.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_input.h"
#include "kelt/core/element_catalogue.h"
#include "kelt/fem.h"

using namespace kelt;

namespace {

constexpr unsigned no_func = 0xFFFFFFFFu;

const element_type volumes[] = {element_tetra4,  element_tetra10,  element_pyramid5, element_pyramid13,
                                element_pyramid14, element_wedge6, element_wedge15, element_wedge18,
                                element_hexa8,   element_hexa20,   element_hexa27};
const field_tag tags[] = {displacement_tag, rotation_tag, temperature_tag, field_tag(7)};

// Small numbers mostly, the odd huge one: node numbers whose identifiers overflow,
// or the "none" marker itself.
unsigned index_below(fuzz::byte_reader& in, unsigned n)
{
    const std::uint8_t b = in.u8();
    if (b < 240) return b % (n + 2);
    if (b < 248) return in.u32();
    return 0xFFFFFFFFu - (b & 7);
}

// The host's view of what happened: it needs a code in the known ranges.
bool known_code(error_type e)
{
    const int c = int(e);
    return c == 0 || (c <= -10 && c >= -13) || (c <= -101 && c >= -200);
}

// Laws answer -1 for a parameter vector of the wrong size: their own code.
void require_known(error_type e, const char* step, bool law = false)
{
    if (known_code(e) || (law && int(e) == -1)) return;
    std::fprintf(stderr, "%s gave the unknown code %d\n", step, int(e));
    std::abort();
}

void record_loads(fuzz::byte_reader& in, fem::loads_mgr loads, unsigned nodes, unsigned model, unsigned elements)
{
    for (unsigned k = 0, n = in.below(12); k < n; ++k) {
        const unsigned node = index_below(in, nodes), func = in.flag() ? no_func : in.below(3);
        const field_tag tag = tags[in.below(4)];
        const unsigned comp = in.below(4);
        error_type e = no_error;
        switch (in.below(8)) {
        case 0: e = loads.record_nodal_load(node, tag, comp, in.real(), func); break;
        case 1: e = loads.record_nodal_prescribed_value(node, tag, comp, in.real(), func); break;
        case 2: {
            vector_fixed<double, 3> F, M;
            for (unsigned c = 0; c < 3; ++c) F[c] = in.real(), M[c] = in.real();
            e = in.flag() ? loads.record_nodal_load(node, F, M, func)
                          : loads.record_nodal_prescribed_values(node, F, M, func);
            break;
        }
        case 3: e = loads.record_DOF_load(index_below(in, 9 * nodes), in.real(), func); break;
        case 4: e = loads.record_DOF_prescribed_value(index_below(in, 9 * nodes), in.real(), func); break;
        case 5: {
            dense1D<unsigned, 8> IDs;
            dense1D<double, 8> values;
            for (unsigned i = 0, m = in.below(4); i < m; ++i) IDs.push_back(index_below(in, 9 * nodes));
            for (unsigned i = 0, m = in.below(4); i < m; ++i) values.push_back(in.real());
            e = in.flag() ? loads.record_DOF_loads(IDs, values, func)
                          : loads.record_DOF_prescribed_values(IDs, values, func);
            break;
        }
        default: {
            fem::elementary_load l;
            l.kind = in.below(5);
            l.type = in.below(3);
            for (unsigned i = 0, m = in.below(4); i < m; ++i) l.values.push_back(in.real());
            const unsigned target = in.below(8) ? model : index_below(in, 4);
            e = loads.record_NM_load(target, index_below(in, elements), l, func);
            break;
        }
        }
        require_known(e, "recording");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::byte_reader in(data, size);
    fem::context ctx;
    ctx.set_max_threads(1 + in.below(2));
    switch (in.below(4)) {
    case 1: {
        const char* dir = std::getenv("TMPDIR");
        const std::string root = std::string(dir && *dir ? dir : "/tmp") + "/";
        require_known(ctx.set_max_incore_size(1 + in.below(3), root.c_str(), ""), "memory limit");
        break;
    }
    case 2: ctx.set_max_total_size(in.below(4)); break;
    default: break;
    }

    // Nodes on a small grid, moved a little, the odd coordinate broken.
    const unsigned nodes = 1 + in.below(40);
    dense2D<double> pos;
    if (!pos.resize(in.below(8) ? 3 : in.below(4), nodes)) return 0;
    for (unsigned j = 0; j < nodes; ++j)
        for (unsigned d = 0; d < pos.rows(); ++d) {
            const unsigned grid[3] = {j % 3, (j / 3) % 3, j / 9};
            const std::uint8_t b = in.u8();
            pos(d, j) = b < 224 ? grid[d] + (int(b % 32) - 16) / 64.0 : in.real();
        }

    // One mesh of one type; node numbers mostly in range.
    const element_type type = in.below(8) ? volumes[in.below(11)] : element_type(in.below(nbr_element_types + 2));
    const unsigned per_element = type < nbr_element_types ? nbr_nodes(type) : 1;
    const unsigned elements = in.below(4);
    dense2D<unsigned> mesh;
    if (!mesh.resize(per_element, elements)) return 0;
    for (unsigned e = 0; e < elements; ++e)
        for (unsigned a = 0; a < per_element; ++a) mesh(a, e) = index_below(in, nodes);

    // The physics and its law, any values.
    const bool thermal = in.below(4) == 0;
    unsigned model_ID = 0xFFFFFFFFu;
    if (thermal) {
        fem::law_scalar law;
        fem::model_heat_conduction_3d physics;
        fem::numerical_model_heat_conduction model(ctx);
        require_known(law.init(in.real()), "law init", true);
        require_known(physics.init(law), "physics init");
        require_known(model.init(ctx, physics, mesh, type), "model init");
        model_ID = model.get_ID();
    } else {
        fem::law_solid_StVenant law;
        dense1D<double, 8> d;
        for (unsigned i = 0, m = in.below(5); i < m; ++i)
            d.push_back(i == 0 && in.flag() ? 1000.0 : i == 1 && in.flag() ? 0.3 : in.real());
        fem::model_solid_lin physics;
        fem::numerical_model_stiff_lin model(ctx);
        require_known(law.init(d), "law init", true);
        require_known(physics.init(law), "physics init");
        require_known(model.init(ctx, physics, mesh, type), "model init");
        model_ID = model.get_ID();
    }
    if (in.below(16) == 0) model_ID = index_below(in, 2);

    // Everything free, then supports on a few fields; the table may be short or long.
    fem::DOFs_mgr DOFs(in.below(4) ? nodes : in.below(nodes + 4), true);
    for (unsigned k = 0, n = in.below(8); k < n; ++k) {
        const error_type e = in.flag() ? DOFs.set(index_below(in, nodes), tags[in.below(4)], false)
                                       : DOFs.set(index_below(in, nodes), tags[in.below(4)], in.below(4), false);
        require_known(e, "DOF table");
    }

    const unsigned cases = in.below(3);
    fem::problem_data problem(ctx, pos, DOFs, model_ID, cases);
    for (unsigned c = 0; c < cases; ++c) record_loads(in, problem.get_loads_mgr(c), nodes, model_ID, elements);

    const bool RHS_only = in.below(8) == 0, force = in.flag();
    const unsigned iterations = in.below(20);
    auto run_with = [&](auto solver) {
        solver.settings.RHS_only = RHS_only;
        solver.settings.force_pivots = force;
        solver.settings.CG_max_iters = iterations;
        fem::solver_static_linear::data_type run(problem); // the thermal solver's record too
        solver.run(run);
        return run.error_code;
    };
    const error_type result =
        thermal ? run_with(fem::solver_thermal_static_linear()) : run_with(fem::solver_static_linear());
    require_known(result, "run");
    // Models and the context hold each other: the registry breaks the ring.
    ctx.the_NM_mgr().clear();
    return 0;
}
