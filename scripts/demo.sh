#!/usr/bin/env bash
# Installs what is missing, builds Tarnvel, and shows it at work on a
# recording of its own.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/build.sh" release
echo "Built: $root/build/release"
echo
"$root/build/release/apps/tarnvel-info" "$root/docs/examples/recording"
