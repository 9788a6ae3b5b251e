// Bindings of what describes a model: the context and its managers, DOFs,
// problems, loads, laws, physics and numerical models, discrete elements, tables.
#include <pybind11/stl.h>

#include "common.h"

namespace kelt::py {

using namespace fem;
using pyb::arg;

namespace {

// A law whose values are one vector, as most are.
template <class L>
void law_class(pyb::module_& m, const char* name, const char* doc)
{
    auto c = pyb::class_<L, law_base>(m, name, doc).def(pyb::init<>());
    if constexpr (requires(L l, const dense1D<double, 8>& d) { l.init(d); })
        c.def("init", checked<L>(pyb::overload_cast<const dense1D<double, 8>&>(&L::init)), arg("data"));
}

// A physics model: one `init` on a law.
template <class P>
void physics_class(pyb::module_& m, const char* name)
{
    pyb::class_<P, physics_model_base>(m, name).def(pyb::init<>()).def("init", checked(&P::init));
}

template <class N, class Base>
pyb::class_<N, Base> model_class(pyb::module_& m, const char* name, const char* doc)
{
    pyb::class_<N, Base> c(m, name, doc);
    c.def(pyb::init<context&>(), arg("ctx"));
    return c;
}

// A discrete element: made on a context; its `init` overloads are bound by the caller.
template <class D, class Base = discrete_element>
pyb::class_<D, Base> discrete_class(pyb::module_& m, const char* name)
{
    pyb::class_<D, Base> c(m, name);
    c.def(pyb::init<context&>(), arg("ctx"));
    return c;
}

template <class D>
void diagonal_class(pyb::module_& m, const char* name)
{
    discrete_class<D>(m, name).def("init", checked<D>(&D::init), arg("values"), arg("DOFs"));
}

template <class D>
void symmetric_class(pyb::module_& m, const char* name)
{
    // The packed lower triangle, by rows (order 1) or by columns.
    discrete_class<D>(m, name).def(
        "init",
        [](D& d, const dense1D<double, 8>& packed, const dense1D<unsigned, 8>& DOFs, int order) {
            const unsigned n = DOFs.size();
            if (packed.size() != n * (n + 1) / 2) raise(invalid_data_error, "DATA ERROR", "packed size is not n (n + 1) / 2");
            symmetric_full<double> K(n);
            std::copy(packed.begin(), packed.end(), K.data());
            check(d.init(K, DOFs, order));
        },
        arg("packed"), arg("DOFs"), arg("order") = 1);
}

} // namespace

void bind_model(pyb::module_& m)
{
    m.def("version", &fem::version, "The library's version text.");

    pyb::enum_<field_tag>(m, "field_tag", pyb::arithmetic())
        .value("displacement_tag", displacement_tag)
        .value("rotation_tag", rotation_tag)
        .value("temperature_tag", temperature_tag)
        .export_values();
    {
        pyb::enum_<element_type> e(m, "element_type", pyb::arithmetic());
        const char* names[] = {"none",    "node",      "edge",      "edge2",     "edge3",     "face",
                               "faceT3",  "faceQ4",    "faceT6",    "faceQ8",    "faceQ9",    "solid",
                               "tetra4",  "tetra10",   "pyramid5",  "pyramid13", "pyramid14", "wedge6",
                               "wedge15", "wedge18",   "hexa8",     "hexa20",    "hexa27"};
        static std::vector<std::string> full;
        full.reserve(nbr_element_types);
        for (unsigned t = 0; t < nbr_element_types; ++t) {
            full.push_back(std::string("element_") + names[t]);
            e.value(full.back().c_str(), element_type(t));
        }
        e.export_values();
    }
    {
        pyb::enum_<error_type> e(m, "error_type", pyb::arithmetic());
#define KELT_CODE(x) e.value(#x, x)
        KELT_CODE(no_error), KELT_CODE(interrupted_warning), KELT_CODE(pivot_warning),
            KELT_CODE(convergence_warning), KELT_CODE(missing_modes_warning), KELT_CODE(invalid_data_error),
            KELT_CODE(element_index_error), KELT_CODE(element_type_error), KELT_CODE(connectivity_size_error),
            KELT_CODE(element_geometry_error), KELT_CODE(pivot_error), KELT_CODE(inf_nan_error),
            KELT_CODE(non_convergence_error), KELT_CODE(file_open_error), KELT_CODE(temp_file_error),
            KELT_CODE(insufficient_memory_error), KELT_CODE(memory_error), KELT_CODE(internal_error);
#undef KELT_CODE
        e.export_values();
    }

    auto context_class =
        handle_class<context>(m, "context", "Created first: the managers and settings every model and run share.");
    context_class.def(pyb::init<>())
        .def_property("raw_penalty_factor", &context::get_raw_penalty_factor, &context::set_raw_penalty_factor)
        .def_property("min_penalty_factor", &context::get_min_penalty_factor, &context::set_min_penalty_factor)
        .def_property("shell_drilling_factor", &context::get_shell_drilling_factor,
                      &context::set_shell_drilling_factor)
        .def("get_max_threads", &context::get_max_threads)
        .def("set_max_threads", &context::set_max_threads, arg("n"),
             "Threads of every parallel region: at most what OpenMP offers, at least 1.")
        .def("get_LLC_size", &context::get_LLC_size)
        .def("set_LLC_size", &context::set_LLC_size, arg("bytes"))
        .def("set_max_total_size", &context::set_max_total_size, arg("mb"),
             "Limit in megabytes on the memory a run may estimate.")
        .def(
            "set_max_incore_size",
            [](context& c, unsigned mb, const char* path, const char* name) {
                check(c.set_max_incore_size(mb, path, name));
            },
            arg("mb"), arg("path") = nullptr, arg("name") = nullptr,
            "In-core budget in megabytes for the large arrays; swap files go to path + name.");

    handle_class<numerical_models_mgr>(m, "numerical_models_mgr", "The context's registry of numerical models.")
        .def("nbr_models", &numerical_models_mgr::nbr_models)
        .def("clear", &numerical_models_mgr::clear)
        .def("get_ID", &numerical_models_mgr::get_ID);

    handle_class<bases_mgr>(m, "bases_mgr", "Local bases, by index.")
        .def(pyb::init<>())
        .def("create_cartesian", &bases_mgr::create_cartesian, arg("frame"))
        .def("create_cylindrical", &bases_mgr::create_cylindrical, arg("origin"), arg("axis"))
        .def("create_spherical", &bases_mgr::create_spherical, arg("origin"), arg("axis"))
        .def("size", &bases_mgr::size)
        .def("clear", &bases_mgr::clear);

    handle_class<evolution_funcs_mgr>(m, "evolution_funcs_mgr",
                                      "Time functions by index; an index past them stands for the constant 1.")
        .def("size", &evolution_funcs_mgr::size)
        .def("clear", &evolution_funcs_mgr::clear)
        .def("value", &evolution_funcs_mgr::value, arg("index"), arg("t"))
        .def("create_cste", &evolution_funcs_mgr::create_cste, arg("c"))
        .def("create_linear", &evolution_funcs_mgr::create_linear, arg("a"))
        .def("create_sinus", &evolution_funcs_mgr::create_sinus, arg("omega"), arg("phi"))
        .def("create_triangle", &evolution_funcs_mgr::create_triangle, arg("center"), arg("width"))
        .def("create_trapeze", &evolution_funcs_mgr::create_trapeze, arg("t0"), arg("t1"), arg("v0"), arg("v1"))
        .def("create_discret", &evolution_funcs_mgr::create_discret, arg("times"), arg("values"))
        .def("create_sum", &evolution_funcs_mgr::create_sum, arg("IDs"), arg("coefficients"));
    context_class.def("the_NM_mgr", &context::the_NM_mgr)
        .def("the_bases_mgr", &context::the_bases_mgr)
        .def("the_evol_funcs_mgr", &context::the_evol_funcs_mgr);

    handle_class<DOFs_mgr>(m, "DOFs_mgr", "Which DOF of which node is free (True) or blocked (False).")
        .def(pyb::init<>())
        .def(pyb::init<unsigned, bool>(), arg("nodes"), arg("state"))
        .def_static(
            "ID",
            [](pyb::object node, field_tag f, pyb::object comp) {
                auto id = pyb::vectorize([f](unsigned n, unsigned c) { return DOFs_mgr::ID(n, f, c); });
                return id(pyb::array_t<unsigned, pyb::array::forcecast>(node),
                          pyb::array_t<unsigned, pyb::array::forcecast>(comp));
            },
            arg("node"), arg("f"), arg("comp"),
            "node * stride + place, over arrays of nodes and components (broadcast); 0xFFFFFFFF for no DOF.")
        .def_static("stride", &DOFs_mgr::stride)
        .def("size", &DOFs_mgr::size)
        .def("nbr_nodes", &DOFs_mgr::nbr_nodes)
        .def("nbr_DOFs", &DOFs_mgr::nbr_DOFs, arg("state"))
        .def("clear", &DOFs_mgr::clear)
        .def("resize", &DOFs_mgr::resize, arg("nodes"), arg("state"))
        .def("set", checked(pyb::overload_cast<unsigned, bool>(&DOFs_mgr::set)), arg("ID"), arg("state"))
        .def("set", checked(pyb::overload_cast<unsigned, field_tag, bool>(&DOFs_mgr::set)), arg("node"), arg("f"),
             arg("state"))
        .def("set", checked(pyb::overload_cast<unsigned, field_tag, unsigned, bool>(&DOFs_mgr::set)), arg("node"),
             arg("f"), arg("comp"), arg("state"))
        .def(
            "set_nodes",
            [](DOFs_mgr& d, const dense1D<unsigned, 8>& nodes, field_tag f, bool state) {
                for (unsigned n : nodes) check(d.set(n, f, state));
            },
            arg("nodes"), arg("f"), arg("state"), "set(node, f, state) for every node of an array.")
        .def(
            "get",
            [](const DOFs_mgr& d, unsigned ID) {
                bool s = false;
                check(d.get(ID, s));
                return s;
            },
            arg("ID"))
        .def(
            "copy_IDs",
            [](const DOFs_mgr& d, bool state) {
                dense1D<unsigned, 8> ids;
                d.copy_IDs(ids, state);
                return ids;
            },
            arg("state"));

    pyb::class_<FEM_matrix>(m, "FEM_matrix", "Rows are DOF identifiers, columns load cases, steps or modes.")
        .def(pyb::init<>())
        .def(pyb::init<const dense1D<unsigned, 8>&, unsigned>(), arg("IDs"), arg("cols"))
        .def("rows", &FEM_matrix::rows)
        .def("cols", &FEM_matrix::cols)
        .def("get_IDs", &FEM_matrix::get_IDs)
        .def("row_pos", &FEM_matrix::row_pos, arg("ID"))
        .def("copy", &FEM_matrix::copy)
        .def(
            "getID_val",
            [](const FEM_matrix& M, unsigned ID, unsigned col) {
                double v = 0.0;
                check(M.getID_val(ID, col, v));
                return v;
            },
            arg("ID"), arg("col"))
        .def("setID_val", checked<FEM_matrix>(&FEM_matrix::setID_val), arg("ID"), arg("col"), arg("value"))
        .def(
            "get_val",
            [](const FEM_matrix& M, unsigned row, unsigned col) {
                double v = 0.0;
                check(M.get_val(row, col, v));
                return v;
            },
            arg("row"), arg("col"))
        .def("set_val", checked<FEM_matrix>(&FEM_matrix::set_val), arg("row"), arg("col"), arg("value"))
        .def("col", &FEM_matrix::col, arg("col"), "The column in place, as an array on the matrix.")
        .def_property_readonly("values", [](const FEM_matrix& M) { return view(M); },
                               "rows x cols array on the matrix's own buffer (no copy).")
        .def("__array__", [](const FEM_matrix& M, pyb::object) { return view(M); }, arg("dtype") = pyb::none())
        .def(
            "get_vector",
            [](const FEM_matrix& M, unsigned node, field_tag f, unsigned col) {
                vector_fixed<double, 3> v;
                check(M.get_vector(node, f, col, v));
                return v;
            },
            arg("node"), arg("f"), arg("col"));

    pyb::class_<FEM_states, FEM_matrix>(m, "FEM_states", "A matrix of states with their internal states.")
        .def(pyb::init<>())
        .def(pyb::init<const FEM_matrix&>())
        .def("size", &FEM_states::size)
        .def("get_state", &FEM_states::get_state, arg("i"));

    handle_class<loads_mgr>(m, "loads_mgr", "One load case: forces, imposed values, element loads.")
        .def(pyb::init<context&>(), arg("ctx"))
        .def("clear", &loads_mgr::clear)
        .def("record_DOF_load", checked<loads_mgr>(&loads_mgr::record_DOF_load), arg("ID"), arg("value"),
             arg("func"))
        .def("record_DOF_loads",
             checked<loads_mgr>(pyb::overload_cast<const dense1D<unsigned, 8>&, const dense1D<double, 8>&, unsigned>(
                 &loads_mgr::record_DOF_loads)),
             arg("IDs"), arg("values"), arg("func"))
        .def("record_DOF_prescribed_value", checked<loads_mgr>(&loads_mgr::record_DOF_prescribed_value), arg("ID"),
             arg("value"), arg("func"))
        .def("record_DOF_prescribed_values",
             checked<loads_mgr>(pyb::overload_cast<const dense1D<unsigned, 8>&, const dense1D<double, 8>&, unsigned>(
                 &loads_mgr::record_DOF_prescribed_values)),
             arg("IDs"), arg("values"), arg("func"))
        .def("record_nodal_load",
             checked<loads_mgr>(pyb::overload_cast<unsigned, field_tag, unsigned, double, unsigned>(
                 &loads_mgr::record_nodal_load)),
             arg("node"), arg("f"), arg("comp"), arg("value"), arg("func"))
        .def("record_NM_load", checked(&loads_mgr::record_NM_load), arg("NM_ID"), arg("element"), arg("load"),
             arg("func"));

    pyb::class_<elementary_load>(m, "elementary_load", "A load on elements: kind, type, values.")
        .def(pyb::init<>())
        .def_readwrite("kind", &elementary_load::kind)
        .def_readwrite("type", &elementary_load::type)
        .def_readwrite("func", &elementary_load::func)
        .def_readwrite("values", &elementary_load::values);

    handle_class<stress_mgr>(m, "stress_mgr", "Thermal loads of one load case.")
        .def(pyb::init<context&>(), arg("ctx"))
        .def("clear", &stress_mgr::clear)
        .def("set_thermal_load",
             checked(pyb::overload_cast<unsigned, double, unsigned>(&stress_mgr::set_thermal_load)), arg("model"),
             arg("value"), arg("evol"))
        .def("set_thermal_load_element",
             checked(pyb::overload_cast<unsigned, unsigned, double, unsigned>(&stress_mgr::set_thermal_load_element)),
             arg("model"), arg("element"), arg("value"), arg("evol"));

    handle_class<problem_data>(m, "problem_data", "Positions, DOF table, model and load cases given to a solver.")
        .def(pyb::init<context&>(), arg("ctx"))
        .def(pyb::init<context&, dense2D<double>&, DOFs_mgr&, unsigned, unsigned>(), arg("ctx"), arg("pos"),
             arg("DOFs"), arg("NM_ID"), arg("nbr_load_cases"),
             "pos: a 3 x nodes array (any order, copied once; pass pts.T for nodes x 3 points).")
        .def(pyb::init<const problem_data&, const dense2D<double>&>(), arg("p"), arg("load_factors"))
        .def("NM_ID", &problem_data::NM_ID)
        .def("has_numerical_model", &problem_data::has_numerical_model)
        .def("get_pos_matrix", &problem_data::get_pos_matrix, "The positions, as an array on the library's copy.")
        .def("get_DOFs_mgr", &problem_data::get_DOFs_mgr)
        .def("nbr_load_cases", &problem_data::nbr_load_cases)
        .def("get_loads_mgr", &problem_data::get_loads_mgr, arg("i"))
        .def("set_loads_mgr", &problem_data::set_loads_mgr, arg("i"), arg("loads"))
        .def("get_stress_mgr", &problem_data::get_stress_mgr, arg("i"))
        .def("set_stress_mgr", &problem_data::set_stress_mgr, arg("i"), arg("stresses"))
        .def("get_penalty_factor", &problem_data::get_penalty_factor, arg("tag"));

    // Laws.
    handle_class<law_base>(m, "law_base", "A constitutive law: its values, by element when set so.")
        .def("get_data", &law_base::get_data)
        .def("set_element_by_element", checked(&law_base::set_element_by_element), arg("model"), arg("element"),
             arg("data"))
        .def("get_stiffness_range", &law_base::get_stiffness_range, arg("field"));
    law_class<law_solid_StVenant>(m, "law_solid_StVenant", "Isotropic elastic solid: E, nu, thermal expansion.");
    law_class<law_solid_orthotropic>(m, "law_solid_orthotropic", "Orthotropic elastic solid.");
    pyb::class_<law_solid_skyline, law_solid_orthotropic>(m, "law_solid_skyline").def(pyb::init<>());
    pyb::class_<law_solid_ep_iso_hardening, law_base>(m, "law_solid_ep_iso_hardening");
    law_class<law_solid_ep_perfect>(m, "law_solid_ep_perfect", "Perfectly plastic solid (von Mises).");
    pyb::class_<law_solid_ep_power, law_solid_ep_iso_hardening>(m, "law_solid_ep_power")
        .def(pyb::init<>())
        .def("init", checked(&law_solid_ep_power::init), arg("data"));
    pyb::class_<law_solid_ep_RambergOsgood, law_solid_ep_power>(m, "law_solid_ep_RambergOsgood").def(pyb::init<>());
    pyb::class_<law_solid_ep_piecewise_linear, law_solid_ep_iso_hardening>(m, "law_solid_ep_piecewise_linear")
        .def(pyb::init<>())
        .def("init",
             checked(pyb::overload_cast<const dense1D<double, 8>&, const dense2D<double>&>(
                 &law_solid_ep_piecewise_linear::init)),
             arg("base"), arg("table"));
    pyb::class_<law_scalar, law_base>(m, "law_scalar", "One value: a conductivity, a density, a mass per length.")
        .def(pyb::init<>())
        .def("init", checked(pyb::overload_cast<double>(&law_scalar::init)), arg("value"))
        .def("init", checked(pyb::overload_cast<const dense1D<double, 8>&>(&law_scalar::init)), arg("data"));
    pyb::class_<law_scalar_nl, law_scalar>(m, "law_scalar_nl")
        .def(pyb::init<>())
        .def("init", checked(&law_scalar_nl::init), arg("table"), arg("shift"));
    pyb::class_<law_spring, law_base>(m, "law_spring", "A spring's or a rod's law.")
        .def(pyb::init<>())
        .def("init", checked(&law_spring::init), arg("data"));
    pyb::class_<law_spring_nl, law_spring>(m, "law_spring_nl")
        .def(pyb::init<>())
        .def("init", checked(&law_spring_nl::init), arg("table"), arg("p1"), arg("p2"), arg("p3"), arg("p4"));
    pyb::class_<law_spring_ep_iso_hardening, law_spring>(m, "law_spring_ep_iso_hardening")
        .def("set_limit_states", &law_spring_ep_iso_hardening::set_limit_states);
    pyb::class_<law_spring_ep_perfect, law_spring_ep_iso_hardening>(m, "law_spring_ep_perfect").def(pyb::init<>());
    pyb::class_<law_scalar_ep_iso_hardening, law_scalar>(m, "law_scalar_ep_iso_hardening")
        .def("set_limit_states", &law_scalar_ep_iso_hardening::set_limit_states);
    pyb::class_<law_scalar_ep_perfect, law_scalar_ep_iso_hardening>(m, "law_scalar_ep_perfect").def(pyb::init<>());
    law_class<law_beam_StVenant>(m, "law_beam_StVenant", "Elastic beam section.");
    law_class<law_beam_mass>(m, "law_beam_mass", "Beam section masses.");
    law_class<law_shell_StVenant>(m, "law_shell_StVenant", "Isotropic elastic shell.");
    law_class<law_shell_orthotropic>(m, "law_shell_orthotropic", "Orthotropic elastic shell.");
    law_class<law_shell_mass>(m, "law_shell_mass", "Shell masses.");
    law_class<law_membrane_StVenant>(m, "law_membrane_StVenant", "Isotropic elastic membrane.");
    law_class<law_membrane_orthotropic>(m, "law_membrane_orthotropic", "Orthotropic elastic membrane.");

    // Physics models.
    handle_class<physics_model_base>(m, "physics_model_base", "The physics of a mesh: its law and formulation.");
#define KELT_PHYSICS(name) physics_class<name>(m, #name)
    KELT_PHYSICS(model_solid_lin), KELT_PHYSICS(model_solid_gnl), KELT_PHYSICS(model_solid_projected_lin),
        KELT_PHYSICS(model_solid_mass), KELT_PHYSICS(model_heat_conduction_3d), KELT_PHYSICS(model_rod_lin),
        KELT_PHYSICS(model_rod_gnl), KELT_PHYSICS(model_line_mass), KELT_PHYSICS(model_beam_lin),
        KELT_PHYSICS(model_beam_gnl), KELT_PHYSICS(model_membrane_lin), KELT_PHYSICS(model_membrane_gnl),
        KELT_PHYSICS(model_plate_lin), KELT_PHYSICS(model_plate_gnl), KELT_PHYSICS(model_shell_lin),
        KELT_PHYSICS(model_surf_mass), KELT_PHYSICS(model_plane_strain_lin), KELT_PHYSICS(model_plane_strain_gnl),
        KELT_PHYSICS(model_axi3d_lin), KELT_PHYSICS(model_axi3d_gnl), KELT_PHYSICS(model_axi3d_mass),
        KELT_PHYSICS(model_axi_torsion_lin), KELT_PHYSICS(model_beam_mass),
        KELT_PHYSICS(model_distributed_spring_1d), KELT_PHYSICS(model_distributed_spring_2d),
        KELT_PHYSICS(model_heat_conduction_1d), KELT_PHYSICS(model_heat_conduction_2d),
        KELT_PHYSICS(model_shell_gnl), KELT_PHYSICS(model_shell_mass);
#undef KELT_PHYSICS

    // Numerical models.
    handle_class<numerical_model_base>(m, "numerical_model_base", "A model registered in its context.")
        .def("get_ID", &numerical_model_base::get_ID)
        .def("set_evolution_func_ID", &numerical_model_base::set_evolution_func_ID, arg("func"));
    pyb::class_<numerical_model_mesh, numerical_model_base>(m, "numerical_model_mesh")
        .def("get_FE_type", &numerical_model_mesh::get_FE_type)
        .def("get_physics_model", &numerical_model_mesh::get_physics_model)
        .def("get_mesh", [](const numerical_model_mesh& n) {
            dense2D<unsigned> mesh;
            element_type t = element_none;
            n.get_mesh(mesh, t);
            return pyb::make_tuple(pyb::cast(mesh), t);
        });
    auto physics_mesh = [&m]<mesh_family F>(const char* name) {
        using N = numerical_model_physics_mesh<F>;
        pyb::class_<N, numerical_model_mesh>(m, name).def(
            "init", checked(&N::init), arg("ctx"), arg("physics"), arg("mesh"), arg("type"),
            "mesh: nodes-per-element x elements array of node numbers (any integer dtype, copied once).");
    };
    physics_mesh.operator()<mesh_family::stiffness>("numerical_model_physics_mesh_stiffness");
    physics_mesh.operator()<mesh_family::mass>("numerical_model_physics_mesh_mass");
    physics_mesh.operator()<mesh_family::conduction>("numerical_model_physics_mesh_conduction");
    model_class<numerical_model_stiff_lin, numerical_model_physics_mesh<mesh_family::stiffness>>(
        m, "numerical_model_stiff_lin", "A mesh of stiffness elements, linear.");
    model_class<numerical_model_stiff_gnl, numerical_model_stiff_lin>(m, "numerical_model_stiff_gnl",
                                                                      "A mesh of stiffness elements, for Newton.");
    model_class<numerical_model_mass, numerical_model_physics_mesh<mesh_family::mass>>(m, "numerical_model_mass",
                                                                                       "A mesh of mass elements.");
    model_class<numerical_model_heat_conduction, numerical_model_physics_mesh<mesh_family::conduction>>(
        m, "numerical_model_heat_conduction", "A mesh of conduction elements.");
    model_class<numerical_model_load_only, numerical_model_mesh>(m, "numerical_model_load_only",
                                                                 "A mesh that only carries loads.")
        .def("init", checked(&numerical_model_load_only::init), arg("ctx"), arg("mesh"), arg("type"));
    model_class<numerical_model_composite, numerical_model_base>(m, "numerical_model_composite",
                                                                 "Several registered models solved as one.")
        .def("insert", checked(pyb::overload_cast<unsigned>(&numerical_model_composite::insert)), arg("ID"))
        .def("insert", checked(pyb::overload_cast<const dense1D<unsigned, 8>&>(&numerical_model_composite::insert)),
             arg("IDs"));

    // Discrete elements and links.
    pyb::class_<discrete_element, numerical_model_base>(m, "discrete_element");
    discrete_class<spring>(m, "spring").def("init", checked(&spring::init), arg("node1"), arg("node2"),
                                            arg("field"), arg("law"));
    discrete_class<spring_directional>(m, "spring_directional")
        .def("init",
             checked(pyb::overload_cast<unsigned, unsigned, field_tag, const vector_fixed<double, 3>&, double, double,
                                        const law_base&>(&spring_directional::init)),
             arg("node1"), arg("node2"), arg("field"), arg("dir"), arg("c1"), arg("c2"), arg("law"));
    discrete_class<dash_pot>(m, "dash_pot").def("init", checked(&dash_pot::init), arg("node1"), arg("node2"),
                                                arg("field"), arg("law"));
    diagonal_class<stiffness_diag>(m, "stiffness_diag");
    diagonal_class<mass_diag>(m, "mass_diag");
    diagonal_class<damping_diag>(m, "damping_diag");
    diagonal_class<thermal_diag>(m, "thermal_diag");
    symmetric_class<stiffness_sym>(m, "stiffness_sym");
    symmetric_class<mass_sym>(m, "mass_sym");
    symmetric_class<damping_sym>(m, "damping_sym");
    discrete_class<mass_punctual>(m, "mass_punctual")
        .def("init", checked(pyb::overload_cast<unsigned, double>(&mass_punctual::init)), arg("node"), arg("m"));
    discrete_class<damping_Rayleigh>(m, "damping_Rayleigh")
        .def("init", checked(&damping_Rayleigh::init), arg("alpha"), arg("model_ID_K"), arg("beta"),
             arg("model_ID_M"));
    discrete_class<link>(m, "link").def("init", checked(&link::init), arg("node1"), arg("node2"), arg("field"));
    discrete_class<link_gnl>(m, "link_gnl")
        .def("init", checked(&link_gnl::init), arg("node1"), arg("node2"), arg("field"), arg("gap"));
    discrete_class<link_directional>(m, "link_directional")
        .def("init",
             checked(pyb::overload_cast<const dense1D<unsigned, 8>&, const dense1D<double, 8>&, double>(
                 &link_directional::init)),
             arg("DOFs"), arg("coefs"), arg("c0"));
    discrete_class<rigid_body_lin>(m, "rigid_body_lin")
        .def("init", checked(pyb::overload_cast<const dense1D<unsigned, 8>&, bool>(&rigid_body_lin::init)),
             arg("nodes"), arg("with_rotations"));
    discrete_class<rigid_diaphragm_lin>(m, "rigid_diaphragm_lin")
        .def("init", checked(&rigid_diaphragm_lin::init), arg("nodes"), arg("normal_axis"));
    discrete_class<rigid_body_gnl, rigid_body_lin>(m, "rigid_body_gnl");
    discrete_class<rigid_diaphragm_gnl, rigid_diaphragm_lin>(m, "rigid_diaphragm_gnl");

    // Tables.
    pyb::class_<oneD_table>(m, "oneD_table", "y(x), linear between points, constant outside.")
        .def(pyb::init<>())
        .def(pyb::init<double>(), arg("c"))
        .def(pyb::init<const dense1D<double, 8>&, const dense1D<double, 8>&>(), arg("xs"), arg("ys"))
        .def("__call__", [](const oneD_table& t, double x) { return t(x); }, arg("x"))
        .def("__call__", [](const oneD_table& t, const dense1D<double, 8>& x) { return t(x); }, arg("x"));
    pyb::class_<twoD_table>(m, "twoD_table", "v(x, y) on a grid, bilinear.")
        .def(pyb::init<>())
        .def(pyb::init<const dense1D<double, 8>&, const dense1D<double, 8>&, const dense2D<double>&>(), arg("xs"),
             arg("ys"), arg("values"))
        .def("__call__", [](const twoD_table& t, double x, double y) { return t(x, y); }, arg("x"), arg("y"))
        .def(
            "__call__",
            [](const twoD_table& t, const dense1D<double, 8>& x, const dense1D<double, 8>& y) { return t(x, y); },
            arg("xs"), arg("ys"));

    // Stress helpers: one column per point, the six components in the library's order.
    m.def(
        "compute_Von_Mises_stress",
        [](const dense2D<double>& s) {
            dense1D<double, 8> out;
            check(compute_Von_Mises_stress(s, out));
            return out;
        },
        arg("s"), "Von Mises stress of each column of six components.");
    m.def(
        "compute_stress_invariants",
        [](const dense2D<double>& s) {
            dense2D<double> out;
            check(compute_stress_invariants(s, out));
            return out;
        },
        arg("s"), "I1, I2, I3, p, q of each column of six components.");
}

} // namespace kelt::py
