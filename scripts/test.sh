#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: once in the release
# build and once under AddressSanitizer and UndefinedBehaviorSanitizer.
# Usage: scripts/test.sh [ctest arguments...]   e.g. scripts/test.sh -R Profile
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
for config in release asan; do
  echo "== $config"
  "$root/scripts/build.sh" "$config"
  ctest --test-dir "$root/build/$config" --output-on-failure --parallel "$(nproc)" "$@"
done
