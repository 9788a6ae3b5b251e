// What a run will need, known from the numbering alone, before anything is
// assembled: the factor's size and arithmetic, the memory it holds at its peak,
// whether the context's budget sends it to disk and how much it then writes, and
// the time of its factorisation on this machine.
#pragma once

#include <cstdint>

namespace kelt::fem {

struct run_estimate {
    unsigned nbr_free_DOFs = 0;
    std::uint64_t factor_bytes = 0;       // values of K, factored in place: what the run allocates for them
    std::uint64_t factor_index_bytes = 0; // its segment tables
    double factor_flops = 0.0;            // of the factorisation, a multiply-add counted as two
    unsigned nbr_matrices = 0;            // K, and its unfactored copy when a case holds a DOF of K
    std::uint64_t states_bytes = 0;       // the solution columns
    std::uint64_t peak_incore_bytes = 0;  // all of that in core, or what the budget lets stay
    std::uint64_t least_incore_bytes = 0; // the windows without which the run cannot work
    std::uint64_t budget_bytes = 0;       // the context's in-core budget, 0 when none is set
    bool out_of_core = false;             // some array goes to a swap file under the budget
    std::uint64_t disk_bytes = 0;         // written to swap files then
    std::uint64_t disk_free_bytes = 0;    // free in the swap folder (when out of core)
    bool disk_free_known = false;         // false when the folder could not be asked
    double flop_rate = 0.0;               // flops a second of this machine's factorisation
    double factor_seconds = 0.0;          // factor_flops / flop_rate
};

} // namespace kelt::fem
