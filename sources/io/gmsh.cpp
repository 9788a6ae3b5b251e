#include "kelt/io/gmsh.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <unordered_map>
#include <utility>

#include "kelt/io/element_orders.h"
#include "kelt/io/text_file.h"

namespace kelt::io {

const mesh_block* mesh_data::block(std::string_view name, element_type type) const noexcept
{
    for (const mesh_block& b : blocks)
        if (b.name == name && b.type == type) return &b;
    return nullptr;
}

const node_group* mesh_data::group(std::string_view name) const noexcept
{
    for (const node_group& g : groups)
        if (g.name == name) return &g;
    return nullptr;
}

namespace {

using detail::element_order;

// The file's numbers of nodes or elements to their rank: a table when the numbers
// are dense, else a hash map. Knows a number given twice.
class tag_index {
public:
    static constexpr unsigned none = ~0u;

    void reserve(std::size_t count, std::size_t max_tag)
    {
        dense_ = max_tag <= 4 * count + 1024;
        if (dense_) table_.assign(max_tag + 1, none);
        else map_.reserve(count);
    }
    // False when the number is already there.
    bool add(std::size_t tag, unsigned rank)
    {
        if (dense_) {
            if (tag >= table_.size()) table_.resize(std::max(tag + 1, 2 * table_.size()), none);
            if (table_[tag] != none) return false;
            table_[tag] = rank;
            return true;
        }
        return map_.emplace(tag, rank).second;
    }
    unsigned find(std::size_t tag) const
    {
        if (dense_) return tag < table_.size() ? table_[tag] : none;
        const auto it = map_.find(tag);
        return it == map_.end() ? none : it->second;
    }

private:
    bool dense_ = true;
    std::vector<unsigned> table_;
    std::unordered_map<std::size_t, unsigned> map_;
};

// The elements of one (group dimension, group number, type) as they come.
struct block_builder {
    const element_order* order = nullptr;
    std::vector<unsigned> nodes; // the library's order, element after element
    std::vector<std::size_t> tags;
};

class msh_reader {
public:
    explicit msh_reader(text_cursor& c) : c_(c) {}

    void read(mesh_data& out)
    {
        bool format = false, nodes = false, elements = false;
        while (c_.next_section()) {
            const std::string name(c_.section());
            if (name == "MeshFormat") {
                read_format();
                format = true;
            } else if (!format) {
                c_.fail(invalid_data_error, "the file does not start with $MeshFormat");
            } else if (name == "PhysicalNames") {
                read_names();
            } else if (name == "Entities") {
                v4_ ? read_entities() : c_.skip_section(name);
            } else if (name == "Nodes") {
                if (nodes) c_.fail(invalid_data_error, "a second $Nodes section");
                v4_ ? read_nodes_4() : read_nodes_2();
                nodes = true;
            } else if (name == "Elements") {
                if (!nodes) c_.fail(invalid_data_error, "$Elements before $Nodes");
                if (elements) c_.fail(invalid_data_error, "a second $Elements section");
                v4_ ? read_elements_4() : read_elements_2();
                elements = true;
            } else if (name == "PartitionedEntities" || name == "GhostElements") {
                c_.fail(invalid_data_error, "a partitioned mesh: save it whole");
            } else {
                c_.skip_section(name);
            }
        }
        if (!format) c_.fail(invalid_data_error, "no $MeshFormat: not a Gmsh mesh file");
        if (!nodes) c_.fail(invalid_data_error, "no $Nodes section");
        if (!elements) c_.fail(invalid_data_error, "no $Elements section");
        build(out);
    }

private:
    text_cursor& c_;
    bool v4_ = false, binary_ = false;
    std::map<std::pair<int, int>, std::string> names_;            // (dim, group) -> name
    std::map<std::pair<int, int>, std::vector<int>> entity_groups_; // (dim, entity) -> groups
    std::vector<double> xyz_;
    std::vector<std::size_t> node_tags_;
    tag_index nodes_, elements_;
    std::map<std::tuple<int, int, int>, block_builder> blocks_; // (dim, group, gmsh type)
    std::map<std::pair<int, int>, std::vector<unsigned>> point_groups_;
    std::vector<unsigned> element_nodes_;

