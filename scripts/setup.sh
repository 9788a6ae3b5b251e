# Sourced by test.sh and demo.sh: installs the Debian packages the build needs
# when they are missing and we are root.
kelt_packages=(cmake ninja-build g++ libgtest-dev libgmock-dev liblapack-dev libmetis-dev)
# The Python module: Debian's pybind11 and Python, NumPy, pytest, matplotlib.
kelt_python_packages=(pybind11-dev python3-dev python3-numpy python3-pytest python3-matplotlib)

# kelt_install PACKAGE...: those not yet installed, when we are root. With
# KELT_NO_RECOMMENDS=1, only what they depend on comes with them.
kelt_install() {
    local missing=()
    for p in "$@"; do
        dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
    done
    if ((${#missing[@]})); then
        if [[ $(id -u) -eq 0 ]]; then
            echo "Installing: ${missing[*]}"
            apt-get update -qq
            local extra=()
            [[ ${KELT_NO_RECOMMENDS:-0} == 1 ]] && extra=(--no-install-recommends)
            DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${extra[@]}" "${missing[@]}" >/dev/null
        else
            echo "Missing packages (run as root to install): ${missing[*]}" >&2
        fi
    fi
}

kelt_install_missing() { kelt_install "${kelt_packages[@]}"; }

kelt_jobs() { nproc 2>/dev/null || echo 2; }
