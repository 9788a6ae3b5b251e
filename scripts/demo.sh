#!/usr/bin/env bash
# Builds the library and runs the example host programs.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/setup.sh
kelt_install_missing
kelt_install gmsh # the plate example meshes its geometry

build=${KELT_BUILD_DIR:-build-demo}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKELT_BUILD_TESTS=OFF -DKELT_BUILD_EXAMPLES=ON
cmake --build "$build" -j"$(kelt_jobs)"
# By source, so that a program left in the build folder by a removed example is not run.
# An example with a Gmsh geometry beside it is given that geometry, and runs in
# the build folder, where it leaves its mesh and its .vtu.
root=$PWD
build_path=$(cd "$build" && pwd)
for source in examples/*.cpp; do
    name=$(basename "$source" .cpp)
    program="$build_path/examples/example_$name"
    echo "=== example_$name"
    if [[ -f examples/$name.geo ]]; then
        (cd "$build_path" && "$program" "$root/examples/$name.geo")
    else
        "$program"
    fi
done
