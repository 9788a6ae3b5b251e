#include "kelt/io/deck.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <cmath>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <new>
#include <unordered_map>
#include <utility>

#include "kelt/core/element_catalogue.h"
#include "kelt/io/text_file.h"

namespace kelt::io {

namespace {

std::string upper(std::string_view s)
{
    std::string u(s);
    for (char& c : u) c = char(std::toupper(static_cast<unsigned char>(c)));
    return u;
}

std::string_view trim(std::string_view s)
{
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

// The comma-separated fields of a line, trimmed; a trailing empty field is dropped.
std::vector<std::string_view> split(std::string_view line)
{
    std::vector<std::string_view> out;
    for (;;) {
        const std::size_t c = line.find(',');
        out.push_back(trim(line.substr(0, c)));
        if (c == std::string_view::npos) break;
        line.remove_prefix(c + 1);
    }
    if (!out.empty() && out.back().empty()) out.pop_back();
    return out;
}

// Names in the deck are case-blind: kept in upper case.
const deck_set* find_set(const std::vector<deck_set>& sets, std::string_view name) noexcept
{
    const std::string u = upper(name);
    for (const deck_set& s : sets)
        if (s.name == u) return &s;
    return nullptr;
}

// A fault already placed in an included file, carried out through the including one.
struct nested_fault {
    file_status status;
};

// A keyword line: the keyword in upper case with single blanks, and its parameters
// (names in upper case, values as written).
struct card {
    std::string keyword;
    std::vector<std::pair<std::string, std::string>> params;

    const std::string* get(std::string_view name) const
    {
        for (const auto& p : params)
            if (p.first == name) return &p.second;
        return nullptr;
    }
};

// Where each key of a list is, in constant time, so that large sets and load lists
// read in linear time. Every addition goes through it; a list cleared or copied
// behind its back has another size, and the index is then rebuilt.
class list_index {
public:
    template <class List, class KeyOf>
    std::size_t find(const List& list, std::uint64_t key, KeyOf key_of)
    {
        if (size_ != list.size()) {
            at_.clear();
            for (std::size_t i = 0; i < list.size(); ++i) at_.emplace(key_of(list[i]), i);
            size_ = list.size();
        }
        const auto it = at_.find(key);
        return it == at_.end() ? npos : it->second;
    }
    void added(std::uint64_t key, std::size_t pos)
    {
        at_.emplace(key, pos);
        size_ = pos + 1;
    }
    static constexpr std::size_t npos = ~std::size_t(0);

private:
    std::unordered_map<std::uint64_t, std::size_t> at_;
    std::size_t size_ = 0;
};

// How a deck's element type becomes one of the library's: the deck's index of each
// library corner, the deck's edge nodes (pairs of deck corners, in the deck's order
// after the corners) and the library's nodes after its corners (groups of library
// corners: 2 an edge, 4 a face, 8 the centre). Face and centre nodes the deck lacks
// are added where the deck's serendipity interpolation puts them.
struct element_kind {
    const char* name;
    element_type type;
    unsigned deck_nodes, corners, faces;
    std::vector<unsigned> corner_of;
    std::vector<std::array<unsigned, 2>> deck_edges;
    std::vector<std::vector<unsigned>> lib_extra;
    bool converted;
};

const std::vector<element_kind>& element_kinds()
{
    static const std::vector<std::array<unsigned, 2>> hexa_edges = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6},
                                                                    {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};
    static const std::vector<std::vector<unsigned>> hexa27_extra = [] {
        std::vector<std::vector<unsigned>> x;
        for (const auto& e : hexa_edges) x.push_back({e[0], e[1]});
        for (std::vector<unsigned> f : {std::vector<unsigned>{0, 3, 7, 4}, {1, 5, 6, 2}, {0, 4, 5, 1}, {3, 2, 6, 7},
                                        {0, 1, 2, 3}, {4, 7, 6, 5}})
            x.push_back(f);
        x.push_back({0, 1, 2, 3, 4, 5, 6, 7});
        return x;
    }();
    static const std::vector<element_kind> kinds = {
        {"C3D4", element_tetra4, 4, 4, 4, {1, 2, 3, 0}, {}, {}, false},
        {"C3D10", element_tetra10, 10, 4, 4, {1, 2, 3, 0}, {{0, 1}, {1, 2}, {2, 0}, {0, 3}, {1, 3}, {2, 3}},
         {{1, 2}, {2, 0}, {0, 1}, {0, 3}, {1, 3}, {2, 3}}, false},
        {"C3D6", element_wedge6, 6, 6, 5, {1, 2, 0, 4, 5, 3}, {}, {}, false},
        {"C3D15", element_wedge18, 15, 6, 5, {1, 2, 0, 4, 5, 3},
         {{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 3}, {0, 3}, {1, 4}, {2, 5}},
         {{0, 3}, {1, 4}, {2, 5}, {1, 2}, {2, 0}, {0, 1}, {4, 5}, {5, 3}, {3, 4}, {2, 1, 4, 5}, {0, 2, 5, 3}, {1, 0, 3, 4}},
         true},
        {"C3D8", element_hexa8, 8, 8, 6, {0, 1, 2, 3, 4, 5, 6, 7}, {}, {}, false},
        {"C3D20", element_hexa27, 20, 8, 6, {0, 1, 2, 3, 4, 5, 6, 7}, hexa_edges, hexa27_extra, true},
        {"C3D20R", element_hexa27, 20, 8, 6, {0, 1, 2, 3, 4, 5, 6, 7}, hexa_edges, hexa27_extra, true},
    };
    return kinds;
}

class deck_reader {
public:
    explicit deck_reader(deck_data& d) : d_(d) {}

