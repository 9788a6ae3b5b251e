// An OpenMP lock owned by an object, and a guard that holds it for a scope.
#pragma once

#include <omp.h>

namespace kelt::core {

class omp_mutex {
public:
    omp_mutex() noexcept { omp_init_lock(&lock_); }
    ~omp_mutex() { omp_destroy_lock(&lock_); }
    omp_mutex(const omp_mutex&) = delete;
    omp_mutex& operator=(const omp_mutex&) = delete;

    void lock() noexcept { omp_set_lock(&lock_); }
    void unlock() noexcept { omp_unset_lock(&lock_); }

private:
    omp_lock_t lock_;
};

class omp_guard {
public:
    explicit omp_guard(omp_mutex& m) noexcept : m_(m) { m_.lock(); }
    ~omp_guard() { m_.unlock(); }
    omp_guard(const omp_guard&) = delete;
    omp_guard& operator=(const omp_guard&) = delete;

private:
    omp_mutex& m_;
};

} // namespace kelt::core
