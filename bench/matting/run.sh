#!/usr/bin/env bash
# Builds and runs the matting quality comparison: the library's matte and OpenCV's information-flow matte
# of two composites whose alpha is known, with SAD, MSE and time of each. Needs libopencv-contrib-dev.
#
# usage: bench/matting/run.sh [BUILD_DIR [OUT_FOLDER [--band PIXELS]]]
#   BUILD_DIR defaults to build-bench in the checkout, OUT_FOLDER to BUILD_DIR/matting-quality, where the
#   composites, trimaps, the truth and both mattes are written as PNGs.
set -euo pipefail

source_dir=$(cd "$(dirname "$0")/../.." && pwd)
build_dir=${1:-$source_dir/build-bench}
out_dir=${2:-$build_dir/matting-quality}
shift $(($# > 2 ? 2 : $#))

cmake -S "$source_dir" -B "$build_dir" -DCMAKE_BUILD_TYPE=Release -DKX_BUILD_BENCH=ON >/dev/null
cmake --build "$build_dir" -j2 --target kxeffects_matting_quality
mkdir -p "$out_dir"
"$build_dir/bench/kxeffects_matting_quality" "$out_dir" "$@"
echo "mattes written to $out_dir"
