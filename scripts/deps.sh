#!/bin/sh
# Installs the Debian packages the build, the tests and the demo need; only calls apt-get when one
# of them is missing, so it is cheap to run before every build.
#   scripts/deps.sh          build, tests, demo
#   scripts/deps.sh bench    the same plus what the benchmarks compare against
#   scripts/deps.sh cluster  the same plus a one-node SLURM cluster for make test-cluster
set -e
pkgs="g++ make cmake pkg-config libeigen3-dev libgtest-dev libbenchmark-dev libtiff-tools gdal-bin clang
  libclang-rt-14-dev libproj-dev proj-data python3-gdal"
# The libraries of the TIFF codecs (Deflate, ZSTD, JPEG, WebP, LZMA), found through pkg-config.
pkgs="$pkgs libdeflate-dev libzstd-dev libjpeg62-turbo-dev libwebp-dev liblzma-dev"
# PNG quick-looks of the demo and of the quality benchmark.
pkgs="$pkgs libpng-dev"
# The phases of a job run side by side (scripts/phases_parallel.sh).
pkgs="$pkgs parallel"
if [ "$1" = "bench" ]; then
  pkgs="$pkgs time"
fi
if [ "$1" = "cluster" ]; then
  pkgs="$pkgs slurm-wlm munge"
fi
missing=""
for p in $pkgs; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing="$missing $p"
  fi
done
if [ -n "$missing" ]; then
  echo "scripts/deps.sh: installing$missing"
  if [ "$(id -u)" -ne 0 ]; then
    echo "scripts/deps.sh: missing packages and not root; run as root or install:$missing" >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -q
  apt-get install -y -q --no-install-recommends $missing
fi
