#!/usr/bin/env bash
# Builds and runs every benchmark in bench/, then prints for each kx case its megapixels per second and
# its ratios to the OpenCV peer and to a plain memcpy of the same bytes.
#
# Naming rule for every benchmark in bench/*.cpp: "<Group>/<Case>/<Impl>", for example
# "Composite/norm/kx", with Impl one of
#   kx      the library's implementation,
#   opencv  the single-threaded OpenCV equivalent of the same work (cv::setNumThreads(1)),
#   memcpy  a memcpy of the same bytes, the floor;
# each reports the counter "MP/s" (megapixels per second, benchmark::Counter::kIsRate), with image
# allocations outside the timed loop. Peers are matched by "<Group>/<Case>"; a missing one prints "-".
#
# usage: bench/run.sh [BUILD_DIR [BENCHMARK_ARGUMENT ...]]   (default BUILD_DIR: build-bench in the checkout)
set -euo pipefail

source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-$source_dir/build-bench}
shift $(($# > 0 ? 1 : 0))

cmake -S "$source_dir" -B "$build_dir" -DCMAKE_BUILD_TYPE=Release -DKX_BUILD_BENCH=ON >/dev/null
cmake --build "$build_dir" -j2 --target kxeffects_bench

results=$(mktemp)
trap 'rm -f "$results"' EXIT
"$build_dir/bench/kxeffects_bench" --benchmark_out="$results" --benchmark_out_format=json "$@"

python3 - "$results" <<'PY'
import json
import sys

# Rates by "<Group>/<Case>" and Impl; a mean over repetitions wins over single runs.
rates = {}
for run in json.load(open(sys.argv[1]))["benchmarks"]:
    if run.get("run_type") == "aggregate" and run.get("aggregate_name") != "mean":
        continue
    parts = run["run_name"].split("/")
    if len(parts) < 3 or "MP/s" not in run:
        continue
    rates.setdefault("/".join(parts[:2]), {})[parts[2]] = run["MP/s"]

def ratio(value, peer):
    return "%.2f" % (value / peer) if peer else "-"

print()
print("%-36s %12s %12s %12s %10s %10s" % ("effect", "kx MP/s", "opencv MP/s", "memcpy MP/s", "kx/opencv", "kx/memcpy"))
for case, impls in rates.items():
    if "kx" not in impls:
        continue
    kx, opencv, floor = impls["kx"], impls.get("opencv"), impls.get("memcpy")
    show = lambda value: "%.1f" % value if value else "-"
    print("%-36s %12s %12s %12s %10s %10s" % (case, show(kx), show(opencv), show(floor), ratio(kx, opencv), ratio(kx, floor)))
PY
