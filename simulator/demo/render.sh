#!/bin/bash
# Renders the demo again from demo.json: the recording and what is true about it, beside this script.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
source cmake/build.sh
ensure_packages "${BUILD_PACKAGES[@]}" "${SIMULATOR_PACKAGES[@]}"
targets=(velmor_simulator)
build build/release -DCMAKE_BUILD_TYPE=Release -DVELMOR_TESTS=OFF
exec build/release/bin/velmor_simulator record simulator/demo/demo.json simulator/demo
