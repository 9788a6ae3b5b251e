#!/usr/bin/env bash
# Builds the library and the element tests with ThreadSanitizer (clang 14 with its
# own OpenMP runtime, whose archer tool tells the sanitizer how OpenMP
# synchronises), then runs the element-loop and internal-state tests on 1 and 2
# threads. Exits non-zero on any failure or report. The OpenMP runtime, LAPACK and
# GoogleTest are not instrumented: their own accesses are left out of the reports,
# as archer asks, while every access of the library and the tests is checked.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/setup.sh
kelt_packages+=(clang-14 libclang-rt-14-dev libomp-14-dev)
kelt_install_missing

llvm=/usr/lib/llvm-14/lib
build=${KELT_TSAN_BUILD_DIR:-build-tsan}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++-14 \
  -DKELT_SANITIZE=thread -DKELT_BUILD_EXAMPLES=OFF \
  -DOpenMP_CXX_FLAGS=-fopenmp=libomp -DOpenMP_CXX_LIB_NAMES=omp -DOpenMP_omp_LIBRARY="$llvm/libomp.so"
cmake --build "$build" -j"$(kelt_jobs)" --target test_elements

filter=${KELT_TSAN_FILTER:-point_states.*:loop_fixture.*:internal_states.*}
for threads in 1 2; do
  echo "ThreadSanitizer, OMP_NUM_THREADS=$threads"
  OMP_NUM_THREADS=$threads OMP_TOOL_LIBRARIES="$llvm/libarcher.so" ARCHER_OPTIONS="verbose=1" \
    TSAN_OPTIONS="ignore_noninstrumented_modules=1 halt_on_error=1 exitcode=66" LD_LIBRARY_PATH="$llvm${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" \
    "$build/tests/test_elements" --gtest_filter="$filter"
done
