// Cost of one element matrix of the solids of projected volumetric strain against
// the plain solids, per shape: a model of many copies of one slightly sheared
// reference cell, its stiffness pass on one thread, in microseconds an element.
// Run:
//   projected_element_bench [elements]   (default 20000)
#include <cstdio>
#include <cstdlib>

#include "bench_support.h"
#include "kelt/core/context.h"
#include "kelt/core/element_records.h"
#include "kelt/elements/model_init.h"
#include "kelt/elements/shapes.h"
#include "kelt/fem/context.h"

using namespace kelt;

namespace {

class trace_assembler : public core::matrix_assembler_base {
public:
    bool is_null() const override { return false; }
    error_type add_diagonal(const dense1D<double, 8>&, const dense1D<unsigned, 8>&) override { return no_error; }
    error_type add_general(const dense2D<double>&, const dense1D<unsigned, 8>&) override { return no_error; }
    error_type add_symmetric(const symmetric_full<double>& K, const dense1D<unsigned, 8>&, bool) override
    {
        for (unsigned i = 0; i < K.order(); ++i) trace += K(i, i);
        return no_error;
    }
    double trace = 0.0;
};

// Seconds an element of the stiffness pass, -1 when the model cannot be made.
template <unsigned N>
double per_element(core::context_type* ctx, const Ptr<core::physics_base>& physics, element_type type,
                   const elfes::detail::node_table<N>& nodes, unsigned count)
{
    dense2D<double> pos(3, N);
    for (unsigned a = 0; a < N; ++a) {
        const double* r = nodes.x[a];
        pos(0, a) = r[0] + 0.1 * r[1];
        pos(1, a) = r[1] + 0.05 * r[2];
        pos(2, a) = r[2];
    }
    dense2D<unsigned> cells(N, count);
    for (unsigned e = 0; e < count; ++e)
        for (unsigned a = 0; a < N; ++a) cells(a, e) = a;
    Ptr<core::numerical_model_base> model;
    if (core::make_stiff_mesh(ctx, physics.get(), cells, type, model) != no_error) return -1.0;
    model->context = ctx;
    (void)model->record();
    trace_assembler K;
    core::element_pass_type pass;
    pass.pos = pos;
    pass.matrix = &K;
    const auto t0 = bench::clock_type::now();
    const error_type e = model->run_elements(core::kind_stiffness, pass);
    const double s = bench::seconds_since(t0) / count;
    ctx->numerical_models_mgr->clear();
    return e == no_error ? s : -1.0;
}

} // namespace

int main(int argc, char** argv)
{
    const unsigned count = argc > 1 ? unsigned(std::atoi(argv[1])) : 20000;
    fem::context handle;
    handle.set_max_threads(1);
    auto* ctx = static_cast<core::context_type*>(fem::core_of(handle));
    Ptr<core::law_solid_StVenant> law = new core::law_solid_StVenant;
    dense1D<double, 8> data;
    for (double v : {210000.0, 0.4999, 0.0}) data.push_back(v);
    if (law->init(data) != no_error) return 1;
    const Ptr<core::law_solid_stiff> l(law.get());
    const Ptr<core::physics_base> plain = new core::solid_small(l), projected = new core::solid_projected_small(l);
    std::printf("%-10s %12s %12s %8s   (microseconds an element matrix, 1 thread, %u elements)\n", "shape", "plain",
                "projected", "ratio", count);
    const auto row = [&](const char* name, element_type type, const auto& nodes) {
        const double a = per_element(ctx, plain, type, nodes, count), b = per_element(ctx, projected, type, nodes, count);
        std::printf("%-10s %12.2f %12.2f %8.2f\n", name, 1e6 * a, 1e6 * b, b / a);
    };
    using namespace elfes::detail;
    row("hexa8", element_hexa8, hexa8_nodes);
    row("hexa27", element_hexa27, hexa27_nodes);
    row("wedge6", element_wedge6, wedge6_nodes);
    row("wedge18", element_wedge18, wedge18_nodes);
    row("pyramid5", element_pyramid5, pyramid5_nodes);
    row("pyramid14", element_pyramid14, pyramid14_nodes);
    row("tetra10", element_tetra10, tetra10_nodes);
    return 0;
}
