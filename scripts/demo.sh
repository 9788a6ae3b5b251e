#!/usr/bin/env bash
# Builds the library and runs the example host programs.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/setup.sh
kelt_install_missing

build=${KELT_BUILD_DIR:-build-demo}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKELT_BUILD_TESTS=OFF -DKELT_BUILD_EXAMPLES=ON
cmake --build "$build" -j"$(kelt_jobs)"
# By source, so that a program left in the build folder by a removed example is not run.
for source in examples/*.cpp; do
    program="$build/examples/example_$(basename "$source" .cpp)"
    echo "=== $(basename "$program")"
    "$program"
done
