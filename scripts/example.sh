#!/usr/bin/env bash
# Sets up, builds vothumb and makes the two thumbnails of a real photograph.
# Usage: scripts/example.sh [IMAGE [PREFIX]]  (default: a photograph from the mate-backgrounds package)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
cmake -S "$root" -B "$root/build/release" -G Ninja -Wno-dev -DCMAKE_BUILD_TYPE=Release >/dev/null
ninja -C "$root/build/release" vothumb

image=${1:-/usr/share/backgrounds/mate/nature/LadyBird.jpg}
prefix=${2:-$root/build/example/$(basename "${image%.*}")}
mkdir -p "$(dirname "$prefix")"
"$root/build/release/bin/vothumb" "$image" "$prefix"
for f in "$prefix-200.jpg" "$prefix-600.jpg"; do
  if [[ -f $f ]]; then echo "$f $(stat -c %s "$f") bytes"; else echo "$f not written"; fi
done
