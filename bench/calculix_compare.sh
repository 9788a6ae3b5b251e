#!/usr/bin/env bash
# Side by side with CalculiX on the reference block: writes the clamped block of
# 4n x n x n C3D8 elements (n = 20 by default: 80 x 20 x 20, 105,840 DOFs) on
# [0,4]x[0,1]x[0,1], E 210000, nu 0.3, x = 0 clamped, a total load of -1 in z shared
# equally by the nodes of the face x = 4, as a ccx input deck; runs ccx on 2 threads
# as a separate process, timed with its peak memory; then runs kelt's static_bench on
# the same block and 2 threads, and prints both tip deflections and times.
#
#   bench/calculix_compare.sh [n] [static|modal]
# With `modal` the deck gets a density of 7.85e-9 and a *FREQUENCY step for the 10
# lowest modes in place of the load, and kelt's side is modal_bench
# ($KELT_MODAL_BENCH, else $KELT_BUILD_DIR/bench/modal_bench); the first
# frequencies are printed in place of the tip deflections.
# Needs ccx (Debian package calculix-ccx). kelt's program is taken from
# $KELT_STATIC_BENCH, else $KELT_BUILD_DIR/bench/static_bench (default build-bench),
# built with -DKELT_BUILD_BENCH=ON; without it only the CalculiX side runs.
set -euo pipefail
cd "$(dirname "$0")/.."

n=${1:-20}
mode=${2:-static}
threads=2
reference=-1.253668712e-03 # tip deflection of the 80 x 20 x 20 block

if ! command -v ccx >/dev/null; then
    echo "ccx not found: apt-get install -y calculix-ccx" >&2
    exit 1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The deck: nodes numbered from 1 in the order x fastest, then y, then z, as the
# benchmark block numbers them from 0; elements in the hexa8 corner order, which
# is also C3D8's.
awk -v n="$n" -v mode="$mode" 'BEGIN {
    nx = 4 * n; ny = n; nz = n; lx = 4.0; ly = 1.0; lz = 1.0; total = -1.0
    print "*HEADING"
    printf "Clamped block %d x %d x %d C3D8\n", nx, ny, nz
    print "*NODE, NSET=NALL"
    for (k = 0; k <= nz; k++) for (j = 0; j <= ny; j++) for (i = 0; i <= nx; i++)
        printf "%d, %.17g, %.17g, %.17g\n", id(i, j, k), lx * i / nx, ly * j / ny, lz * k / nz
    print "*ELEMENT, TYPE=C3D8, ELSET=EALL"
    e = 0
    for (k = 0; k < nz; k++) for (j = 0; j < ny; j++) for (i = 0; i < nx; i++)
        printf "%d, %d, %d, %d, %d, %d, %d, %d, %d\n", ++e,
            id(i, j, k), id(i + 1, j, k), id(i + 1, j + 1, k), id(i, j + 1, k),
            id(i, j, k + 1), id(i + 1, j, k + 1), id(i + 1, j + 1, k + 1), id(i, j + 1, k + 1)
    print "*NSET, NSET=FIXED"
    for (k = 0; k <= nz; k++) for (j = 0; j <= ny; j++) print id(0, j, k) ","
    print "*NSET, NSET=TIP"
    print id(nx, int(ny / 2), int(nz / 2)) ","
    print "*BOUNDARY"
    print "FIXED, 1, 3"
    print "*MATERIAL, NAME=STEEL"
    print "*ELASTIC"
    print "210000., 0.3"
    if (mode == "modal") { print "*DENSITY"; print "7.85e-9" }
    print "*SOLID SECTION, ELSET=EALL, MATERIAL=STEEL"
    print "*STEP"
    if (mode == "modal") { print "*FREQUENCY"; print "10"; print "*END STEP"; exit }
    print "*STATIC"
    print "*CLOAD"
    share = total / ((ny + 1) * (nz + 1))
    for (k = 0; k <= nz; k++) for (j = 0; j <= ny; j++) printf "%d, 3, %.17g\n", id(nx, j, k), share
    print "*NODE PRINT, NSET=TIP"
    print "U"
    print "*END STEP"
}
function id(i, j, k) { return (k * (ny + 1) + j) * (nx + 1) + i + 1 }' > "$work/block.inp"

