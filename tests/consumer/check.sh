#!/usr/bin/env bash
# Builds and installs qimg into a temporary prefix, then builds and runs the consumer project
# three times: through find_package(qimg), through add_subdirectory, and by hand with the flags
# that pkg-config gives.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
jobs=$(nproc)

cmake -S "$root" -B "$work/qimg" -DCMAKE_BUILD_TYPE=Release -DQIMG_BUILD_TESTS=OFF \
      -DQIMG_BUILD_EXAMPLES=OFF -DQIMG_BUILD_TOOLS=OFF > /dev/null
cmake --build "$work/qimg" -j"$jobs" > /dev/null
cmake --install "$work/qimg" --prefix "$work/prefix" > /dev/null

cmake -S "$root/tests/consumer" -B "$work/via-package" -DCMAKE_PREFIX_PATH="$work/prefix" > /dev/null
cmake --build "$work/via-package" -j"$jobs" > /dev/null
LD_LIBRARY_PATH="$work/prefix/lib:${LD_LIBRARY_PATH:-}" "$work/via-package/consumer"

cmake -S "$root/tests/consumer" -B "$work/via-subdirectory" -DQIMG_SOURCE_DIR="$root" > /dev/null
cmake --build "$work/via-subdirectory" -j"$jobs" > /dev/null
"$work/via-subdirectory/consumer"
PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig" c++ -std=c++20 "$root/tests/consumer/main.cpp" \
    -o "$work/via-pkg-config" $(PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig" pkg-config --cflags --libs qimg)
LD_LIBRARY_PATH="$work/prefix/lib:${LD_LIBRARY_PATH:-}" "$work/via-pkg-config"
echo "install-check: find_package, add_subdirectory and pkg-config all work"
