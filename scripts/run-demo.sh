#!/usr/bin/env bash
# Installs the dependencies, builds the tarv tool and runs its main job, "tarv demo": a synthetic
# CT phantom through the library's formats, filter graph and segmentation measures. Arguments go to
# "tarv demo" (for example a result directory; the default is ./tarv-demo). The library, the tool
# and the Python package are installed under /usr/local (TARV_PREFIX to choose another prefix), so
# that Debian's python3 imports tarv.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
if [ "${TARV_SKIP_INSTALL:-0}" != 1 ]; then
  "$top/scripts/install-dependencies.sh"
fi
cmake -S "$top" -B "$top/build/release" -DCMAKE_BUILD_TYPE=Release -DTARV_BUILD_TESTS=OFF \
  -DCMAKE_INSTALL_PREFIX="${TARV_PREFIX:-/usr/local}"
cmake --build "$top/build/release" -j"${TARV_JOBS:-2}"
cmake --install "$top/build/release" > /dev/null
exec "$top/build/release/tools/tarv" demo "$@"
