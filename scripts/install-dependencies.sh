#!/usr/bin/env bash
# Installs the Debian 12 packages that tarv builds and tests with. Run as root.
set -euo pipefail
if [ "$(id -u)" -ne 0 ]; then
  echo "install-dependencies.sh: run as root (it calls apt-get)" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt-get update
apt-get install -y --no-install-recommends \
  build-essential cmake g++ clang-14 libclang-rt-14-dev llvm-14 \
  libtiff-dev libtiff-tools libvtk9-dev libboost-thread-dev libcgal-dev \
  libnifti2-dev libgdcm-dev libteem-dev zlib1g-dev libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev \
  python3 python3-dev pybind11-dev python3-numpy python3-scipy python3-nibabel python3-tifffile python3-pil python3-pydicom python3-pytest \
  python3-dask python3-distributed python3-matplotlib
