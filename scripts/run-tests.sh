#!/usr/bin/env bash
# Builds the library and runs the test suite twice: an optimised build, then the same suite under
# AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)
for variant in release sanitize; do
  dir=build-$variant
  options=(-DCMAKE_BUILD_TYPE=Release -DKX_WERROR=ON)
  # Unoptimised with line tables only: the effects instantiate many kernels, and optimising them under
  # the sanitizers costs far more compile time than it saves in the run.
  [ "$variant" = sanitize ] && options=(-DCMAKE_BUILD_TYPE=Debug "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -g1"
                                        "-DCMAKE_C_FLAGS_DEBUG=-O0 -g1" -DKX_SANITIZE=ON -DKX_WERROR=ON)
  echo "== $variant build =="
  cmake -S . -B "$dir" "${options[@]}" >/dev/null
  cmake --build "$dir" -j "$jobs"
  echo "== $variant tests =="
  ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --test-dir "$dir" --output-on-failure -j "$jobs"
done
