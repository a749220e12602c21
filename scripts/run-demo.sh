#!/usr/bin/env bash
# Installs the dependencies, builds tarv and runs its main job.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
if [ "${TARV_SKIP_INSTALL:-0}" != 1 ]; then
  scripts/install-dependencies.sh
fi
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DTARV_BUILD_TESTS=OFF
cmake --build build/release -j"${TARV_JOBS:-2}" --target tarv_example
build/release/tools/tarv_example "$@"
