// Results for ParaView: VTK XML unstructured grids (.vtu, binary appended data)
// and collections (.pvd) of load cases, modes or time steps.
#pragma once

#include <string>
#include <vector>

#include "kelt/core/types.h"
#include "kelt/fem/FEM_matrix.h"
#include "kelt/io/file_status.h"
#include "kelt/math/dense2D.h"

namespace kelt::io {

// One .vtu file: the nodes, cells of the library's types and fields at the nodes.
// The writer keeps references to what it is given until `write`.
class vtu_writer {
public:
    explicit vtu_writer(const dense2D<double>& positions) : positions_(positions) {}

    // element_type_error for a type with no VTK cell; element_index_error for a
    // node index past the positions; connectivity_size_error for a connectivity
    // whose rows are not the type's node count.
    [[nodiscard]] error_type add_cells(element_type type, const dense2D<unsigned>& cells);
    // `components` values a node, node after node (e.g. from node_vectors);
    // connectivity_size_error when the size is not components x nodes.
    [[nodiscard]] error_type add_point_field(const std::string& name, unsigned components,
                                             std::vector<double> values);

    // Written to `path` through a temporary file renamed at the end, so that a
    // failed write leaves no partial file and an older file as it was.
    file_status write(const std::string& path) const;

private:
    struct cell_block {
        element_type type;
        dense2D<unsigned> cells;
    };
    struct field {
        std::string name;
        unsigned components;
        std::vector<double> values;
    };
    dense2D<double> positions_;
    std::vector<cell_block> blocks_;
    std::vector<field> fields_;
};

// Field f of column `col` of a result matrix whose rows are DOF identifiers, at
// nodes 0 to nbr_nodes - 1: three values a node (displacements, rotations), or the
// one of `component` (temperatures); 0 where a DOF has no row.
std::vector<double> node_vectors(const fem::FEM_matrix& m, unsigned nbr_nodes, field_tag f, unsigned col);
std::vector<double> node_values(const fem::FEM_matrix& m, unsigned nbr_nodes, field_tag f, unsigned component,
                                unsigned col);
// Columns [first, first + components) of a matrix whose rows are node numbers
// (nodal stresses, Von Mises values); 0 for a node without a row.
std::vector<double> node_rows(const fem::FEM_matrix& m, unsigned nbr_nodes, unsigned first, unsigned components);

// A collection: one data set a step, with its time (a load case's number, a mode's
// frequency, a time step's time) and its file, as the .pvd refers to it.
struct pvd_entry {
    double time = 0.0;
    std::string file;
};
file_status write_pvd(const std::string& path, const std::vector<pvd_entry>& entries);

} // namespace kelt::io
