#!/usr/bin/env bash
# Installs the dependencies, builds tarv and runs its tests: a normal build of the library and the
# tool, installed, with an application outside the tree built against the package and the Python
# package's tests run against the installed package; every other test (unit tests, the tool's
# tests, the file tests against other software, the fault tests, every fuzz corpus replayed through
# its harness) under AddressSanitizer and UndefinedBehaviorSanitizer; the threaded tests
# under ThreadSanitizer. TARV_FUZZ_SECONDS=N adds the libFuzzer (clang-14) build of the harnesses
# and N seconds of fuzzing each.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
jobs=${TARV_JOBS:-2}

if [ "${TARV_SKIP_INSTALL:-0}" != 1 ]; then
  scripts/install-dependencies.sh
fi

echo "== normal build"
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DTARV_BUILD_TESTS=OFF -DCMAKE_INSTALL_PREFIX="$top/build/install"
cmake --build build/release -j"$jobs"

echo "== install and an application outside the tree"
cmake --install build/release
cmake -S examples/outside -B build/outside -DCMAKE_PREFIX_PATH="$top/build/install"
cmake --build build/outside -j"$jobs"
LD_LIBRARY_PATH="$top/build/install/lib:${LD_LIBRARY_PATH:-}" build/outside/outside_app

echo "== the Python package, installed"
PYTHONPATH="$top/build/install/lib/python3/dist-packages" TARV_TOOL="$top/build/install/bin/tarv" \
  /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/python

echo "== every test under AddressSanitizer and UndefinedBehaviorSanitizer"
# Line tables are enough for the sanitizers' reports, and quicker to build than full debug information.
# One process per test program (not per case): the instrumented programs start slowly. The Python
# package's tests ran against the installed package above; under the sanitizers they need the
# package built again, which the time of this command does not allow (ctest -R python_package in a
# -DTARV_SANITIZE=ON build runs them).
cmake -S . -B build/asan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1 -DTARV_SANITIZE=ON \
  -DTARV_TESTS_PER_PROGRAM=ON -DTARV_BUILD_PYTHON=OFF
cmake --build build/asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build/asan -j"$jobs" --output-on-failure

echo "== ThreadSanitizer on the threaded tests"
cmake -S . -B build/tsan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1 -DTARV_TSAN=ON -DTARV_BUILD_TOOLS=OFF
threaded=$(find tests -name '*Thread*Test.cpp' -printf '%f\n' | sed 's/\.cpp$//' | sort)
if [ -n "$threaded" ]; then
  for t in $threaded; do
    cmake --build build/tsan -j"$jobs" --target "$t"
    TSAN_OPTIONS=halt_on_error=1 "build/tsan/tests/$t"
  done
fi

if [ "${TARV_FUZZ_SECONDS:-0}" -gt 0 ]; then
  echo "== fuzz harnesses under libFuzzer: every corpus replayed, then ${TARV_FUZZ_SECONDS} s of fuzzing each"
  fuzz/run-fuzzers.sh --replay
  if ! fuzz/run-fuzzers.sh --fuzz "${TARV_FUZZ_SECONDS}"; then
    echo "== fuzzing found a new input (kept under build/fuzz/artifacts); it is not a regression of the corpus" >&2
  fi
fi

echo "== all tests passed"