    void read_file(const std::string& path, int depth)
    {
        const file_status st = read_text_file(path, [&](text_cursor& c) {
            line_cursor lc(c.text());
            read_cards(lc, path, depth);
        });
        if (!st) throw nested_fault{st};
    }

    void finish(line_cursor* lc)
    {
        if (in_step_) {
            if (lc) lc->truncated();
            throw read_fault(invalid_data_error, 0, false, "*STEP without *END STEP");
        }
        // A start temperature is a guess to a steady conduction, but a static step
        // would strain an expanding material by it.
        const bool expands = std::any_of(d_.materials.begin(), d_.materials.end(),
                                         [](const deck_material& m) { return m.has_expansion; });
        const bool statics = std::any_of(d_.steps.begin(), d_.steps.end(), [](const deck_step& s) {
            return s.procedure == deck_procedure::static_linear;
        });
        if (!d_.initial_temperatures.empty() && expands && statics) {
            file_status st;
            st.code = invalid_data_error;
            st.file = initial_file_;
            st.line = initial_line_;
            st.text = st.file + ":" + std::to_string(st.line) +
                      ": *INITIAL CONDITIONS: temperatures straining an expanding material in a static step "
                      "is not supported";
            throw nested_fault{st};
        }
        for (std::size_t k = 0; k < d_.sections.size(); ++k)
            if (!d_.material(d_.sections[k].material)) {
                file_status st;
                st.code = invalid_data_error;
                st.file = section_files_[k];
                st.line = d_.sections[k].line;
                st.text = st.file + ":" + std::to_string(st.line) + ": *SOLID SECTION: unknown material " +
                          d_.sections[k].material;
                throw nested_fault{st};
            }
        d_.positions = dense2D<double>(3, unsigned(xyz_.size() / 3));
        if (!xyz_.empty() && d_.positions.cols() != xyz_.size() / 3) throw std::bad_alloc();
        for (std::size_t a = 0; a < xyz_.size() / 3; ++a)
            for (unsigned k = 0; k < 3; ++k) d_.positions(k, unsigned(a)) = xyz_[3 * a + k];
        for (std::size_t b = 0; b < blocks_.size(); ++b) {
            const element_kind& kind = *block_kinds_[b];
            const unsigned n = nbr_nodes(kind.type), count = unsigned(blocks_[b].size() / n);
            d_.blocks[b].cells = dense2D<unsigned>(n, count);
            if (count && d_.blocks[b].cells.cols() != count) throw std::bad_alloc();
            std::copy(blocks_[b].begin(), blocks_[b].end(), d_.blocks[b].cells.data());
        }
        for (const std::string& name : converted_)
            d_.notes.push_back("element type " + name + " converted to " + name_of(name));
    }

private:
    deck_data& d_;
    std::vector<double> xyz_;
    std::unordered_map<std::size_t, unsigned> node_rank_, element_rank_;
    std::vector<std::vector<unsigned>> blocks_;
    std::vector<const element_kind*> block_kinds_;
    std::map<std::array<unsigned, 4>, unsigned> face_nodes_; // added face nodes, by their sorted corners
    std::vector<std::string> converted_;
    deck_material* material_ = nullptr;
    deck_step step_;
    std::vector<deck_nodal_value> model_boundaries_;
    std::map<std::pair<bool, std::string>, list_index> set_index_; // (of nodes, name)
    std::map<const void*, list_index> list_index_;                 // the nodal lists, fixed members
    list_index pressure_index_;
    bool in_step_ = false, procedure_ = false;
    std::string keyword_;
    line_cursor* lc_ = nullptr;
    std::string file_;                       // the file being read
    std::vector<std::string> section_files_; // where each section was given
    std::string initial_file_;
    unsigned initial_line_ = 0;

    static std::string name_of(const std::string& deck_type)
    {
        for (const element_kind& k : element_kinds())
            if (k.name == deck_type) return k.type == element_hexa27 ? "27-node hexahedra" : "18-node wedges";
        return "";
    }

    [[noreturn]] void fail(const std::string& why) const { lc_->fail(invalid_data_error, "*" + keyword_ + ": " + why); }
    [[noreturn]] void refuse(const std::string& why) const
    {
        lc_->fail(invalid_data_error, "*" + keyword_ + ": " + why + " is not supported");
    }

    // The next line that is neither blank nor a comment; false at the end.
    bool next_line()
    {
        while (lc_->next()) {
            const std::string_view l = trim(lc_->line());
            if (l.empty() || l.substr(0, 2) == "**") continue;
            return true;
        }
        return false;
    }
    // The next data line of the current card; false at the next keyword or the end.
    bool data_line(std::vector<std::string_view>& fields)
    {
        if (!next_line()) return false;
        const std::string_view l = trim(lc_->line());
        if (l.front() == '*') {
            lc_->back();
            return false;
        }
        fields = split(l);
        return true;
    }
    void no_data()
    {
        std::vector<std::string_view> f;
        if (data_line(f)) fail("takes no data lines");
    }

