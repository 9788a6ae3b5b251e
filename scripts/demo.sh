#!/usr/bin/env bash
# Builds the library and runs the example host programs.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/setup.sh
kelt_install_missing
kelt_install gmsh # the plate example meshes its geometry
KELT_NO_RECOMMENDS=1 kelt_install "${kelt_python_packages[@]}"

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

# The example deck through kelt-run, in the build folder; its check: the mean
# end displacement beside F L / (E A) for the bar's 1000 N, 100 mm, 210000 MPa,
# 100 mm2 (a little less, the clamped end not contracting).
echo "=== kelt-run bar.inp"
cp examples/bar.inp "$build_path/bar.inp"
(cd "$build_path" && "$build_path/tools/kelt-run/kelt-run" bar.inp | grep -v '^ *[0-9.]* s  *  ')
awk '$1 ~ /^[0-9]+$/ && NF == 4 { s += $2; n++ }
     END { printf "bar: end displacement %.4e mm, F L / (E A) = %.4e mm\n", s / n, 1000 * 100 / (210000 * 100) }' \
    "$build_path/bar.dat"

# The Python examples, on the module of the build folder; pictures go there too.
for source in python/examples/*.py; do
    name=$(basename "$source" .py)
    echo "=== python $name"
    (cd "$build_path" && PYTHONPATH="$build_path/python" MPLBACKEND=Agg /usr/bin/python3 "$root/$source" "$name.png")
done
