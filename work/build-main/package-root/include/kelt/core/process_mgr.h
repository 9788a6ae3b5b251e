// What the library knows of the processor: threads for its parallel regions and
// the last-level cache size that sizes the blocking of the factorisation.
#pragma once

#include <string>
#include <vector>

#include "kelt/core/ref_counted.h"

namespace kelt::core {

struct processor_info {
    std::string vendor;
    bool hyper_threading = false;
    // Cache sizes in bytes indexed by level; entry 0 unused, at least 4 entries.
    std::vector<unsigned> cache_sizes = std::vector<unsigned>(4, 0);
};

// Queried once per process.
const processor_info& the_processor();

// Reading of the processor by CPUID (Intel leaf 4, AMD leaves 0x80000005/6); on
// other processors, or if neither vendor matches, the cache sizes come from sysfs.
processor_info query_processor();
processor_info query_sysfs_caches();

class process_mgr : public ref_counted {
public:
    process_mgr();
    // Start-up rule, given what the processor reports and what OpenMP offers.
    void configure(const processor_info& cpu, int logical_procs, int omp_max_threads);

    void set_max_threads(unsigned n);
    void set_LLC_size(unsigned bytes);

    unsigned nbr_cores = 1;
    unsigned max_threads = 1;
    unsigned max_total_size = 0xFFFFFFFF; // megabytes
    unsigned LLC_size = 0x100000;         // bytes
};

} // namespace kelt::core