    double number(std::string_view s, const char* what) const
    {
        if (!s.empty() && s.front() == '+') s.remove_prefix(1);
        double v = 0.0;
        const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
        if (s.empty() || ec != std::errc() || end != s.data() + s.size())
            fail(std::string("expected ") + what + ", read \"" + std::string(s) + "\"");
        if (!std::isfinite(v)) fail(std::string(what) + " is not a finite number");
        return v;
    }
    std::size_t integer(std::string_view s, const char* what) const
    {
        std::size_t v = 0;
        const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
        if (s.empty() || ec != std::errc() || end != s.data() + s.size())
            fail(std::string("expected ") + what + ", read \"" + std::string(s) + "\"");
        return v;
    }
    bool is_integer(std::string_view s) const
    {
        return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
    }

    card read_card(std::string_view first)
    {
        std::string text(trim(first));
        // A keyword line that ends with a comma goes on in the next line.
        while (!text.empty() && text.back() == ',') {
            if (!lc_->next()) lc_->truncated();
            text += std::string(trim(lc_->line()));
        }
        card c;
        std::vector<std::string_view> fields = split(std::string_view(text).substr(1));
        if (fields.empty() || fields[0].empty()) lc_->fail(invalid_data_error, "a keyword line without a keyword");
        for (char ch : upper(fields[0]))
            if (ch != ' ' || (!c.keyword.empty() && c.keyword.back() != ' ')) c.keyword += ch;
        for (std::size_t k = 1; k < fields.size(); ++k) {
            const std::size_t eq = fields[k].find('=');
            std::string name = upper(trim(fields[k].substr(0, eq)));
            std::string value = eq == std::string_view::npos ? "" : std::string(trim(fields[k].substr(eq + 1)));
            c.params.emplace_back(std::move(name), std::move(value));
        }
        return c;
    }

    // Parameters that change nothing in what is read here are named per card; any
    // other stops the reading.
    void only(const card& c, std::initializer_list<std::string_view> known) const
    {
        for (const auto& p : c.params)
            if (std::find(known.begin(), known.end(), p.first) == known.end()) refuse("the parameter " + p.first);
    }
    const std::string& required(const card& c, std::string_view name) const
    {
        const std::string* v = c.get(name);
        if (!v || v->empty()) fail("needs " + std::string(name) + "=");
        return *v;
    }

    void read_cards(line_cursor& lc, const std::string& path, int depth)
    {
        line_cursor* outer = lc_;
        const std::string outer_file = file_;
        lc_ = &lc;
        file_ = path;
        while (next_line()) {
            const std::string_view l = trim(lc.line());
            if (l.front() != '*') lc.fail(invalid_data_error, "a data line outside any card: \"" + std::string(l.substr(0, 32)) + "\"");
            const card c = read_card(l);
            keyword_ = c.keyword;
            dispatch(c, path, depth);
        }
        if (depth == 0) finish(&lc);
        lc_ = outer;
        file_ = outer_file;
    }

    void dispatch(const card& c, const std::string& path, int depth)
    {
        const std::string& k = c.keyword;
        if (k != "MATERIAL" && k != "ELASTIC" && k != "DENSITY" && k != "EXPANSION" && k != "CONDUCTIVITY" &&
            k != "SPECIFIC HEAT")
            material_ = nullptr;
        // Cards that matter only to what this reader refuses (an amplitude to a load
        // that names it, a surface to a contact, heat capacity to a transient).
        if (k == "HEADING" || k == "AMPLITUDE" || k == "SURFACE" || k == "SPECIFIC HEAT" || k == "PHYSICAL CONSTANTS") {
            std::vector<std::string_view> f;
            while (data_line(f)) {}
        } else if (k == "INCLUDE") {
            include(c, path, depth);
        } else if (k == "NODE" && !in_step_) {
            nodes(c);
        } else if (k == "ELEMENT" && !in_step_) {
            elements(c);
        } else if (k == "NSET" || k == "ELSET") {
            set(c, k == "NSET");
        } else if (k == "MATERIAL" && !in_step_) {
            only(c, {"NAME"});
            const std::string name = upper(required(c, "NAME"));
            if (d_.material(name)) fail("material " + name + " is defined twice");
            d_.materials.push_back({});
            material_ = &d_.materials.back();
            material_->name = name;
            no_data();
        } else if (k == "ELASTIC" || k == "DENSITY" || k == "EXPANSION" || k == "CONDUCTIVITY") {
            property(c);
        } else if (k == "SOLID SECTION" && !in_step_) {
            section(c);
        } else if (k == "INITIAL CONDITIONS" && !in_step_) {
            initial_temperatures(c);
        } else if (k == "BOUNDARY") {
            boundary(c);
        } else if (k == "CLOAD") {
            cload(c);
        } else if (k == "DLOAD" && in_step_) {
            dload(c);
        } else if (k == "STEP") {
            if (in_step_) fail("a step inside a step (no *END STEP before it)");
            only(c, {"NLGEOM", "INC"});
            if (const std::string* g = c.get("NLGEOM"); g && upper(*g) != "NO") refuse("NLGEOM (geometric nonlinearity)");
            in_step_ = true;
            procedure_ = false;
            step_.line = unsigned(lc_->number());
            step_.outputs.clear();
            no_data();
        } else if ((k == "STATIC" || k == "HEAT TRANSFER") && in_step_) {
            procedure(c);
        } else if ((k == "NODE PRINT" || k == "EL PRINT" || k == "NODE FILE" || k == "EL FILE") && in_step_) {
            output(c);
        } else if (k == "END STEP") {
            if (!in_step_) fail("without *STEP");
            if (!procedure_) fail("a step without a procedure (*STATIC or *HEAT TRANSFER)");
            no_data();
            d_.steps.push_back(step_);
            in_step_ = false;
        } else if (in_step_ && (k == "NODE" || k == "ELEMENT" || k == "MATERIAL" || k == "SOLID SECTION")) {
            fail("model data inside a step");
        } else if (!in_step_ && k == "DLOAD") {
            fail("loads belong in a step");
        } else {
            refuse("this keyword");
        }
    }

