// The context: created first by a host, it holds the managers and settings that
// every model and run of one analysis share.
#pragma once

#include "kelt/core/types.h"
#include "kelt/fem/base_class.h"
#include "kelt/fem/bases_mgr.h"
#include "kelt/fem/evolution_funcs_mgr.h"
#include "kelt/fem/numerical_models_mgr.h"

namespace kelt::fem {

class context : public base_class {
public:
    context();

    double get_raw_penalty_factor() const;
    void set_raw_penalty_factor(double f);
    double get_min_penalty_factor() const;
    void set_min_penalty_factor(double f);
    double get_shell_drilling_factor() const;
    void set_shell_drilling_factor(double f);

    // Threads of every parallel region: at most what OpenMP offers, at least 1.
    unsigned get_max_threads() const;
    void set_max_threads(unsigned n);
    // Last-level cache in bytes, which sizes the blocking of the factorisation.
    unsigned get_LLC_size() const;
    void set_LLC_size(unsigned bytes);
    // Limit in megabytes on the memory a run may estimate.
    void set_max_total_size(unsigned mb);
    // In-core budget in megabytes for the large arrays; 0 or 0xFFFFFFFF keeps all
    // in core. Swap files go to path + name (defaults "/" and "tmp/").
    [[nodiscard]] error_type set_max_incore_size(unsigned mb, const char* path = nullptr, const char* name = nullptr);
    [[nodiscard]] error_type memory_management(unsigned mb, const char* path = nullptr, const char* name = nullptr);

    numerical_models_mgr the_NM_mgr() const;
    bases_mgr the_bases_mgr() const;
    evolution_funcs_mgr the_evol_funcs_mgr() const;
};

// The library's version text.
const char* version();

} // namespace kelt::fem
