#include "kelt/io/vtk.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "kelt/fem/DOFs_mgr.h"
#include "kelt/io/element_orders.h"
#include "kelt/io/file_sink.h"
#include "kelt/io/text_file.h"

namespace kelt::io {

namespace {

std::string xml_escaped(const std::string& s)
{
    std::string out;
    for (char c : s) switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out += c;
        }
    return out;
}

file_status write_error(const std::string& path)
{
    file_status st;
    st.code = file_open_error;
    st.file = path;
    st.text = path + ": cannot be written";
    return st;
}

} // namespace

error_type vtu_writer::add_cells(element_type type, const dense2D<unsigned>& cells)
{
    const detail::element_order* o = detail::order_of(type);
    if (!o) return element_type_error;
    if (cells.cols() && cells.rows() != o->nbr_nodes) return connectivity_size_error;
    for (unsigned e = 0; e < cells.cols(); ++e)
        for (unsigned a = 0; a < cells.rows(); ++a)
            if (cells(a, e) >= positions_.cols()) return element_index_error;
    blocks_.push_back({type, cells});
    return no_error;
}

error_type vtu_writer::add_point_field(const std::string& name, unsigned components, std::vector<double> values)
{
    if (components == 0 || values.size() != std::size_t(components) * positions_.cols()) return connectivity_size_error;
    fields_.push_back({name, components, std::move(values)});
    return no_error;
}

file_status vtu_writer::write(const std::string& path) const
{
    try {
        const std::uint64_t n = positions_.cols();
        std::uint64_t nbr_cells = 0, nbr_links = 0;
        for (const cell_block& b : blocks_) {
            const detail::element_order* o = detail::order_of(b.type);
            nbr_cells += b.cells.cols();
            nbr_links += std::uint64_t(b.cells.cols()) * o->vtk_nodes;
        }
        // Appended arrays: fields, points, connectivity, offsets, types; each an
        // 8-byte length, then its bytes.
        std::string head = "<?xml version=\"1.0\"?>\n<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" "
                           "byte_order=\"LittleEndian\" header_type=\"UInt64\">\n<UnstructuredGrid>\n"
                           "<Piece NumberOfPoints=\"" +
                           std::to_string(n) + "\" NumberOfCells=\"" + std::to_string(nbr_cells) + "\">\n<PointData>\n";
        std::uint64_t offset = 0;
        const auto array = [&](const std::string& type, const std::string& name, unsigned components,
                               std::uint64_t bytes) {
            head += "<DataArray type=\"" + type + "\"" + (name.empty() ? "" : " Name=\"" + xml_escaped(name) + "\"") +
                    " NumberOfComponents=\"" + std::to_string(components) + "\" format=\"appended\" offset=\"" +
                    std::to_string(offset) + "\"/>\n";
            offset += 8 + bytes;
        };
        for (const field& f : fields_) array("Float64", f.name, f.components, 8 * f.values.size());
        head += "</PointData>\n<Points>\n";
        array("Float64", "", 3, 24 * n);
        head += "</Points>\n<Cells>\n";
        array("Int64", "connectivity", 1, 8 * nbr_links);
        array("Int64", "offsets", 1, 8 * nbr_cells);
        array("UInt8", "types", 1, nbr_cells);
        head += "</Cells>\n</Piece>\n</UnstructuredGrid>\n<AppendedData encoding=\"raw\">\n_";

        file_sink out(path);
        if (!out.ok()) return write_error(path);
        out.put(head);
        const auto length = [&](std::uint64_t bytes) { out.put(&bytes, 8); };
        for (const field& f : fields_) {
            length(8 * f.values.size());
            out.put(f.values.data(), 8 * f.values.size());
        }
        length(24 * n);
        if (positions_.rows() == 3 && positions_.leading_dim() == 3) out.put(positions_.data(), 24 * n);
        else
            for (unsigned a = 0; a < n; ++a)
                for (unsigned k = 0; k < 3; ++k) {
                    const double x = k < positions_.rows() ? positions_(k, a) : 0.0;
                    out.put(&x, 8);
                }
        std::vector<std::int64_t> chunk;
        chunk.reserve(1u << 16);
        const auto put_chunk = [&] {
            out.put(chunk.data(), 8 * chunk.size());
            chunk.clear();
        };
        length(8 * nbr_links);
        for (const cell_block& b : blocks_) {
            const detail::element_order* o = detail::order_of(b.type);
            for (unsigned e = 0; e < b.cells.cols(); ++e) {
                for (unsigned k = 0; k < o->vtk_nodes; ++k) chunk.push_back(b.cells(o->to_vtk[k], e));
                if (chunk.size() >= (1u << 16) - 32) put_chunk();
            }
        }
        put_chunk();
        length(8 * nbr_cells);
        std::int64_t end = 0;
        for (const cell_block& b : blocks_) {
            const detail::element_order* o = detail::order_of(b.type);
            for (unsigned e = 0; e < b.cells.cols(); ++e) {
                chunk.push_back(end += o->vtk_nodes);
                if (chunk.size() >= (1u << 16)) put_chunk();
            }
        }
        put_chunk();
        length(nbr_cells);
        std::vector<std::uint8_t> types;
        for (const cell_block& b : blocks_) types.insert(types.end(), b.cells.cols(), detail::order_of(b.type)->vtk);
        out.put(types.data(), types.size());
        out.put(std::string("\n</AppendedData>\n</VTKFile>\n"));
        if (!out.commit()) return write_error(path);
        file_status st;
        st.file = path;
        return st;
    } catch (const std::bad_alloc&) {
        file_status st;
        st.code = memory_error;
        st.file = path;
        st.text = path + ": not enough memory to write it";
        return st;
    }
}