    void read_format()
    {
        const double version = c_.number<double>("a version");
        const int file_type = c_.number<int>("the file type");
        const int data_size = c_.number<int>("the data size");
        if (version >= 4.1 && version < 4.2) v4_ = true;
        else if (version >= 2.0 && version < 3.0) v4_ = false;
        else c_.fail(invalid_data_error, "format version " + std::to_string(version).substr(0, 3) +
                                             " is not read: save the mesh as version 4.1 or 2.2");
        if (file_type != 0 && file_type != 1) c_.fail(invalid_data_error, "the file type is neither 0 nor 1");
        binary_ = file_type == 1;
        if (binary_ && !v4_) c_.fail(invalid_data_error, "binary files of version 2 are not read: save as 4.1");
        if (binary_ && data_size != int(sizeof(std::size_t)))
            c_.fail(invalid_data_error, "binary data of size " + std::to_string(data_size) + " is not read");
        c_.end_line();
        if (binary_) {
            c_.set_binary(true);
            if (c_.raw<int>() != 1) c_.fail(invalid_data_error, "binary data of the other byte order");
            c_.set_binary(false);
        }
        c_.end_section("MeshFormat");
    }

    void read_names()
    {
        const int count = c_.number<int>("the number of names");
        for (int i = 0; i < count; ++i) {
            const int dim = c_.number<int>("a dimension"), tag = c_.number<int>("a group number");
            names_[{dim, tag}] = c_.quoted();
        }
        c_.end_section("PhysicalNames");
    }

    template <class T>
    T value(const char* what)
    {
        return binary_ ? c_.raw<T>() : c_.number<T>(what);
    }

    void read_entities()
    {
        c_.set_binary(binary_);
        std::size_t counts[4];
        for (std::size_t& n : counts) n = value<std::size_t>("a number of entities");
        for (int dim = 0; dim < 4; ++dim)
            for (std::size_t i = 0; i < counts[dim]; ++i) {
                const int tag = value<int>("an entity number");
                for (int k = 0; k < (dim == 0 ? 3 : 6); ++k) (void)value<double>("a coordinate");
                const std::size_t nbr_groups = value<std::size_t>("a number of groups");
                std::vector<int>& groups = entity_groups_[{dim, tag}];
                for (std::size_t k = 0; k < nbr_groups; ++k) groups.push_back(value<int>("a group number"));
                if (dim > 0) {
                    const std::size_t bounds = value<std::size_t>("a number of bounding entities");
                    for (std::size_t k = 0; k < bounds; ++k) (void)value<int>("a bounding entity");
                }
            }
        c_.set_binary(false);
        c_.end_section("Entities");
    }

    void add_node(std::size_t tag, const double* x)
    {
        if (!nodes_.add(tag, unsigned(node_tags_.size())))
            c_.fail(invalid_data_error, "node " + std::to_string(tag) + " is defined twice");
        node_tags_.push_back(tag);
        xyz_.insert(xyz_.end(), x, x + 3);
    }

    void read_nodes_4()
    {
        c_.set_binary(binary_);
        const std::size_t blocks = value<std::size_t>("the number of node blocks");
        const std::size_t total = value<std::size_t>("the number of nodes");
        (void)value<std::size_t>("the least node number");
        const std::size_t max_tag = value<std::size_t>("the largest node number");
        if (total >= std::size_t(tag_index::none)) c_.fail(invalid_data_error, "too many nodes");
        nodes_.reserve(total, max_tag);
        c_.check_room(total, binary_ ? 32 : 8);
        node_tags_.reserve(total);
        xyz_.reserve(3 * total);
        std::vector<std::size_t> tags;
        for (std::size_t b = 0; b < blocks; ++b) {
            const int dim = value<int>("an entity dimension");
            (void)value<int>("an entity number");
            const int parametric = value<int>("the parametric flag");
            const std::size_t n = value<std::size_t>("a number of nodes");
            c_.check_room(n, binary_ ? 32 : 4);
            tags.resize(n);
            if (binary_) c_.raw_array(tags.data(), n);
            else
                for (std::size_t& t : tags) t = c_.number<std::size_t>("a node number");
            const unsigned extra = parametric ? unsigned(std::max(dim, 0)) : 0;
            for (std::size_t i = 0; i < n; ++i) {
                double x[3];
                if (binary_) {
                    c_.raw_array(x, 3);
                    for (unsigned k = 0; k < extra; ++k) (void)c_.raw<double>();
                } else {
                    for (double& v : x) v = c_.number<double>("a coordinate");
                    c_.end_line(true);
                }
                add_node(tags[i], x);
            }
        }
        if (node_tags_.size() != total) c_.fail(invalid_data_error, "the node count differs from the header's");
        c_.set_binary(false);
        c_.end_section("Nodes");
    }

