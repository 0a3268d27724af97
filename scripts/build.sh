#!/usr/bin/env bash
# Installs what is missing, then configures and builds one configuration.
# Usage: scripts/build.sh [release|asan|tsan|fuzz] [cmake --build arguments, e.g. --target ui_tests]
# fuzz: clang with libFuzzer, ASan and UBSan; build only the targets you need.
# Build folders: build/<configuration>.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
config=${1:-release}
shift || true

"$root/scripts/deps.sh"

args=(-G Ninja -S "$root" -B "$root/build/$config")
case "$config" in
  release) args+=(-DCMAKE_BUILD_TYPE=Release) ;;
  asan)    args+=(-DCMAKE_BUILD_TYPE=Debug -DTARNVEL_SANITIZE=address,undefined -DTARNVEL_BENCH=OFF) ;;
  tsan)    args+=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DTARNVEL_SANITIZE=thread -DTARNVEL_BENCH=OFF) ;;
  fuzz)    args+=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
                  -DTARNVEL_FUZZ=ON -DTARNVEL_SANITIZE=address,undefined -DTARNVEL_TESTS=OFF -DTARNVEL_BENCH=OFF) ;;
  *) echo "unknown configuration: $config" >&2; exit 2 ;;
esac
[[ "${CI:-}" == "true" ]] && args+=(-DTARNVEL_WERROR=ON)

cmake "${args[@]}" >/dev/null
cmake --build "$root/build/$config" --parallel "$(nproc)" "$@"
