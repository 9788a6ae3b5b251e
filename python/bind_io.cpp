// Bindings of the file layer: Gmsh meshes and keyword decks in, VTK files out.
// A failed read or write raises kelt.Error with the file and line as its title.
#include <pybind11/stl.h>

#include "common.h"
#include "kelt/io.h"

namespace kelt::py {

using pyb::arg;

namespace {

void check_file(const io::file_status& st)
{
    if (st) return;
    raise(st.code, st.line ? st.file + ":" + std::to_string(st.line) : st.file, st.text);
}

pyb::array_t<double> to_array(const std::vector<double>& v) { return pyb::array_t<double>(v.size(), v.data()); }

} // namespace

void bind_io(pyb::module_& m)
{
    pyb::module_ io = m.def_submodule("io", "Gmsh meshes and keyword decks in, VTK files for ParaView out.");

    pyb::class_<io::mesh_block>(io, "mesh_block", "The elements of one type of one group.")
        .def_readonly("name", &io::mesh_block::name)
        .def_readonly("dim", &io::mesh_block::dim)
        .def_readonly("tag", &io::mesh_block::tag)
        .def_readonly("type", &io::mesh_block::type)
        .def_readonly("cells", &io::mesh_block::cells, "nodes-per-element x elements, on the library's buffer.")
        .def_readonly("element_tags", &io::mesh_block::element_tags);
    pyb::class_<io::node_group>(io, "node_group", "The nodes of one group.")
        .def_readonly("name", &io::node_group::name)
        .def_readonly("dim", &io::node_group::dim)
        .def_readonly("tag", &io::node_group::tag)
        .def_property_readonly("nodes", [](const io::node_group& g) {
            return pyb::array_t<unsigned>(g.nodes.size(), g.nodes.data());
        });
    pyb::class_<io::mesh_data>(io, "mesh_data", "Nodes, blocks by (group, type) and node groups of a mesh.")
        .def(pyb::init<>())
        .def_readonly("positions", &io::mesh_data::positions, "3 x nodes, on the library's buffer.")
        .def_readonly("node_tags", &io::mesh_data::node_tags)
        .def_readonly("blocks", &io::mesh_data::blocks)
        .def_readonly("groups", &io::mesh_data::groups)
        .def(
            "block",
            [](const io::mesh_data& d, const std::string& name, element_type t) -> const io::mesh_block* {
                return d.block(name, t);
            },
            arg("name"), arg("type"), pyb::return_value_policy::reference_internal, "None when there is none.")
        .def(
            "group",
            [](const io::mesh_data& d, const std::string& name) -> const io::node_group* { return d.group(name); },
            arg("name"), pyb::return_value_policy::reference_internal, "None when there is none.");
    io.def(
        "read_gmsh",
        [](const std::string& path) {
            io::mesh_data mesh;
            check_file(io::read_gmsh(path, mesh));
            return mesh;
        },
        arg("path"), "Reads a Gmsh .msh file.");

    pyb::class_<io::vtu_writer>(io, "vtu_writer", "An unstructured-grid VTK file for ParaView.")
        .def(pyb::init<const dense2D<double>&>(), arg("positions"))
        .def("add_cells", checked(&io::vtu_writer::add_cells), arg("type"), arg("cells"))
        .def(
            "add_point_field",
            [](io::vtu_writer& w, const std::string& name, unsigned components, const dense1D<double, 8>& values) {
                check(w.add_point_field(name, components, std::vector<double>(values.begin(), values.end())));
            },
            arg("name"), arg("components"), arg("values"))
        .def("write", [](const io::vtu_writer& w, const std::string& path) { check_file(w.write(path)); },
             arg("path"));
    io.def(
        "node_vectors",
        [](const fem::FEM_matrix& M, unsigned nodes, field_tag f, unsigned col) {
            return to_array(io::node_vectors(M, nodes, f, col));
        },
        arg("M"), arg("nbr_nodes"), arg("f"), arg("col"), "Three components a node, nodes in order; 0 where absent.");
    io.def(
        "node_values",
        [](const fem::FEM_matrix& M, unsigned nodes, field_tag f, unsigned component, unsigned col) {
            return to_array(io::node_values(M, nodes, f, component, col));
        },
        arg("M"), arg("nbr_nodes"), arg("f"), arg("component"), arg("col"));
}

} // namespace kelt::py