    void read_nodes_2()
    {
        const std::size_t total = c_.number<std::size_t>("the number of nodes");
        if (total >= std::size_t(tag_index::none)) c_.fail(invalid_data_error, "too many nodes");
        c_.check_room(total, 8);
        nodes_.reserve(total, 2 * total);
        node_tags_.reserve(total);
        xyz_.reserve(3 * total);
        for (std::size_t i = 0; i < total; ++i) {
            const std::size_t tag = c_.number<std::size_t>("a node number");
            double x[3];
            for (double& v : x) v = c_.number<double>("a coordinate");
            add_node(tag, x);
        }
        c_.end_section("Nodes");
    }

    // The blocks that the elements of one type in these groups go to (the block of
    // no group when there is none), each told to expect `count` more elements.
    std::vector<block_builder*> targets_of(int dim, int type, const std::vector<int>& groups, std::size_t count)
    {
        std::vector<block_builder*> targets;
        const element_order* o = detail::order_of_gmsh(type);
        if (!o) return targets; // points: their nodes only, for the groups
        const auto add = [&](int group) {
            block_builder& b = blocks_[{dim, group, type}];
            b.order = o;
            b.nodes.reserve(b.nodes.size() + count * o->nbr_nodes);
            b.tags.reserve(b.tags.size() + count);
            targets.push_back(&b);
        };
        if (groups.empty()) add(0);
        for (int g : groups) add(g);
        return targets;
    }

    // One element: its file nodes in `gmsh_nodes`, put in the target blocks (or,
    // for a point, in its groups' nodes).
    void add_element(std::size_t tag, int dim, int type, const std::size_t* gmsh_nodes,
                     const std::vector<block_builder*>& targets, const std::vector<int>& groups)
    {
        if (!elements_.add(tag, 0)) c_.fail(invalid_data_error, "element " + std::to_string(tag) + " is defined twice");
        const element_order* o = detail::order_of_gmsh(type);
        const unsigned n = o ? o->nbr_nodes : 1;
        element_nodes_.resize(n);
        for (unsigned a = 0; a < n; ++a) {
            const std::size_t node = gmsh_nodes[o ? o->from_gmsh[a] : a];
            const unsigned rank = nodes_.find(node);
            if (rank == tag_index::none)
                c_.fail(invalid_data_error,
                        "element " + std::to_string(tag) + " refers to node " + std::to_string(node) + ", not defined");
            element_nodes_[a] = rank;
        }
        if (!o) {
            for (int g : groups) point_groups_[{dim, g}].push_back(element_nodes_[0]);
            return;
        }
        for (block_builder* b : targets) {
            b->nodes.insert(b->nodes.end(), element_nodes_.begin(), element_nodes_.end());
            b->tags.push_back(tag);
        }
    }

    // The element type's node count, or a refusal of a type the library lacks.
    unsigned nodes_of_type(int type)
    {
        if (type == 15) return 1;
        if (const element_order* o = detail::order_of_gmsh(type)) return o->nbr_nodes;
        c_.fail(element_type_error, "element type " + std::to_string(type) + " (" + detail::gmsh_type_name(type) +
                                        ") has no shape in the library");
        return 0;
    }

    void read_elements_4()
    {
        c_.set_binary(binary_);
        const std::size_t blocks = value<std::size_t>("the number of element blocks");
        const std::size_t total = value<std::size_t>("the number of elements");
        (void)value<std::size_t>("the least element number");
        const std::size_t max_tag = value<std::size_t>("the largest element number");
        elements_.reserve(total, max_tag);
        c_.check_room(total, binary_ ? 16 : 4);
        std::vector<std::size_t> record;
        static const std::vector<int> no_groups;
        std::size_t count = 0;
        for (std::size_t b = 0; b < blocks; ++b) {
            const int dim = value<int>("an entity dimension");
            const int entity = value<int>("an entity number");
            const int type = value<int>("an element type");
            const std::size_t n = value<std::size_t>("a number of elements");
            const unsigned per = nodes_of_type(type);
            c_.check_room(n, (per + 1) * (binary_ ? 8 : 2));
            const auto it = entity_groups_.find({dim, entity});
            const std::vector<int>& groups = it == entity_groups_.end() ? no_groups : it->second;
            const std::vector<block_builder*> targets = targets_of(dim, type, groups, n);
            record.resize(per + 1);
            for (std::size_t i = 0; i < n; ++i) {
                if (binary_) c_.raw_array(record.data(), per + 1);
                else
                    for (std::size_t& v : record) v = c_.number<std::size_t>("an element's node");
                add_element(record[0], dim, type, record.data() + 1, targets, groups);
                if (!binary_) c_.end_line(false);
            }
            count += n;
        }
        if (count != total) c_.fail(invalid_data_error, "the element count differs from the header's");
        c_.set_binary(false);
        c_.end_section("Elements");
    }