    void include(const card& c, const std::string& path, int depth)
    {
        only(c, {"INPUT"});
        std::string file = required(c, "INPUT");
        if (file.size() >= 2 && file.front() == '"' && file.back() == '"') file = file.substr(1, file.size() - 2);
        if (depth >= 16) fail("includes nested deeper than 16 (a loop?)");
        std::filesystem::path p(file);
        if (p.is_relative()) p = std::filesystem::path(path).parent_path() / p;
        const std::string keyword = keyword_;
        read_file(p.string(), depth + 1);
        keyword_ = keyword;
    }

    unsigned node_of(std::string_view s) const
    {
        const std::size_t tag = integer(s, "a node number");
        const auto it = node_rank_.find(tag);
        if (it == node_rank_.end()) fail("node " + std::to_string(tag) + " is not defined");
        return it->second;
    }

    deck_set& named_set(std::vector<deck_set>& sets, const std::string& name)
    {
        for (deck_set& s : sets)
            if (s.name == name) return s;
        sets.push_back({name, {}});
        return sets.back();
    }
    void add_item(deck_set& s, bool of_nodes, unsigned item)
    {
        list_index& index = set_index_[{of_nodes, s.name}];
        if (index.find(s.items, item, [](unsigned i) { return std::uint64_t(i); }) != list_index::npos) return;
        index.added(item, s.items.size());
        s.items.push_back(item);
    }

    void nodes(const card& c)
    {
        only(c, {"NSET"});
        deck_set* set = nullptr;
        if (const std::string* n = c.get("NSET")) set = &named_set(d_.node_sets, upper(*n));
        std::vector<std::string_view> f;
        while (data_line(f)) {
            if (f.empty() || f.size() > 4) fail("a node line holds its number and up to 3 coordinates");
            const std::size_t tag = integer(f[0], "a node number");
            if (tag == 0) fail("node number 0");
            const unsigned rank = unsigned(xyz_.size() / 3);
            if (!node_rank_.emplace(tag, rank).second) fail("node " + std::to_string(tag) + " is defined twice");
            // A coordinate left out or left empty is 0.
            for (std::size_t k = 1; k < 4; ++k)
                xyz_.push_back(k < f.size() && !f[k].empty() ? number(f[k], "a coordinate") : 0.0);
            d_.node_tags.push_back(tag);
            if (set) set->items.push_back(rank);
        }
    }

    // A node placed by the deck's interpolation from its parents.
    unsigned added_node(deck_added_node&& n)
    {
        n.node = unsigned(xyz_.size() / 3);
        double x[3] = {};
        for (std::size_t p = 0; p < n.parents.size(); ++p)
            for (unsigned k = 0; k < 3; ++k) x[k] += n.weights[p] * at(n.parents[p])[k];
        xyz_.insert(xyz_.end(), x, x + 3);
        d_.node_tags.push_back(0);
        d_.added_nodes.push_back(std::move(n));
        return d_.added_nodes.back().node;
    }

    void elements(const card& c)
    {
        only(c, {"TYPE", "ELSET"});
        const std::string type = upper(required(c, "TYPE"));
        const element_kind* kind = nullptr;
        for (const element_kind& k : element_kinds())
            if (type == k.name) kind = &k;
        if (!kind) refuse("element type " + type);
        if (kind->converted && std::find(converted_.begin(), converted_.end(), type) == converted_.end())
            converted_.push_back(type);
        deck_set* set = nullptr;
        if (const std::string* n = c.get("ELSET")) set = &named_set(d_.element_sets, upper(*n));
        const unsigned block = unsigned(d_.blocks.size());
        d_.blocks.push_back({});
        d_.blocks.back().deck_type = type;
        d_.blocks.back().type = kind->type;
        blocks_.emplace_back();
        block_kinds_.push_back(kind);
        std::vector<std::string_view> f;
        std::vector<unsigned> deck(kind->deck_nodes);
        while (data_line(f)) {
            const std::size_t tag = integer(f[0], "an element number");
            std::size_t have = 0;
            for (std::size_t k = 1;; ++k) {
                if (k == f.size()) {
                    if (have == kind->deck_nodes) break;
                    // The node list goes on in the next line.
                    if (!data_line(f)) fail("element " + std::to_string(tag) + " has " + std::to_string(have) +
                                            " nodes, " + type + " takes " + std::to_string(kind->deck_nodes));
                    k = std::size_t(-1);
                    continue;
                }
                if (have == kind->deck_nodes) fail("element " + std::to_string(tag) + " has more than " +
                                                   std::to_string(kind->deck_nodes) + " nodes");
                deck[have++] = node_of(f[k]);
            }
            const unsigned rank = unsigned(d_.elements.size());
            if (!element_rank_.emplace(tag, rank).second) fail("element " + std::to_string(tag) + " is defined twice");
            d_.elements.push_back({block, unsigned(d_.blocks[block].element_tags.size())});
            d_.blocks[block].element_tags.push_back(tag);
            if (set) set->items.push_back(rank);
            convert(*kind, deck, blocks_[block]);
        }
    }

