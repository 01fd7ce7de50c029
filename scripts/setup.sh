#!/usr/bin/env bash
# Installs every Debian package the project needs. Idempotent: when everything is present it only
# asks dpkg and returns within a second.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  qt6-base-dev libqt6opengl6-dev
  xvfb xauth xcompmgr x11-xserver-utils libgl1-mesa-dri mesa-utils
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  gstreamer1.0-tools
  libplist-dev
  libturbojpeg0-dev libjpeg62-turbo-dev libspng-dev libpng-dev libtiff-dev libwebp-dev libgif-dev libheif-dev
  liblcms2-dev icc-profiles-free libgs-common
  libhwy-dev libgtest-dev googletest libgmock-dev libbenchmark-dev
  mate-backgrounds
  desktop-file-utils
)
# Extra groups: "bench" adds the peers the benchmark compares against, "fuzz" the fuzzing compiler.
case "${1:-}" in
  bench) packages+=(libvips-tools graphicsmagick imagemagick python3-pil python3-numpy hyperfine time libjpeg-turbo-progs) ;;
  fuzz) packages+=(clang libclang-rt-14-dev) ;;
esac

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${db:Status-Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "installed" ]] || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "setup: installing ${missing[*]}" >&2
sudo=""
[[ $(id -u) -ne 0 ]] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q -o DPkg::Lock::Timeout=600
$sudo apt-get install -y -q --no-install-recommends -o DPkg::Lock::Timeout=600 "${missing[@]}"
