#!/usr/bin/env bash
# Builds the libFuzzer targets with clang in build-fuzz and runs each for SECONDS on a scratch copy of its
# seeds in fuzz/corpus (the seeds in the repository stay as they are). Prints the executions of every
# target; fails if any target finds anything, and keeps the input that shows it in build-fuzz/findings.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:?usage: scripts/fuzz.sh SECONDS}
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi
# Unoptimised: the many kernels of the effects build several times faster than at -O1 under the sanitizers,
# which counts more in a short run than the speed of each execution.
cmake -S . -B build-fuzz -DKX_FUZZ=ON -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DKX_BUILD_TESTS=OFF -DKX_BUILD_TOOLS=OFF -DKX_BUILD_PYTHON=OFF -DCMAKE_BUILD_TYPE=Release \
  "-DCMAKE_CXX_FLAGS_RELEASE=-O0 -g1" "-DCMAKE_C_FLAGS_RELEASE=-O0 -g1" "${launcher[@]}" >/dev/null
cmake --build build-fuzz --target fuzz-all -j "${FUZZ_BUILD_JOBS:-$(nproc)}"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
findings=build-fuzz/findings
mkdir -p "$findings"
failed=()
printf '%-28s %12s %10s\n' target executions exec/s
while read -r target; do
  corpus=$scratch/$target
  mkdir -p "$corpus"
  cp fuzz/corpus/"$target"/* "$corpus"/
  log=$scratch/$target.log
  if ! UBSAN_OPTIONS=print_stacktrace=1 build-fuzz/fuzz/"$target" -max_total_time="$seconds" -rss_limit_mb=2048 \
       -timeout=10 -print_final_stats=1 -artifact_prefix="$findings/$target-" "$corpus" >"$log" 2>&1; then
    failed+=("$target")
    tail -n 60 "$log"
  fi
  executions=$(awk '/stat::number_of_executed_units/ {print $2}' "$log")
  rate=$(awk '/stat::average_exec_per_sec/ {print $2}' "$log")
  printf '%-28s %12s %10s\n' "$target" "${executions:-?}" "${rate:-?}"
done <build-fuzz/fuzz/targets.txt
if [ ${#failed[@]} -gt 0 ]; then
  echo "findings in: ${failed[*]} (inputs in $findings)"
  exit 1
fi
echo "no findings"
