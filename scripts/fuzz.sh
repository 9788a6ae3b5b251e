#!/usr/bin/env bash
# Builds the fuzz targets with clang, libFuzzer, AddressSanitizer and UBSan in a
# build folder of their own, then runs each in turn for a number of seconds
# (first argument, default 600), starting from its kept corpus in fuzz/corpus.
# New inputs gather in the build folder; with KELT_FUZZ_MERGE=1 those that add
# coverage are merged back into the kept corpus. Crashes are written to the build
# folder and end the script with a non-zero status. 0 seconds builds only.
#   scripts/fuzz.sh [seconds] [target...]     targets: twoD_table model
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-600}
shift || true
targets=("$@")
((${#targets[@]})) || targets=(twoD_table model)

build=${KELT_FUZZ_BUILD_DIR:-build-fuzz}
# -O1 with line tables: reports with lines, and a build that does not take all day.
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS="-O1 -gline-tables-only" \
  -DCMAKE_CXX_COMPILER="${KELT_FUZZ_CXX:-clang++}" \
  -DKELT_FUZZ=ON -DKELT_SANITIZE=address,undefined \
  -DKELT_BUILD_TESTS=OFF -DKELT_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j"${KELT_FUZZ_JOBS:-2}" --target "${targets[@]/#/fuzz_}"
((seconds > 0)) || exit 0 # 0: build only

export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
status=0
for t in "${targets[@]}"; do
  work="$build/corpus/$t"
  artifacts="$build/artifacts/$t/"
  mkdir -p "$work" "$artifacts"
  echo "== fuzz_$t for ${seconds} s"
  # One run at a time: the machine is shared. Each input has 10 s and 1 GB.
  if ! "$build/fuzz/fuzz_$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=1024 -max_len=4096 \
      -print_final_stats=1 -artifact_prefix="$artifacts" "$work" "fuzz/corpus/$t"; then
    status=1
  fi
  if [[ ${KELT_FUZZ_MERGE:-0} == 1 ]]; then
    "$build/fuzz/fuzz_$t" -merge=1 -max_len=4096 "fuzz/corpus/$t" "$work"
  fi
done
exit $status
