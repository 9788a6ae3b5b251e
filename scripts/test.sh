#!/usr/bin/env bash
# Builds the library and its tests, runs them, then checks that an outside
# project finds the installed package. Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/setup.sh
kelt_install_missing
# The file tests mesh with the real gmsh and read what the library writes with
# VTK and meshio.
kelt_install gmsh python3-meshio python3-vtk9
# The keyword decks with their reference outputs, as input data only: the solver
# they recommend is not wanted.
KELT_NO_RECOMMENDS=1 kelt_install calculix-ccx-test
# The Python module and its tests (pytest runs inside ctest).
KELT_NO_RECOMMENDS=1 kelt_install "${kelt_python_packages[@]}"

# Layers point down only; checked before anything is built.
scripts/check_layers.sh

build=${KELT_BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKELT_BUILD_TESTS=ON -DKELT_BUILD_EXAMPLES=ON
cmake --build "$build" -j"$(kelt_jobs)"
ctest --test-dir "$build" --output-on-failure -j"$(kelt_jobs)"

# The installed package, used as a host would use it.
# The build folder may be given relative or absolute.
prefix="$(cd "$build" && pwd)/package-root"
rm -rf "$prefix" "$build/package-host"
install_log=$(cmake --install "$build" --prefix "$prefix")
cmake -S tests/package -B "$build/package-host" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$build/package-host" >/dev/null
"$build/package-host/package_host"
# The installed Python module, imported as a user would, on the path the install printed.
if python_path=$(grep -o 'PYTHONPATH=.*' <<<"$install_log"); then
    env "$python_path" /usr/bin/python3 -c "import kelt; print('kelt', kelt.version(), 'from', kelt.__file__)"
fi

# Informational: how much test code there is for the code it tests.
scripts/test_share.sh