    const double* at(unsigned node) const { return &xyz_[3 * std::size_t(node)]; }

    void convert(const element_kind& kind, const std::vector<unsigned>& deck, std::vector<unsigned>& out)
    {
        for (unsigned a = 0; a < kind.corners; ++a) out.push_back(deck[kind.corner_of[a]]);
        // The deck's node in the middle of deck corners i and j.
        const auto edge = [&](unsigned i, unsigned j) {
            for (std::size_t e = 0; e < kind.deck_edges.size(); ++e)
                if ((kind.deck_edges[e][0] == i && kind.deck_edges[e][1] == j) ||
                    (kind.deck_edges[e][0] == j && kind.deck_edges[e][1] == i))
                    return deck[kind.corners + e];
            return deck[0]; // unreachable: the tables name only edges
        };
        for (const std::vector<unsigned>& g : kind.lib_extra) {
            if (g.size() == 2) {
                out.push_back(edge(kind.corner_of[g[0]], kind.corner_of[g[1]]));
                continue;
            }
            // Serendipity at a face centre: -1/4 of the corners and 1/2 of the mid-edge
            // nodes; at the hexahedron's centre -1/4 and 1/4.
            deck_added_node n;
            const double wc = -0.25, we = g.size() == 4 ? 0.5 : 0.25;
            for (unsigned a : g) n.parents.push_back(deck[kind.corner_of[a]]), n.weights.push_back(wc);
            if (g.size() == 4) {
                std::array<unsigned, 4> key{};
                for (unsigned m = 0; m < 4; ++m) {
                    key[m] = deck[kind.corner_of[g[m]]];
                    n.parents.push_back(edge(kind.corner_of[g[m]], kind.corner_of[g[(m + 1) % 4]]));
                    n.weights.push_back(we);
                }
                std::sort(key.begin(), key.end());
                const auto [it, added] = face_nodes_.emplace(key, 0u);
                if (added) it->second = added_node(std::move(n));
                out.push_back(it->second);
            } else {
                for (std::size_t e = 0; e < kind.deck_edges.size(); ++e)
                    n.parents.push_back(deck[kind.corners + e]), n.weights.push_back(we);
                out.push_back(added_node(std::move(n)));
            }
        }
    }

    void set(const card& c, bool of_nodes)
    {
        only(c, {of_nodes ? "NSET" : "ELSET", "GENERATE"});
        const std::string name = upper(required(c, of_nodes ? "NSET" : "ELSET"));
        std::vector<deck_set>& sets = of_nodes ? d_.node_sets : d_.element_sets;
        const std::unordered_map<std::size_t, unsigned>& ranks = of_nodes ? node_rank_ : element_rank_;
        const char* what = of_nodes ? "node" : "element";
        named_set(sets, name);
        const auto add_tag = [&](std::size_t tag) {
            const auto it = ranks.find(tag);
            if (it == ranks.end()) fail(std::string(what) + " " + std::to_string(tag) + " is not defined");
            add_item(named_set(sets, name), of_nodes, it->second);
        };
        std::vector<std::string_view> f;
        while (data_line(f)) {
            if (c.get("GENERATE")) {
                if (f.size() < 2 || f.size() > 3) fail("GENERATE takes first, last[, increment]");
                const std::size_t first = integer(f[0], "a first number"), last = integer(f[1], "a last number");
                const std::size_t inc = f.size() == 3 ? integer(f[2], "an increment") : 1;
                if (inc == 0 || last < first) fail("GENERATE needs first <= last and an increment above 0");
                for (std::size_t t = first; t <= last; t += inc) add_tag(t);
                continue;
            }
            for (std::string_view item : f) {
                if (item.empty()) continue;
                if (is_integer(item)) {
                    add_tag(integer(item, "a number"));
                } else {
                    const deck_set* inner = find_set(sets, item);
                    if (!inner) fail(std::string("unknown set ") + upper(item));
                    const std::vector<unsigned> items = inner->items; // the set may be the one growing
                    for (unsigned i : items) add_item(named_set(sets, name), of_nodes, i);
                }
            }
        }
    }

