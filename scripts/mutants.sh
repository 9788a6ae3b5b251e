#!/usr/bin/env bash
# Applies, one at a time, each fault listed in tests/mutants.txt, rebuilds the given
# build folder incrementally and runs the tests: first the executables the line
# names, then, only when they pass, the whole suite. Prints CAUGHT, MISSED or
# NOT-APPLIED per fault and a summary; exits 1 unless every fault is caught.
#
#   scripts/mutants.sh [BUILD_DIR] [LIST] [FILTER]
#
# FILTER, a regular expression, keeps the faults whose line matches it (to try a
# few while writing the list). A line of the list is
#   file | pattern | replacement | test executable(s)
# where the pattern is a fixed string that must occur on exactly one line of the
# file, and the executables are paths under the build folder, blank-separated.
# A pattern found on no line or on several is NOT-APPLIED: the list has to follow
# the code. The file is restored by git even on Ctrl-C.
set -uo pipefail
cd "$(dirname "$0")/.."

build=${1:-build-mutants}
list=${2:-tests/mutants.txt}
filter=${3:-}
jobs=${KELT_MUTANT_JOBS:-2}

# Each fault is undone by git, which would also undo a change not yet committed.
if ! git diff --quiet HEAD -- sources; then
    echo "sources/ has changes not committed: commit or stash them first" >&2
    exit 2
fi

if [[ ! -f "$build/build.ninja" ]]; then
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKELT_BUILD_TESTS=ON -DKELT_BUILD_EXAMPLES=ON \
        -DCMAKE_CXX_COMPILER_LAUNCHER="$(command -v ccache || true)" >/dev/null || exit 2
fi
if ! cmake --build "$build" -j"$jobs" >/dev/null; then
    echo "the unmutated tree does not build" >&2
    exit 2
fi

mutated=""
restore() {
    if [[ -n "$mutated" ]]; then
        git checkout -- "$mutated"
        mutated=""
    fi
}
trap 'restore' EXIT
trap 'restore; exit 130' INT TERM

trim() { local s="$1"; s="${s#"${s%%[![:space:]]*}"}"; printf '%s' "${s%"${s##*[![:space:]]}"}"; }

caught=0 missed=0 not_applied=0 n=0
declare -A per_folder_total per_folder_caught
while IFS= read -r line || [[ -n "$line" ]]; do
    [[ -z "$(trim "$line")" || "$(trim "$line")" == \#* ]] && continue
    [[ -n "$filter" && ! "$line" =~ $filter ]] && continue
    IFS='|' read -r f_file f_pattern f_replacement f_tests <<<"$line"
    file=$(trim "$f_file") pattern=$(trim "$f_pattern") replacement=$(trim "$f_replacement") tests=$(trim "$f_tests")
    n=$((n + 1))
    folder=$(cut -d/ -f2 <<<"$file")
    per_folder_total[$folder]=$((${per_folder_total[$folder]:-0} + 1))
    label="$file: $pattern -> $replacement"

    if [[ ! -f "$file" ]] || [[ $(grep -cF -- "$pattern" "$file") -ne 1 ]]; then
        echo "NOT-APPLIED  $label"
        not_applied=$((not_applied + 1))
        continue
    fi
    mutated="$file"
    PATTERN="$pattern" REPLACEMENT="$replacement" perl -pi -e 's/\Q$ENV{PATTERN}\E/$ENV{REPLACEMENT}/' "$file"

    verdict=MISSED
    # A fault that no longer compiles is not one a test has to catch: reported apart.
    # Only the named executables are built first, so that a caught fault costs
    # one link per executable and not the whole tree.
    targets=()
    for t in $tests; do targets+=(--target "$(basename "$t")"); done
    if ! cmake --build "$build" -j"$jobs" "${targets[@]}" >/dev/null 2>&1; then
        verdict=NOT-APPLIED
    else
        for t in $tests; do
            # Through a shell of its own, whose report of a crash goes nowhere.
            if ! bash -c 'timeout 600 "$0" >/dev/null 2>&1; exit $?' "$build/$t" 2>/dev/null; then
                verdict=CAUGHT
                break
            fi
        done
        if [[ $verdict == MISSED ]]; then
            if ! cmake --build "$build" -j"$jobs" >/dev/null 2>&1; then
                verdict=NOT-APPLIED
            elif ! ctest --test-dir "$build" -j"$jobs" --stop-on-failure --timeout 600 >/dev/null 2>&1; then
                verdict=CAUGHT
            fi
        fi
    fi
    restore
    echo "$(printf '%-12s' $verdict) $label"
    case $verdict in
        CAUGHT) caught=$((caught + 1)); per_folder_caught[$folder]=$((${per_folder_caught[$folder]:-0} + 1)) ;;
        MISSED) missed=$((missed + 1)) ;;
        *) not_applied=$((not_applied + 1)) ;;
    esac
done <"$list"

# Leave the build folder matching the tree.
cmake --build "$build" -j"$jobs" >/dev/null 2>&1

echo "---"
for folder in $(printf '%s\n' "${!per_folder_total[@]}" | sort); do
    echo "$folder: ${per_folder_caught[$folder]:-0}/${per_folder_total[$folder]} caught"
done
echo "$n faults: $caught caught, $missed missed, $not_applied not applied"
((missed == 0 && not_applied == 0))
