#!/bin/sh
# Builds and runs every test: Qt 5, Qt 6, and Qt 5 under the sanitizers.
# Installs by package name what a fresh Debian 12 machine lacks.
#   ./test.sh            all of it
#   ./test.sh release    one preset: release, qt6, asan or debug
set -eu
cd "$(dirname "$0")"

scripts/install-packages.sh build test
presets=${*:-release qt6 asan}
jobs=$(nproc)
for preset in $presets; do
    echo "== $preset"
    # Warnings are errors where the project is tested, not for whoever builds it later.
    cmake --preset "$preset" -DMFTOOL_WERROR=ON >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
    ctest --preset "$preset" -j "$jobs"
done
echo "== all passed: $presets"
