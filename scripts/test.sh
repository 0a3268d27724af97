#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: once in the release
# build and once under AddressSanitizer and UndefinedBehaviorSanitizer; the
# tests of threaded code once more under ThreadSanitizer.
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

# The tests of what runs on several threads, again under ThreadSanitizer.
echo "== tsan"
threaded=(ui_tests qt_window_tests engine_tests suitelink_tests cordage_tests)
"$root/scripts/build.sh" tsan --target "${threaded[@]}"
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:suppressions=$root/tests/tsan.supp}
for t in "${threaded[@]}"; do
  exe=$(find "$root/build/tsan/tests" -name "$t" -type f -executable | head -n 1)
  echo "-- $t"
  if [[ "$t" == qt_* ]]; then
    # Qt hands its own objects between its threads with synchronisation inside
    # its uninstrumented libraries: only our instrumented code is checked.
    TSAN_OPTIONS="$TSAN_OPTIONS:ignore_noninstrumented_modules=1" QT_QPA_PLATFORM=offscreen "$exe" -silent
  else
    "$exe" --gtest_brief=1
  fi
done

# Whole argument files fuzzed into real jobs for a short while (clang,
# libFuzzer, ASan and UBSan); only the fuzz target and what it links are built.
echo "== fuzz"
"$root/scripts/build.sh" fuzz --target fuzz_job_args
found=$(mktemp -d)
trap 'rm -rf "$found"' EXIT
LSAN_OPTIONS="suppressions=$root/tests/lsan.supp" "$root/build/fuzz/tests/fuzz/fuzz_job_args" -max_total_time="${TARNVEL_FUZZ_SECONDS:-30}" -timeout=20 \
  -dict="$root/tests/fuzz/args.dict" -print_final_stats=1 "$found" "$root/tests/fuzz/corpus/args" 2>&1 | grep -v '# Uses:' | tail -n 20
