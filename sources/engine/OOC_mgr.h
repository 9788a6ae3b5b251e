// The in-core memory budget shared by the large arrays of a run, and the folder
// of their swap files.
#pragma once

#include <atomic>

#include "kelt/core/ref_counted.h"
#include "kelt/core/types.h"

namespace kelt::core {

class context_type;

struct temp_dir_type {
    static constexpr unsigned path_capacity = 256;
    char path[path_capacity] = {};
    unsigned sector_size = 512;

    // The folder is `path` followed by `name`; null or empty parts take the
    // defaults "/" and "tmp/". The block size comes from the file system of `path`.
    [[nodiscard]] error_type set_path(const char* path, const char* name);
};

class OOC_mgr : public ref_counted {
public:
    OOC_mgr();

    // `bytes` 0 or 0xFFFFFFFF: no limit. Otherwise the swap folder is set up first,
    // and on failure the budget stays as it was.
    [[nodiscard]] error_type set_limit(unsigned bytes, const char* path, const char* name);

    temp_dir_type temp_dir;
    std::atomic<int> files_created{0};
    unsigned max_incore_size = 0xFFFFFFFF;
};

// The context's manager, or null when every array stays in core.
OOC_mgr* the_OOC_mgr(const context_type& context) noexcept;

// Drops the context's manager; with a limit other than 0 or 0xFFFFFFFF megabytes
// attaches a new one bound to the swap folder.
[[nodiscard]] error_type set_max_incore_size(context_type& context, unsigned mb, const char* path,
                                             const char* name);

} // namespace kelt::core
