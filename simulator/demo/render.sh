#!/bin/bash
# Renders the demo again from demo.json: the recording and what is true about it, beside this script.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
source cmake/build.sh
ensure_packages "${BUILD_PACKAGES[@]}" libegl-dev libgl-dev libglm-dev \
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-ugly
mkdir -p build/simulator
logged build/simulator.log cmake -S . -B build/simulator -G Ninja -DCMAKE_CXX_COMPILER_LAUNCHER=ccache \
  -DCMAKE_BUILD_TYPE=Release -DVELMOR_TESTS=OFF
logged build/simulator.log ninja -C build/simulator velmor_simulator
exec build/simulator/bin/velmor_simulator record simulator/demo/demo.json simulator/demo
