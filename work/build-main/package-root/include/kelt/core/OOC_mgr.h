// The in-core memory budget shared by the large arrays of a run, the folder of
// their swap files, and the sector-aligned transfers between the two.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kelt/core/omp_lock.h"
#include "kelt/core/ref_counted.h"
#include "kelt/core/types.h"

namespace kelt::core {

class context_type;

// A buffer whose start lies on a sector boundary and whose capacity is a whole
// number of sectors, so that windows move to and from disk in whole sectors.
class sector_buffer {
public:
    sector_buffer() = default;
    sector_buffer(const sector_buffer&) = delete;
    sector_buffer& operator=(const sector_buffer&) = delete;
    ~sector_buffer() { release(); }

    void* data() const noexcept { return data_; }
    std::size_t capacity() const noexcept { return capacity_; }
    void release() noexcept;
    // At least `bytes` of room aligned on `alignment`; the contents are not kept.
    [[nodiscard]] error_type reserve(std::size_t bytes, std::size_t alignment) noexcept;

private:
    void* data_ = nullptr;
    std::size_t capacity_ = 0, alignment_ = 0;
};

struct temp_dir_type {
    static constexpr unsigned path_capacity = 256;
    static constexpr std::size_t transfer_size = 0x400000;
    char path[path_capacity] = {};
    unsigned sector_size = 512;

    // The folder is `path` followed by `name`; null or empty parts take the
    // defaults "/" and "tmp/". The block size comes from the file system of `path`.
    [[nodiscard]] error_type set_path(const char* path, const char* name);

    // A new swap file of `bytes` plus `extra_sectors` sectors, whose name is gone
    // from the folder at once: the file disappears when closed, even by a crash.
    [[nodiscard]] error_type create_swap_file(const char* prefix, std::uint64_t bytes, unsigned extra_sectors,
                                              char* name_out, int& handle_out) const;
    void delete_swap_file(const char* name, int& handle) const noexcept;

    // Room for `bytes` plus `extra_sectors` sectors, rounded to whole sectors.
    [[nodiscard]] error_type aligned_resize(sector_buffer& buffer, std::size_t bytes, unsigned extra_sectors) const
    {
        return buffer.reserve(round_up(bytes + std::size_t(extra_sectors) * sector_size), sector_size);
    }

    // Reads `bytes` from `position` (a multiple of 8) by whole sectors into the
    // start of `buffer`; `view_out` is where the byte at `position` landed.
    [[nodiscard]] error_type read_range(void* buffer, std::size_t capacity, int file, std::uint64_t position,
                                        std::size_t bytes, char*& view_out) const noexcept;
    // Writes back the sectors that hold `bytes` from `position`, from the buffer
    // as `read_range` left it.
    [[nodiscard]] error_type write_range(const void* buffer, std::size_t capacity, int file, std::uint64_t position,
                                         std::size_t bytes) const noexcept;

    // True when `bytes` from `position` (a multiple of 8), rounded to whole sectors,
    // fit in a sector-aligned buffer of `capacity` bytes.
    bool fits(const void* buffer, std::size_t capacity, std::uint64_t position, std::size_t bytes) const noexcept;
    std::uint64_t round_down(std::uint64_t v) const noexcept { return v - v % sector_size; }
    std::uint64_t round_up(std::uint64_t v) const noexcept { return round_down(v + sector_size - 1); }
};

// An array whose memory the budget decides.
class swap_array {
public:
    // Uses `bytes` from now on; a non-null `init` builds the storage from scratch.
    [[nodiscard]] virtual error_type allocate(std::uint64_t bytes, const void* init) = 0;

protected:
    ~swap_array() = default;
};

struct swap_entry_type {
    swap_array* array = nullptr; // not owned: the array holds the manager
    std::uint64_t min_bytes = 0;
    std::uint64_t max_bytes = 0;
    std::uint64_t assigned_bytes = 0;
    bool whole_multiple = false;
};

// Array kinds, numbered as the lists.
enum swap_kind : unsigned { swap_dense_real = 0, swap_dense_complex = 1, swap_skyline = 2 };

class OOC_mgr : public ref_counted {
public:
    OOC_mgr();
    ~OOC_mgr() override;

    // The budget of a manager without limit: every array stays wholly in core.
    static constexpr std::uint64_t no_limit = ~std::uint64_t(0);

    // `bytes` 0 or `no_limit`: no limit. Otherwise the swap folder is set up first,
    // and on failure the budget stays as it was.
    [[nodiscard]] error_type set_limit(std::uint64_t bytes, const char* path, const char* name);

    // Joins, updates (new bounds) or, with `max_bytes` 0, removes an array; then
    // shares the budget again among all arrays and applies the shares. A failed
    // distribution forgets every array.
    [[nodiscard]] error_type update_array(swap_array* array, unsigned kind, std::uint64_t max_bytes,
                                          std::uint64_t min_bytes, const void* init);
    std::uint64_t find_allocation(const swap_array* array) const noexcept;

    [[nodiscard]] error_type create_file(std::uint64_t bytes, unsigned extra_sectors, char* name_out, int& handle_out);
    void delete_file(const char* name, int& handle) noexcept;

    // Small arrays first, each an equal share of what is left; an array given more
    // than half its size goes wholly in core when that fits.
    [[nodiscard]] error_type compute_allocations();
    [[nodiscard]] error_type apply_allocations(const swap_array* except);

    std::size_t nbr_arrays() const noexcept { return lists[0].size() + lists[1].size() + lists[2].size(); }

    temp_dir_type temp_dir;
    std::atomic<int> files_created{0};
    std::uint64_t max_incore_size = no_limit; // bytes
    std::vector<swap_entry_type> lists[3];
    omp_mutex lock;
};

// The context's manager, or null when every array stays in core.
OOC_mgr* the_OOC_mgr(const context_type& context) noexcept;

// Drops the context's manager; with a limit other than 0 or 0xFFFFFFFF megabytes
// attaches a new one bound to the swap folder. A limit of 0xFFFFFFFF bytes or more
// gives a manager without limit.
[[nodiscard]] error_type set_max_incore_size(context_type& context, unsigned mb, const char* path,
                                             const char* name);

} // namespace kelt::core