echo "CalculiX: $(ccx -v 2>/dev/null | grep -m1 -i version), block $((4 * n)) x $n x $n C3D8, OMP_NUM_THREADS=$threads"
timer=()
[[ -x /usr/bin/time ]] && timer=(/usr/bin/time -v -o "$work/time.txt")
start=$(date +%s.%N)
(cd "$work" && OMP_NUM_THREADS=$threads "${timer[@]}" ccx -i block > ccx.log 2>&1) || {
    echo "ccx failed; its log:" >&2
    tail -20 "$work/ccx.log" >&2
    exit 1
}
ccx_wall=$(awk -v s="$start" -v e="$(date +%s.%N)" 'BEGIN { printf "%.2f", e - s }')
ccx_peak=n/a ccx_cpu=n/a
if [[ -f "$work/time.txt" ]]; then
    ccx_peak=$(awk -F': ' '/Maximum resident set size/ { printf "%.1f", $2 / 1024 }' "$work/time.txt")
    ccx_cpu=$(awk -F': ' '/(User|System) time/ { s += $2 } END { printf "%.2f", s }' "$work/time.txt")
fi
# The displacement table of the .dat file: node, ux, uy, uz; or, for modes, the
# eigenvalue table: mode, eigenvalue, rad/time, cycles/time, imaginary part.
if [[ "$mode" == modal ]]; then
    ccx_tip=$(awk '/E I G E N V A L U E/ { t = 1 } t && NF == 5 && $1 == 1 { print $4; exit }' "$work/block.dat")
else
    ccx_tip=$(awk 'NF == 4 && $1 ~ /^[0-9]+$/ { uz = $4 } END { print uz }' "$work/block.dat")
fi
grep -i "solver\|cpu" "$work/ccx.log" | sed 's/^/  ccx | /' | head -8 || true

kelt=${KELT_STATIC_BENCH:-${KELT_BUILD_DIR:-build-bench}/bench/static_bench}
[[ "$mode" == modal ]] && kelt=${KELT_MODAL_BENCH:-${KELT_BUILD_DIR:-build-bench}/bench/modal_bench}
kelt_tip=n/a kelt_wall=n/a kelt_peak=n/a kelt_cpu=n/a
if [[ -x "$kelt" && "$mode" == modal ]]; then
    "$kelt" -t "$threads" "$n" > "$work/kelt.txt"
    sed 's/^/  kelt | /' "$work/kelt.txt"
    # summary n threads DOFs wall cpu peak-MB first-frequency
    read -r kelt_wall kelt_cpu kelt_peak kelt_tip < <(awk '$1 == "summary" { print $5, $6, $7, $8 }' "$work/kelt.txt")
elif [[ -x "$kelt" ]]; then
    "$kelt" -t "$threads" "$n" > "$work/kelt.txt"
    sed 's/^/  kelt | /' "$work/kelt.txt"
    # The summary row: n thr DOFs build number K-asm RHS factor solve total wall cpu factor-MB peak-MB tip.
    read -r kelt_wall kelt_cpu kelt_peak kelt_tip < <(awk -v n="$n" -v t="$threads" '$1 == n && $2 == t && NF >= 15 { print $11, $12, $14, $15 }' "$work/kelt.txt")
else
    echo "kelt's static_bench not found at $kelt: only the CalculiX side is measured" >&2
fi

echo
quantity="tip deflection"
[[ "$mode" == modal ]] && quantity="first freq Hz"
printf "%-10s %16s %10s %12s %12s\n" "program" "$quantity" "wall s" "processor s" "peak MB"
printf "%-10s %16s %10s %12s %12s\n" "CalculiX" "$ccx_tip" "$ccx_wall" "$ccx_cpu" "$ccx_peak"
printf "%-10s %16s %10s %12s %12s\n" "kelt" "$kelt_tip" "$kelt_wall" "$kelt_cpu" "$kelt_peak"
[[ "$n" == 20 && "$mode" == static ]] && printf "%-10s %16s\n" "reference" "$reference"
exit 0
