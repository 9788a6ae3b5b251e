// Builds against the installed headers and library and solves one clamped hexa8
// cube under an end load, then writes it for ParaView; exits non-zero on a mismatch.
#include <kelt/fem.h>
#include <kelt/io.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

using namespace kelt;

int main()
{
    // Unit cube, node n at (n & 1, (n >> 1) & 1, (n >> 2) & 1); the face x = 0 clamped.
    dense2D<double> pos(3, 8);
    for (unsigned n = 0; n < 8; ++n) pos(0, n) = n & 1, pos(1, n) = (n >> 1) & 1, pos(2, n) = (n >> 2) & 1;
    dense2D<unsigned> cells(8, 1);
    const unsigned order[8] = {0, 1, 3, 2, 4, 5, 7, 6};
    for (unsigned k = 0; k < 8; ++k) cells(k, 0) = order[k];

    fem::context ctx;
    fem::DOFs_mgr dofs(8, true);
    dense1D<double, 8> steel;
    steel.push_back(210000.0), steel.push_back(0.3), steel.push_back(0.0);
    fem::law_solid_StVenant law;
    fem::model_solid_lin physics;
    fem::numerical_model_stiff_lin model(ctx);
    bool ok = law.init(steel) == no_error && physics.init(law) == no_error &&
              model.init(ctx, physics, cells, element_hexa8) == no_error;
    for (unsigned n = 0; n < 8; n += 2) ok = ok && dofs.set(n, displacement_tag, false) == no_error;
    fem::problem_data problem(ctx, pos, dofs, model.get_ID(), 1);
    for (unsigned n = 1; n < 8; n += 2)
        ok = ok && problem.get_loads_mgr(0).record_DOF_load(fem::DOFs_mgr::ID(n, displacement_tag, 2), -0.25,
                                                            0xFFFFFFFFu) == no_error;
    fem::solver_static_linear solver;
    fem::solver_static_linear::data_type data(problem);
    solver.run(data);
    const unsigned row = data.U.row_pos(fem::DOFs_mgr::ID(7, displacement_tag, 2));
    const double tip = row < data.U.rows() ? data.U.col(0)[row] : 0.0;
    ok = ok && std::strcmp(fem::version(), "4.4.0.0") == 0 && data.error_code == no_error && tip < 0.0 &&
         data.energies[0] > 0.0;
    const std::string vtu = (std::filesystem::temp_directory_path() / "kelt_package_host.vtu").string();
    io::vtu_writer out(pos);
    ok = ok && out.add_cells(element_hexa8, cells) == no_error &&
         out.add_point_field("displacement", 3, io::node_vectors(data.U, 8, displacement_tag, 0)) == no_error &&
         out.write(vtu).code == no_error && std::remove(vtu.c_str()) == 0;
    std::printf("package host: kelt %s, tip deflection %.6e, %s\n", fem::version(), tip, ok ? "found" : "MISMATCH");
    return ok ? 0 : 1;
}
