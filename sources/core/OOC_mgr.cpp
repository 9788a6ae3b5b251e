#include "kelt/core/OOC_mgr.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <numeric>

#include "kelt/core/context.h"

namespace kelt::core {

void sector_buffer::release() noexcept
{
    std::free(data_);
    data_ = nullptr;
    capacity_ = alignment_ = 0;
}

error_type sector_buffer::reserve(std::size_t bytes, std::size_t alignment) noexcept
{
    if (bytes <= capacity_ && alignment_ % alignment == 0 && data_) return no_error;
    release();
    if (bytes == 0) return no_error;
    // A large buffer goes on huge pages where the system offers them: the matrix is
    // reached at random during assembly, and small pages would cost a TLB miss each.
    constexpr std::size_t huge_page = std::size_t(2) << 20;
    if (bytes >= 4 * huge_page) alignment = std::max(alignment, huge_page);
    const std::size_t rounded = (bytes + alignment - 1) / alignment * alignment;
    data_ = std::aligned_alloc(alignment, rounded);
    if (!data_) return memory_error;
    if (alignment >= huge_page) (void)::madvise(data_, rounded, MADV_HUGEPAGE);
    capacity_ = rounded;
    alignment_ = alignment;
    return no_error;
}

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
    if (disk.f_bsize >= 512 && disk.f_bsize <= (1u << 20) && (disk.f_bsize & (disk.f_bsize - 1)) == 0)
        sector_size = unsigned(disk.f_bsize);
    // A folder that cannot take files is refused now rather than at the first swap.
    struct stat folder;
    if (::stat(path, &folder) != 0 || !S_ISDIR(folder.st_mode) || ::access(path, W_OK | X_OK) != 0)
        return temp_file_error;
    return no_error;
}

namespace {

error_type io_error(int code) noexcept
{
    return code == ENOMEM || code == ENOSPC || code == EDQUOT || code == EFBIG ? memory_error : internal_error;
}

} // namespace

error_type temp_dir_type::create_swap_file(const char* prefix, std::uint64_t bytes, unsigned extra_sectors,
                                           char* name_out, int& handle_out) const
{
    handle_out = -1;
    const std::uint64_t length = round_up(std::uint64_t(sector_size) * extra_sectors + bytes);
    char name[path_capacity];
    const std::size_t dir_len = std::strlen(path);
    const bool slash = dir_len && path[dir_len - 1] == '/';
    if (std::snprintf(name, sizeof name, "%s%s%sXXXXXX", path, slash ? "" : "/", prefix) >= int(sizeof name))
        return temp_file_error;
    // A unique name and an exclusive creation in one call; the name goes at once,
    // so the file lives only as long as its handle.
    const int fd = ::mkostemp(name, O_CLOEXEC);
    if (fd < 0) return temp_file_error;
    ::unlink(name);
    if (::ftruncate(fd, off_t(length)) != 0) {
        const int code = errno;
        ::close(fd);
        return code == EFBIG || code == ENOSPC || code == EDQUOT || code == ENOMEM ? memory_error : temp_file_error;
    }
    std::memcpy(name_out, name, sizeof name);
    handle_out = fd;
    return no_error;
}

void temp_dir_type::delete_swap_file(const char*, int& handle) const noexcept
{
    if (handle != -1) ::close(handle);
    handle = -1;
}

namespace {

// Moves the sectors [from, to) of a file to or from `buffer`, in pieces of at most
// `piece` bytes.
template <class Transfer>
error_type transfer_sectors(Transfer&& move, std::uint64_t from, std::uint64_t to, std::size_t piece) noexcept
{
    for (std::uint64_t at = from; at < to;) {
        const std::size_t n = std::size_t(std::min<std::uint64_t>(piece, to - at));
        const ssize_t done = move(at - from, n, off_t(at));
        if (done < 0 && errno == EINTR) continue;
        if (done < 0) return io_error(errno);
        if (done == 0) return internal_error;
        at += std::uint64_t(done);
    }
    return no_error;
}

} // namespace

bool temp_dir_type::fits(const void* buffer, std::size_t capacity, std::uint64_t position, std::size_t bytes) const noexcept
{
    return position % 8 == 0 && reinterpret_cast<std::uintptr_t>(buffer) % sector_size == 0 &&
           round_up(position + bytes) - round_down(position) <= capacity;
}

error_type temp_dir_type::read_range(void* buffer, std::size_t capacity, int file, std::uint64_t position,
                                     std::size_t bytes, char*& view_out) const noexcept
{
    view_out = nullptr;
    if (!fits(buffer, capacity, position, bytes)) return internal_error;
    char* out = static_cast<char*>(buffer);
    const auto read = [&](std::uint64_t offset, std::size_t n, off_t at) { return ::pread(file, out + offset, n, at); };
    if (auto e = transfer_sectors(read, round_down(position), round_up(position + bytes), std::size_t(round_up(transfer_size)));
        e != no_error)
        return e;
    view_out = out + (position - round_down(position));
    return no_error;
}

