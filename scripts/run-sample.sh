#!/usr/bin/env bash
# Builds kxfx and runs it on the sample photograph; the result lands in out/.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DKX_BUILD_TESTS=OFF >/dev/null
cmake --build build -j "$(nproc)" --target kxfx
mkdir -p out
build/tools/kxfx/kxfx invert samples/coffee.png out/coffee-inverted.png
echo "wrote out/coffee-inverted.png"