    void property(const card& c)
    {
        if (!material_) fail("outside a *MATERIAL");
        const std::string k = keyword_;
        if (k == "EXPANSION") only(c, {"TYPE", "ZERO"});
        else only(c, {"TYPE"});
        if (const std::string* t = c.get("TYPE"); t && upper(*t) != "ISO" && upper(*t) != "ISOTROPIC")
            refuse("TYPE=" + upper(*t));
        std::vector<std::string_view> f;
        if (!data_line(f)) fail("needs a data line");
        std::vector<std::string_view> more;
        if (data_line(more)) refuse("a property given at several temperatures");
        const std::size_t need = k == "ELASTIC" ? 2 : 1;
        if (f.size() < need) fail("needs " + std::to_string(need) + " value" + (need > 1 ? "s" : ""));
        if (f.size() > need + 1) fail("too many values");
        if (k == "ELASTIC") {
            material_->young = number(f[0], "Young's modulus");
            material_->poisson = number(f[1], "Poisson's ratio");
            if (!(material_->young > 0.0) || !(material_->poisson > -1.0 && material_->poisson < 0.5))
                fail("needs E > 0 and -1 < nu < 0.5");
            material_->has_elastic = true;
        } else if (k == "DENSITY") {
            material_->density = number(f[0], "a density");
            material_->has_density = true;
        } else if (k == "EXPANSION") {
            material_->expansion = number(f[0], "an expansion coefficient");
            if (const std::string* z = c.get("ZERO")) material_->expansion_zero = number(*z, "a reference temperature");
            material_->has_expansion = true;
        } else {
            material_->conductivity = number(f[0], "a conductivity");
            if (!(material_->conductivity > 0.0)) fail("needs a conductivity above 0");
            material_->has_conductivity = true;
        }
    }

    void section(const card& c)
    {
        only(c, {"ELSET", "MATERIAL"});
        const std::string elset = upper(required(c, "ELSET")), material = upper(required(c, "MATERIAL"));
        if (!d_.element_set(elset)) fail("unknown element set " + elset);
        // The material may come later in the deck: it is looked for at the end.
        d_.sections.push_back({elset, material, unsigned(lc_->number())});
        section_files_.push_back(file_);
        std::vector<std::string_view> f;
        if (data_line(f) && !f.empty()) refuse("a section data line on solid elements");
    }

    // The node ranks a field names: a node number or a node set.
    std::vector<unsigned> nodes_of(std::string_view s) const
    {
        if (is_integer(s)) return {node_of(s)};
        const deck_set* set = find_set(d_.node_sets, s);
        if (!set) fail("unknown node set " + upper(s));
        return set->items;
    }

    std::vector<deck_nodal_value>& nodal_list(const card& c, std::vector<deck_nodal_value>& step_list,
                                              std::vector<deck_nodal_value>* model_list)
    {
        if (const std::string* op = c.get("OP")) {
            const std::string o = upper(*op);
            if (o != "NEW" && o != "MOD") fail("OP is NEW or MOD, not " + o);
            if (o == "NEW") step_list.clear();
        }
        return in_step_ || !model_list ? step_list : *model_list;
    }

    // A value for (node, dof) replaces the one given before.
    void put(std::vector<deck_nodal_value>& list, const deck_nodal_value& v)
    {
        const auto key_of = [](const deck_nodal_value& w) { return std::uint64_t(w.node) * 32 + w.dof; };
        list_index& index = list_index_[&list];
        const std::size_t at = index.find(list, key_of(v), key_of);
        if (at != list_index::npos) {
            list[at].value = v.value;
            return;
        }
        index.added(key_of(v), list.size());
        list.push_back(v);
    }

    void boundary(const card& c)
    {
        only(c, {"OP"});
        std::vector<deck_nodal_value>& list = nodal_list(c, step_.boundaries, &model_boundaries_);
        std::vector<std::string_view> f;
        while (data_line(f)) {
            if (f.size() < 2 || f.size() > 4) fail("a line holds node or set, first dof[, last dof[, value]]");
            const std::size_t first = integer(f[1], "a degree of freedom");
            const std::size_t last = f.size() > 2 && !f[2].empty() ? integer(f[2], "a degree of freedom") : first;
            const double value = f.size() > 3 ? number(f[3], "a value") : 0.0;
            if (last < first) fail("the last degree of freedom is before the first");
            for (std::size_t dof = first; dof <= last; ++dof) {
                if (!(dof >= 1 && dof <= 3) && dof != 11) refuse("degree of freedom " + std::to_string(dof));
                for (unsigned n : nodes_of(f[0])) put(list, {n, unsigned(dof), value});
            }
        }
        if (!in_step_) step_.boundaries = model_boundaries_;
    }

    void initial_temperatures(const card& c)
    {
        only(c, {"TYPE"});
        const std::string type = upper(required(c, "TYPE"));
        if (type != "TEMPERATURE") refuse("TYPE=" + type);
        initial_line_ = unsigned(lc_->number());
        initial_file_ = file_;
        std::vector<std::string_view> f;
        while (data_line(f)) {
            if (f.size() != 2) fail("a line holds node or set, temperature");
            const double value = number(f[1], "a temperature");
            for (unsigned n : nodes_of(f[0])) put(d_.initial_temperatures, {n, 11, value});
        }
    }

