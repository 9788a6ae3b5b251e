#include "kelt/core/process_mgr.h"

#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#define KELT_HAS_CPUID 1
#endif

namespace kelt::core {

namespace {

void set_level(processor_info& info, unsigned level, unsigned bytes)
{
    if (level >= info.cache_sizes.size()) info.cache_sizes.resize(level + 1, 0);
    info.cache_sizes[level] = bytes;
}

#ifdef KELT_HAS_CPUID
struct regs {
    unsigned a = 0, b = 0, c = 0, d = 0;
};

regs cpuid(unsigned leaf, unsigned sub = 0)
{
    regs r;
    __cpuid_count(leaf, sub, r.a, r.b, r.c, r.d);
    return r;
}

void intel_caches(processor_info& info)
{
    for (unsigned sub = 0;; ++sub) {
        const regs r = cpuid(4, sub);
        if (r.a == 0xFFFFFFFFu || ((r.a >> 4) & 0xF) == 0) break;
        const unsigned type = r.a & 0x1F;
        if (type != 1 && type != 3) continue;
        const unsigned level = (r.a >> 5) & 0x7;
        const unsigned line = (r.b & 0xFFF) + 1;
        const unsigned partitions = ((r.b >> 12) & 0x3FF) + 1;
        const unsigned ways = ((r.b >> 22) & 0x3FF) + 1;
        const unsigned long long bytes = (unsigned long long)(r.c + 1ull) * partitions * line * ways;
        set_level(info, level, unsigned(std::min(bytes, 0xFFFFFFFFull)));
    }
}

void amd_caches(processor_info& info, unsigned max_extended)
{
    if (max_extended >= 0x80000005u) set_level(info, 1, ((cpuid(0x80000005u).c >> 24) & 0xFF) * 1024u);
    if (max_extended >= 0x80000006u) {
        const regs r = cpuid(0x80000006u);
        set_level(info, 2, ((r.c >> 16) & 0xFFFF) * 1024u);
        set_level(info, 3, ((r.d >> 18) & 0x3FFF) * 524288u);
    }
}
#endif

unsigned parse_size(const std::string& text)
{
    unsigned long long v = 0;
    char unit = 0;
    if (std::sscanf(text.c_str(), "%llu%c", &v, &unit) < 1) return 0;
    if (unit == 'K' || unit == 'k') v <<= 10;
    if (unit == 'M' || unit == 'm') v <<= 20;
    return unsigned(std::min(v, 0xFFFFFFFFull));
}

// The CPUID flag only says that the package can hold several threads per core
// (virtual machines set it with one thread per core): where the kernel tells the
// real sibling count, that count decides.
void apply_sysfs_siblings(processor_info& info)
{
    std::ifstream file("/sys/devices/system/cpu/cpu0/topology/thread_siblings_list");
    std::string list;
    if (!(file >> list)) return;
    unsigned count = 0, first = 0, last = 0;
    for (const char* p = list.c_str(); *p;) {
        int used = 0;
        if (std::sscanf(p, "%u-%u%n", &first, &last, &used) == 2 && used > 0)
            count += last >= first ? last - first + 1 : 1;
        else if (std::sscanf(p, "%u%n", &first, &used) == 1 && used > 0)
            count += 1;
        else
            break;
        p += used;
        if (*p == ',') ++p;
    }
    if (count > 0) info.hyper_threading = count > 1;
}

} // namespace

processor_info query_sysfs_caches()
{
    processor_info info;
    for (unsigned index = 0; index < 16; ++index) {
        const std::string dir = "/sys/devices/system/cpu/cpu0/cache/index" + std::to_string(index) + "/";
        std::ifstream level_file(dir + "level"), type_file(dir + "type"), size_file(dir + "size");
        if (!level_file || !type_file || !size_file) break;
        unsigned level = 0;
        std::string type, size;
        level_file >> level;
        type_file >> type;
        size_file >> size;
        if (level == 0 || level > 8 || (type != "Data" && type != "Unified")) continue;
        set_level(info, level, parse_size(size));
    }
    return info;
}

processor_info query_processor()
{
#ifdef KELT_HAS_CPUID
    processor_info info;
    const regs r0 = cpuid(0);
    char vendor[13] = {};
    std::memcpy(vendor + 0, &r0.b, 4);
    std::memcpy(vendor + 4, &r0.d, 4);
    std::memcpy(vendor + 8, &r0.c, 4);
    info.vendor = vendor;
    if (r0.a >= 1) info.hyper_threading = (cpuid(1).d >> 28) & 1;
    const unsigned max_extended = cpuid(0x80000000u).a;
    if (info.vendor == "GenuineIntel" && max_extended >= 0x80000004u && r0.a >= 4)
        intel_caches(info);
    else if (info.vendor == "AuthenticAMD")
        amd_caches(info, max_extended);
    else {
        processor_info sys = query_sysfs_caches();
        sys.vendor = info.vendor;
        sys.hyper_threading = info.hyper_threading;
        return sys;
    }
    return info;
#else
    return query_sysfs_caches();
#endif
}

const processor_info& the_processor()
{
    static const processor_info info = [] {
        processor_info cpu = query_processor();
        apply_sysfs_siblings(cpu);
        return cpu;
    }();
    return info;
}

process_mgr::process_mgr() { configure(the_processor(), omp_get_num_procs(), omp_get_max_threads()); }

void process_mgr::configure(const processor_info& cpu, int logical_procs, int omp_max_threads)
{
    nbr_cores = 1;
    max_threads = 1;
    max_total_size = 0xFFFFFFFF;
    LLC_size = 0x100000;
    int logical = logical_procs;
    int cores = cpu.hyper_threading ? logical / 2 : logical;
    logical = std::max(logical, 1);
    cores = std::max(cores, 1);
    LLC_size = cpu.cache_sizes.empty() ? 0 : cpu.cache_sizes.back();
    if (LLC_size == 0) LLC_size = unsigned(logical) << 20;
    nbr_cores = unsigned(cores);
    max_threads = unsigned(std::max(std::min(omp_max_threads, cores), 1));
}

void process_mgr::set_max_threads(unsigned n)
{
    const unsigned omp_max = unsigned(std::max(omp_get_max_threads(), 1));
    max_threads = std::max(std::min(n, omp_max), 1u);
}

void process_mgr::set_LLC_size(unsigned bytes) { LLC_size = std::max(bytes, 102400u); }

} // namespace kelt::core
