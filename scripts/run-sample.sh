#!/usr/bin/env bash
# Builds kxfx and makes the gallery of every effect on the sample photograph: out/gallery/index.html.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DKX_BUILD_TESTS=OFF >/dev/null
cmake --build build -j "$(nproc)" --target kxfx
build/tools/kxfx/kxfx gallery samples/coffee.png out/gallery
