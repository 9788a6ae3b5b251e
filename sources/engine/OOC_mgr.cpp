#include "kelt/engine/OOC_mgr.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstring>
#include <new>

#include "kelt/core/context.h"

namespace kelt::core {

error_type temp_dir_type::set_path(const char* root, const char* name)
{
    if (!root || !*root) root = "/";
    if (!name || !*name) name = "tmp/";
    sector_size = 512;
    const std::size_t root_len = std::strlen(root), name_len = std::strlen(name);
    if (root_len + name_len >= path_capacity) return temp_file_error;
    std::memcpy(path, root, root_len);
    std::memcpy(path + root_len, name, name_len + 1);

    struct statvfs disk;
    if (::statvfs(root, &disk) != 0) return temp_file_error;
    if (disk.f_bsize >= 512 && disk.f_bsize <= (1u << 20)) sector_size = unsigned(disk.f_bsize);
    // A folder that cannot take files is refused now rather than at the first swap.
    struct stat folder;
    if (::stat(path, &folder) != 0 || !S_ISDIR(folder.st_mode) || ::access(path, W_OK | X_OK) != 0)
        return temp_file_error;
    return no_error;
}

OOC_mgr::OOC_mgr() { (void)temp_dir.set_path(nullptr, nullptr); }

error_type OOC_mgr::set_limit(unsigned bytes, const char* path, const char* name)
{
    files_created = 0;
    if (bytes == 0) {
        max_incore_size = 0xFFFFFFFF;
        return no_error;
    }
    if (bytes != 0xFFFFFFFF)
        if (auto e = temp_dir.set_path(path, name); e != no_error) return e;
    max_incore_size = bytes;
    return no_error;
}

OOC_mgr* the_OOC_mgr(const context_type& context) noexcept
{
    return static_cast<OOC_mgr*>(context.OOC_mgr.get());
}

error_type set_max_incore_size(context_type& context, unsigned mb, const char* path, const char* name)
{
    context.OOC_mgr = nullptr;
    if (mb == 0 || mb == 0xFFFFFFFF) return no_error;
    OOC_mgr* mgr = new OOC_mgr;
    context.OOC_mgr = mgr;
    const double bytes = double(mb) * 1048576.0;
    return mgr->set_limit(bytes >= 4294967295.0 ? 0xFFFFFFFFu : unsigned(bytes), path, name);
}

} // namespace kelt::core
