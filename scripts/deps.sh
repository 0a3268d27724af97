#!/usr/bin/env bash
# Installs the Debian packages that Tarnvel builds, tests and benchmarks with.
# Idempotent: when every package is present it only asks dpkg and returns.
# Usage: scripts/deps.sh [--bench]   (--bench adds what the benchmarks compare with)
set -euo pipefail

packages=(
  # toolchain
  g++ cmake ninja-build pkg-config
  # tests and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev
  # image files: TIFF/BigTIFF/DNG, PNG, JPEG
  libtiff-dev libpng-dev libjpeg62-turbo-dev
  # movies
  libavformat-dev libavcodec-dev libswscale-dev libavutil-dev
  # drawing: overlay text, logos, data plot
  libcairo2-dev libfreetype-dev libfontconfig-dev fonts-dejavu-core
  # Excel channel workbooks
  libfreexl-dev
  # desktop program, a display for its tests and screenshots, and a notification
  # area, a client library and a menu-entry check for its end-to-end test
  qt6-base-dev xvfb xauth trayer python3-xlib desktop-file-utils
  # independent readers that the tests check written files with
  libtiff-tools ffmpeg python3 python3-pil python3-numpy dcraw
  imagemagick pngcheck libimage-exiftool-perl python3-png
  # locale sources: the tests compile regional settings to read them back
  locales
  # a second reader of the channel workbooks that the generator writes
  python3-xlrd
  # fuzz targets (libFuzzer) are built with clang
  clang libclang-rt-14-dev
  # a single-node Slurm cluster that the job-array test starts and stops itself
  slurmctld slurmd slurm-client munge
)
if [[ "${1:-}" == "--bench" ]]; then
  packages+=(libopencv-dev hyperfine)
fi

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done
((${#missing[@]} == 0)) && exit 0

echo "Installing: ${missing[*]}" >&2
sudo=""
(( EUID != 0 )) && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