    void cload(const card& c)
    {
        only(c, {"OP"});
        std::vector<deck_nodal_value>& list = nodal_list(c, step_.forces, nullptr);
        if (!in_step_) fail("loads belong in a step");
        std::vector<std::string_view> f;
        while (data_line(f)) {
            if (f.size() != 3) fail("a line holds node or set, dof, value");
            const std::size_t dof = integer(f[1], "a degree of freedom");
            if (dof < 1 || dof > 3) refuse("a force on degree of freedom " + std::to_string(dof));
            const double value = number(f[2], "a value");
            for (unsigned n : nodes_of(f[0])) put(list, {n, unsigned(dof), value});
        }
    }

    void dload(const card& c)
    {
        only(c, {"OP"});
        if (const std::string* op = c.get("OP")) {
            const std::string o = upper(*op);
            if (o != "NEW" && o != "MOD") fail("OP is NEW or MOD, not " + o);
            if (o == "NEW") step_.pressures.clear();
        }
        std::vector<std::string_view> f;
        while (data_line(f)) {
            if (f.size() < 2) fail("a line holds element or set, load type, value");
            const std::string type = upper(f[1]);
            if (type.size() != 2 || type[0] != 'P' || type[1] < '1' || type[1] > '6') refuse("load type " + type);
            if (f.size() != 3) fail("a pressure takes one value");
            const unsigned face = unsigned(type[1] - '0');
            const double value = number(f[2], "a pressure");
            std::vector<unsigned> elements;
            if (is_integer(f[0])) {
                const std::size_t tag = integer(f[0], "an element number");
                const auto it = element_rank_.find(tag);
                if (it == element_rank_.end()) fail("element " + std::to_string(tag) + " is not defined");
                elements.push_back(it->second);
            } else {
                const deck_set* set = find_set(d_.element_sets, f[0]);
                if (!set) fail("unknown element set " + upper(f[0]));
                elements = set->items;
            }
            for (unsigned e : elements) {
                const deck_element el = d_.elements[e];
                if (face > block_kinds_[el.block]->faces)
                    fail("face " + std::to_string(face) + " of a " + d_.blocks[el.block].deck_type + " element");
                const auto key_of = [&](const deck_pressure& p) {
                    return (std::uint64_t(p.element.block) << 40) + std::uint64_t(p.element.cell) * 8 + p.face;
                };
                const std::uint64_t key = key_of({el, face, 0.0, element_none, {}});
                const std::size_t at = pressure_index_.find(step_.pressures, key, key_of);
                if (at != list_index::npos) {
                    step_.pressures[at].value = value;
                } else {
                    pressure_index_.added(key, step_.pressures.size());
                    step_.pressures.push_back(face_of(el, face, value));
                }
            }
        }
    }

    // The deck's faces by their corners, in deck corner numbers.
    static std::vector<unsigned> deck_face(unsigned corners, unsigned face)
    {
        static const unsigned tetra[4][3] = {{0, 1, 2}, {0, 3, 1}, {1, 3, 2}, {2, 3, 0}};
        static const unsigned wedge[5][4] = {{0, 1, 2, 0}, {3, 4, 5, 0}, {0, 1, 4, 3}, {1, 2, 5, 4}, {2, 0, 3, 5}};
        static const unsigned hexa[6][4] = {{0, 1, 2, 3}, {4, 7, 6, 5}, {0, 4, 5, 1},
                                            {1, 5, 6, 2}, {2, 6, 7, 3}, {3, 7, 4, 0}};
        if (corners == 4) return {tetra[face][0], tetra[face][1], tetra[face][2]};
        if (corners == 6) return face < 2 ? std::vector<unsigned>{wedge[face][0], wedge[face][1], wedge[face][2]}
                                          : std::vector<unsigned>{wedge[face][0], wedge[face][1], wedge[face][2], wedge[face][3]};
        return {hexa[face][0], hexa[face][1], hexa[face][2], hexa[face][3]};
    }

