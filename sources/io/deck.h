// Keyword decks (`*NODE`, `*ELEMENT`, `*MATERIAL`, `*STEP` ...) read into the mesh,
// the materials and the steps a host turns into models and solver runs. A card that
// would change the answer and is not honoured stops the reading with its file, line,
// keyword and reason; a deck with any fault builds nothing.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "kelt/core/types.h"
#include "kelt/io/file_status.h"
#include "kelt/math/dense2D.h"

namespace kelt::io {

// The elements of one `*ELEMENT` card, in the library's type and node order.
struct deck_block {
    std::string deck_type; // as written, upper case ("C3D20R")
    element_type type = element_none;
    dense2D<unsigned> cells;               // nodes per element x elements (node ranks)
    std::vector<std::size_t> element_tags; // the deck's number of each element
};

// A named set of node ranks or element ranks, each once, in the order first given.
struct deck_set {
    std::string name; // upper case
    std::vector<unsigned> items;
};

// An element rank: its block and its column there.
struct deck_element {
    unsigned block = 0;
    unsigned cell = 0;
};

struct deck_material {
    std::string name;                         // upper case
    bool has_elastic = false, has_density = false, has_expansion = false, has_conductivity = false;
    double young = 0.0, poisson = 0.0;        // isotropic elasticity
    double density = 0.0;
    double expansion = 0.0, expansion_zero = 0.0; // secant coefficient and its reference temperature
    double conductivity = 0.0;
};

struct deck_section {
    std::string elset, material; // upper case
    unsigned line = 0;           // where it was given, for messages of the runner
};

// A prescribed value or a nodal force: `dof` 1 to 3 for translations, 11 for the
// temperature.
struct deck_nodal_value {
    unsigned node = 0;
    unsigned dof = 0;
    double value = 0.0;
};

// A pressure on face `face` (1 to 6, the deck's face numbers of the element type),
// pushing inwards when positive. `nodes` is the face as a face element of the
// library (`face_type`), ordered so that its normal points out of the element.
struct deck_pressure {
    deck_element element;
    unsigned face = 0;
    double value = 0.0;
    element_type face_type = element_none;
    std::array<unsigned, 9> nodes{};
};

// What to write: the card (`*NODE PRINT`, `*EL PRINT`, `*NODE FILE`), its set
// (empty: all) and variables (upper case).
struct deck_output {
    std::string card, set;
    std::vector<std::string> variables;
    bool totals = false; // TOTALS=YES: the sums over the set as well
};

enum class deck_procedure { static_linear, heat_steady };

// One step with every condition in force in it: those of the model and of the
// steps before it, unless a card with OP=NEW cleared them.
struct deck_step {
    deck_procedure procedure = deck_procedure::static_linear;
    unsigned line = 0;
    std::vector<deck_nodal_value> boundaries, forces;
    std::vector<deck_pressure> pressures;
    std::vector<deck_output> outputs;
};

// A node a conversion added (the centre of a face or of a brick): the deck's
// interpolation of its parents with their weights gives its place, and gives its
// value where all of them are held.
struct deck_added_node {
    unsigned node = 0;
    std::vector<unsigned> parents;
    std::vector<double> weights;
};

struct deck_data {
    dense2D<double> positions;          // 3 x nodes: the deck's, then those added by conversions
    std::vector<std::size_t> node_tags; // the deck's number of each node; 0 for an added one
    std::vector<deck_block> blocks;
    std::vector<deck_added_node> added_nodes;
    std::vector<deck_element> elements; // element ranks in the order defined
    std::vector<deck_set> node_sets, element_sets;
    std::vector<deck_material> materials;
    std::vector<deck_section> sections;
    std::vector<deck_nodal_value> initial_temperatures; // dof 11
    std::vector<deck_step> steps;
    std::vector<std::string> notes; // what the log says of the reading (conversions)

    // Null when absent; `name` in any case.
    const deck_set* node_set(std::string_view name) const noexcept;
    const deck_set* element_set(std::string_view name) const noexcept;
    const deck_material* material(std::string_view name) const noexcept;
};

// Reads the deck and the files it includes; on any fault `out` is left as it was
// and the status says in which file, on which line and why.
file_status read_deck(const std::string& path, deck_data& out);

} // namespace kelt::io
