#!/usr/bin/env bash
# Installs the Debian packages that build, test and run KXEffects.
set -euo pipefail
packages=(cmake g++ make pkg-config python3 clang-format googletest libgtest-dev libbenchmark-dev libopencv-dev
          liblcms2-dev ocl-icd-libopencl1 opencl-headers pocl-opencl-icd chromium
          python3-dev pybind11-dev python3-numpy python3-pytest python3-opencv
          libpng-dev libjpeg62-turbo-dev libtiff-dev clang libclang-rt-14-dev)
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