std::vector<double> node_vectors(const fem::FEM_matrix& m, unsigned nbr_nodes, field_tag f, unsigned col)
{
    std::vector<double> v(3 * std::size_t(nbr_nodes), 0.0);
    dense2D<double> out(3, nbr_nodes);
    if (nbr_nodes && out.cols() == nbr_nodes && m.get_vectors(0, f, col, out) == no_error)
        for (unsigned a = 0; a < nbr_nodes && a < out.cols(); ++a)
            for (unsigned k = 0; k < 3 && k < out.rows(); ++k) v[3 * std::size_t(a) + k] = out(k, a);
    return v;
}

std::vector<double> node_values(const fem::FEM_matrix& m, unsigned nbr_nodes, field_tag f, unsigned component,
                                unsigned col)
{
    std::vector<double> v(nbr_nodes, 0.0);
    for (unsigned a = 0; a < nbr_nodes; ++a) {
        double x = 0.0;
        if (m.getID_val(fem::DOFs_mgr::ID(a, f, component), col, x) == no_error) v[a] = x;
    }
    return v;
}

std::vector<double> node_rows(const fem::FEM_matrix& m, unsigned nbr_nodes, unsigned first, unsigned components)
{
    std::vector<double> v(std::size_t(components) * nbr_nodes, 0.0);
    for (unsigned a = 0; a < nbr_nodes; ++a)
        for (unsigned k = 0; k < components; ++k) {
            double x = 0.0;
            if (m.getID_val(a, first + k, x) == no_error) v[std::size_t(a) * components + k] = x;
        }
    return v;
}

file_status write_pvd(const std::string& path, const std::vector<pvd_entry>& entries)
{
    try {
        std::string text = "<?xml version=\"1.0\"?>\n<VTKFile type=\"Collection\" version=\"0.1\" "
                           "byte_order=\"LittleEndian\">\n<Collection>\n";
        char time[32];
        for (const pvd_entry& e : entries) {
            std::snprintf(time, sizeof time, "%.17g", e.time);
            text += "<DataSet timestep=\"" + std::string(time) + "\" group=\"\" part=\"0\" file=\"" +
                    xml_escaped(e.file) + "\"/>\n";
        }
        text += "</Collection>\n</VTKFile>\n";
        return write_whole_file(path, text);
    } catch (const std::bad_alloc&) {
        return write_error(path);
    }
}

} // namespace kelt::io
