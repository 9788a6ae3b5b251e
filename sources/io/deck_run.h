// A deck's steps run with the library's solvers, and the `.dat` file of the nodal
// values its print cards ask for, in the layout other solvers of such decks write.
#pragma once

#include <string>
#include <vector>

#include "kelt/io/deck.h"
#include "kelt/io/file_status.h"
#include "kelt/math/dense2D.h"

namespace kelt::io {

struct deck_run_options {
    unsigned threads = 0;   // 0: the context's default
    unsigned memory_MB = 0; // 0: no limit
    // One line a phase, with its time; null for none.
    void (*log)(void* user, const char* line) = nullptr;
    void* user = nullptr;
};

// The nodal result of one step: 3 x nodes displacements of a static step, 1 x nodes
// temperatures of a heat transfer step (0 at nodes no element holds).
struct deck_step_result {
    deck_procedure procedure = deck_procedure::static_linear;
    double time = 0.0; // the step's end, counted over the steps
    dense2D<double> values;
    dense2D<double> forces; // static steps: 3 x nodes internal forces K u (reactions where held)
};

// Runs every step; the status names the deck and the step on a fault.
file_status run_deck(const std::string& deck_path, const deck_data& deck, const deck_run_options& options,
                     std::vector<deck_step_result>& results);

// The values the `*NODE PRINT` cards ask for, step after step, nodes by number.
// What is not written yet (element values, sums over a set other than the forces
// of a static step) is named in `skipped`.
file_status write_deck_dat(const std::string& path, const deck_data& deck, const std::vector<deck_step_result>& results,
                           std::vector<std::string>& skipped);

} // namespace kelt::io