error_type temp_dir_type::write_range(const void* buffer, std::size_t capacity, int file, std::uint64_t position,
                                      std::size_t bytes) const noexcept
{
    if (!fits(buffer, capacity, position, bytes)) return internal_error;
    const char* in = static_cast<const char*>(buffer);
    const auto write = [&](std::uint64_t offset, std::size_t n, off_t at) { return ::pwrite(file, in + offset, n, at); };
    return transfer_sectors(write, round_down(position), round_up(position + bytes), std::size_t(round_up(transfer_size)));
}

OOC_mgr::OOC_mgr() { (void)temp_dir.set_path(nullptr, nullptr); }

OOC_mgr::~OOC_mgr()
{
    // Arrays still registered come wholly back in core before the budget goes.
    max_incore_size = no_limit;
    if (compute_allocations() == no_error) (void)apply_allocations(nullptr);
    for (auto& list : lists) list.clear();
}

error_type OOC_mgr::set_limit(std::uint64_t bytes, const char* path, const char* name)
{
    files_created = 0;
    if (bytes == 0) {
        max_incore_size = no_limit;
        return no_error;
    }
    if (bytes != no_limit)
        if (auto e = temp_dir.set_path(path, name); e != no_error) return e;
    max_incore_size = bytes;
    return no_error;
}

std::uint64_t OOC_mgr::find_allocation(const swap_array* array) const noexcept
{
    for (const auto& list : lists)
        for (const swap_entry_type& e : list)
            if (e.array == array) return e.assigned_bytes;
    return 0;
}

error_type OOC_mgr::create_file(std::uint64_t bytes, unsigned extra_sectors, char* name_out, int& handle_out)
{
    const error_type e = temp_dir.create_swap_file("kelt", bytes, extra_sectors, name_out, handle_out);
    ++files_created;
    return e;
}

void OOC_mgr::delete_file(const char* name, int& handle) noexcept { temp_dir.delete_swap_file(name, handle); }

error_type OOC_mgr::compute_allocations()
{
    std::vector<swap_entry_type*> all;
    for (auto& list : lists)
        for (swap_entry_type& e : list) all.push_back(&e);
    const std::size_t N = all.size();
    if (N == 0) return no_error;
    std::uint64_t sum_min = 0, sum_max = 0;
    for (const swap_entry_type* e : all) sum_min += e->min_bytes, sum_max += e->max_bytes;
    const std::uint64_t B = max_incore_size;
    if (sum_min > B) return insufficient_memory_error;
    if (sum_max <= B) {
        for (swap_entry_type* e : all) e->assigned_bytes = e->max_bytes;
        return no_error;
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const swap_entry_type* a, const swap_entry_type* b) { return a->max_bytes < b->max_bytes; });
    std::uint64_t R = B, M = sum_min;
    for (std::size_t i = 0; i < N; ++i) {
        swap_entry_type& e = *all[i];
        std::uint64_t a = R / (N - i);
        a = std::max<std::uint64_t>(std::min<std::uint64_t>(a, e.max_bytes), e.min_bytes);
        const std::uint64_t cap = e.min_bytes + R - M; // what is left when the later entries keep their minimum
        a = std::min(a, cap);
        if (e.whole_multiple && e.min_bytes) a -= a % e.min_bytes;
        std::uint64_t charge = a;
        if (a < e.max_bytes && a > e.max_bytes / 2 && e.max_bytes < cap) a = charge = e.max_bytes;
        e.assigned_bytes = a;
        R -= charge;
        M -= e.min_bytes;
    }
    return no_error;
}

error_type OOC_mgr::apply_allocations(const swap_array* except)
{
    // Every array gets its share even after a failure; the first failure is the one reported.
    error_type first = no_error;
    for (auto& list : lists)
        for (const swap_entry_type& e : list)
            if (e.array != except)
                if (const error_type r = e.array->allocate(e.assigned_bytes, nullptr); first == no_error) first = r;
    return first;
}

error_type OOC_mgr::update_array(swap_array* array, unsigned kind, std::uint64_t max_bytes,
                                 std::uint64_t min_bytes, const void* init)
{
    if (kind > swap_skyline) return internal_error;
    omp_guard hold(lock);
    std::vector<swap_entry_type>& list = lists[kind];
    auto at = std::find_if(list.begin(), list.end(), [&](const swap_entry_type& e) { return e.array == array; });
    if (at != list.end()) {
        if (max_bytes) {
            at->max_bytes = max_bytes;
            at->min_bytes = min_bytes;
            at->assigned_bytes = 0;
        } else {
            list.erase(at);
        }
    } else if (max_bytes) {
        list.push_back({array, min_bytes, max_bytes, 0, kind != swap_skyline});
    }
    error_type e = compute_allocations();
    if (e == no_error) e = apply_allocations(array);
    if (e == no_error && array && max_bytes) {
        const std::uint64_t bytes = find_allocation(array);
        e = array->allocate(bytes, init);
        if (e == no_error && bytes < min_bytes) e = insufficient_memory_error;
    }
    // A distribution that failed cannot be trusted for any array.
    if (e != no_error)
        for (auto& l : lists) l.clear();
    return e;
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
    return mgr->set_limit(bytes >= 4294967295.0 ? OOC_mgr::no_limit : std::uint64_t(bytes), path, name);
}

} // namespace kelt::core