    // The face as a library face element, its normal turned out of the element.
    deck_pressure face_of(deck_element el, unsigned face, double value) const
    {
        const element_kind& kind = *block_kinds_[el.block];
        const unsigned n = nbr_nodes(kind.type);
        const unsigned* cell = blocks_[el.block].data() + std::size_t(el.cell) * n;
        std::vector<unsigned> lib; // library corner numbers of the face
        for (unsigned dc : deck_face(kind.corners, face - 1))
            lib.push_back(unsigned(std::find(kind.corner_of.begin(), kind.corner_of.end(), dc) - kind.corner_of.begin()));
        // Out of the element: the face's normal away from the element's centre.
        double centre[3] = {}, middle[3] = {}, a[3], b[3];
        for (unsigned c = 0; c < kind.corners; ++c)
            for (unsigned k = 0; k < 3; ++k) centre[k] += at(cell[c])[k] / kind.corners;
        for (unsigned c : lib)
            for (unsigned k = 0; k < 3; ++k) middle[k] += at(cell[c])[k] / double(lib.size());
        const unsigned m = unsigned(lib.size());
        for (unsigned k = 0; k < 3; ++k) {
            a[k] = at(cell[lib[2]])[k] - at(cell[lib[0]])[k];
            b[k] = at(cell[lib[m == 4 ? 3 : 2]])[k] - at(cell[lib[m == 4 ? 1 : 0]])[k];
        }
        if (m == 3)
            for (unsigned k = 0; k < 3; ++k) a[k] = at(cell[lib[1]])[k] - at(cell[lib[0]])[k];
        const double normal[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
        double out = 0.0;
        for (unsigned k = 0; k < 3; ++k) out += normal[k] * (middle[k] - centre[k]);
        if (out < 0.0) std::reverse(lib.begin() + 1, lib.end());
        deck_pressure p{el, face, value, element_none, {}};
        for (unsigned c = 0; c < m; ++c) p.nodes[c] = cell[lib[c]];
        const bool quadratic = !kind.lib_extra.empty();
        p.face_type = m == 3 ? (quadratic ? element_faceT6 : element_faceT3) : (quadratic ? element_faceQ9 : element_faceQ4);
        if (!quadratic) return p;
        // The library node in the middle of library corners i and j, or of the face.
        const auto extra = [&](std::vector<unsigned> g) {
            std::sort(g.begin(), g.end());
            for (std::size_t x = 0; x < kind.lib_extra.size(); ++x) {
                std::vector<unsigned> h = kind.lib_extra[x];
                std::sort(h.begin(), h.end());
                if (h == g) return cell[kind.corners + x];
            }
            return cell[0]; // unreachable: every face's edges and centre are listed
        };
        if (m == 3) {
            // Mid-edge node k + 3 of a triangle lies opposite corner k.
            for (unsigned c = 0; c < 3; ++c) p.nodes[3 + c] = extra({lib[(c + 1) % 3], lib[(c + 2) % 3]});
        } else {
            for (unsigned c = 0; c < 4; ++c) p.nodes[4 + c] = extra({lib[c], lib[(c + 1) % 4]});
            p.nodes[8] = extra(lib);
        }
        return p;
    }

    void procedure(const card& c)
    {
        if (procedure_) fail("a second procedure in one step");
        if (keyword_ == "STATIC") {
            only(c, {"SOLVER"});
            step_.procedure = deck_procedure::static_linear;
        } else {
            only(c, {"STEADY STATE", "SOLVER"});
            if (!c.get("STEADY STATE")) refuse("a transient heat transfer (without STEADY STATE)");
            step_.procedure = deck_procedure::heat_steady;
        }
        if (const std::string* s = c.get("SOLVER")) {
            const std::string u = upper(*s);
            if (u != "SPOOLES" && u != "PARDISO" && u != "PASTIX" && u != "DEFAULT")
                refuse("SOLVER=" + u + " (an iterative solve)");
        }
        procedure_ = true;
        std::vector<std::string_view> f;
        while (data_line(f)) {} // increments: a linear step is solved once
    }

    void output(const card& c)
    {
        only(c, {"NSET", "ELSET", "TOTALS", "GLOBAL", "FREQUENCY", "OUTPUT"});
        deck_output out;
        out.card = keyword_;
        const bool of_nodes = keyword_ == "NODE PRINT" || keyword_ == "NODE FILE";
        if (const std::string* s = c.get(of_nodes ? "NSET" : "ELSET")) {
            out.set = upper(*s);
            if (!find_set(of_nodes ? d_.node_sets : d_.element_sets, out.set)) fail("unknown set " + out.set);
        } else if (keyword_ == "NODE PRINT" || keyword_ == "EL PRINT") {
            fail(std::string("needs ") + (of_nodes ? "NSET=" : "ELSET="));
        }
        if (const std::string* t = c.get("TOTALS")) {
            const std::string u = upper(*t);
            if (u == "ONLY") refuse("TOTALS=ONLY");
            out.totals = u == "YES";
        }
        static const std::vector<std::string> node_vars = {"U", "NT", "RF"}, el_vars = {"S", "E", "HFL", "EVOL"};
        std::vector<std::string_view> f;
        bool any = false;
        while (data_line(f)) {
            for (std::string_view v : f) {
                const std::string u = upper(v);
                const std::vector<std::string>& known = of_nodes ? node_vars : el_vars;
                if (std::find(known.begin(), known.end(), u) == known.end()) refuse("the variable " + u);
                out.variables.push_back(u);
                any = true;
            }
        }
        if (!any) out.variables.push_back(of_nodes ? "U" : "S");
        step_.outputs.push_back(std::move(out));
    }
};

} // namespace

const deck_set* deck_data::node_set(std::string_view name) const noexcept { return find_set(node_sets, name); }
const deck_set* deck_data::element_set(std::string_view name) const noexcept { return find_set(element_sets, name); }
const deck_material* deck_data::material(std::string_view name) const noexcept
{
    const std::string u = upper(name);
    for (const deck_material& m : materials)
        if (m.name == u) return &m;
    return nullptr;
}

file_status read_deck(const std::string& path, deck_data& out)
{
    try {
        deck_data d;
        deck_reader r(d);
        r.read_file(path, 0);
        out = std::move(d);
    } catch (const nested_fault& f) {
        return f.status;
    } catch (const std::bad_alloc&) {
        file_status st;
        st.code = memory_error;
        st.file = path;
        st.text = path + ": not enough memory to read it";
        return st;
    }
    file_status st;
    st.file = path;
    return st;
}

} // namespace kelt::io