    void read_elements_2()
    {
        const std::size_t total = c_.number<std::size_t>("the number of elements");
        c_.check_room(total, 8);
        elements_.reserve(total, 2 * total);
        std::vector<std::size_t> nodes;
        std::vector<int> groups;
        for (std::size_t i = 0; i < total; ++i) {
            const std::size_t tag = c_.number<std::size_t>("an element number");
            const int type = c_.number<int>("an element type");
            const int nbr_tags = c_.number<int>("a number of tags");
            if (nbr_tags < 0 || nbr_tags > 64) c_.fail(invalid_data_error, "a number of tags out of range");
            groups.clear();
            for (int k = 0; k < nbr_tags; ++k) {
                const int t = c_.number<int>("a tag");
                if (k == 0 && t != 0) groups.push_back(t);
            }
            const unsigned per = nodes_of_type(type);
            nodes.resize(per);
            for (std::size_t& v : nodes) v = c_.number<std::size_t>("an element's node");
            const element_order* o = detail::order_of_gmsh(type);
            const int dim = o ? int(o->dim) : 0;
            add_element(tag, dim, type, nodes.data(), targets_of(dim, type, groups, 1), groups);
            c_.end_line(false);
        }
        c_.end_section("Elements");
    }

    void build(mesh_data& out)
    {
        mesh_data m;
        const std::size_t n = node_tags_.size();
        m.positions = dense2D<double>(3, unsigned(n));
        if (n && m.positions.cols() != n) throw std::bad_alloc();
        for (std::size_t a = 0; a < n; ++a)
            for (unsigned k = 0; k < 3; ++k) m.positions(k, unsigned(a)) = xyz_[3 * a + k];
        m.node_tags = std::move(node_tags_);
        std::map<std::pair<int, int>, std::vector<unsigned>> group_nodes = std::move(point_groups_);
        for (auto& [key, b] : blocks_) {
            const auto [dim, tag, type] = key;
            mesh_block out_block;
            const auto name = names_.find({dim, tag});
            if (name != names_.end()) out_block.name = name->second;
            out_block.dim = dim, out_block.tag = tag, out_block.type = b.order->type;
            const unsigned per = b.order->nbr_nodes, count = unsigned(b.tags.size());
            out_block.cells = dense2D<unsigned>(per, count);
            if (count && out_block.cells.cols() != count) throw std::bad_alloc();
            std::copy(b.nodes.begin(), b.nodes.end(), out_block.cells.data());
            out_block.element_tags = std::move(b.tags);
            if (tag != 0) {
                std::vector<unsigned>& g = group_nodes[{dim, tag}];
                g.insert(g.end(), b.nodes.begin(), b.nodes.end());
            }
            std::vector<unsigned>().swap(b.nodes);
            m.blocks.push_back(std::move(out_block));
        }
        std::vector<unsigned char> in_group(n, 0); // sorted and unique by marks: linear time
        for (auto& [key, nodes] : group_nodes) {
            node_group g;
            const auto name = names_.find(key);
            if (name != names_.end()) g.name = name->second;
            g.dim = key.first, g.tag = key.second;
            for (unsigned a : nodes) in_group[a] = 1;
            std::vector<unsigned>().swap(nodes);
            for (std::size_t a = 0; a < n; ++a)
                if (in_group[a]) g.nodes.push_back(unsigned(a)), in_group[a] = 0;
            m.groups.push_back(std::move(g));
        }
        out = std::move(m);
    }
};

} // namespace

file_status read_gmsh(const std::string& path, mesh_data& out)
{
    return read_text_file(path, [&](text_cursor& c) { msh_reader(c).read(out); });
}

} // namespace kelt::io
