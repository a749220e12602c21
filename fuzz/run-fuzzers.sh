#!/usr/bin/env bash
# Builds the libFuzzer harnesses with clang-14 in build/fuzz and runs them.
#
#   fuzz/run-fuzzers.sh [--replay]                 replays every corpus through its harness
#   fuzz/run-fuzzers.sh --fuzz SECONDS [HARNESS...] replays, then fuzzes each harness SECONDS long
#   fuzz/run-fuzzers.sh --replay HARNESS...        only the named harnesses
#
# Seeds and regression cases live in fuzz/corpus/<harness>/ and are never modified here; inputs
# found while fuzzing go to build/fuzz/work/<harness>/, crashes to build/fuzz/artifacts/<harness>/.
# Exits non-zero when any harness fails. Environment: TARV_JOBS (build jobs, default 2),
# TARV_FUZZ_BUILD_DIR (default build/fuzz), CC_FUZZ / CXX_FUZZ (default clang-14 / clang++-14).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"

mode=replay
seconds=0
harnesses=()
while [ $# -gt 0 ]; do
  case "$1" in
    --replay) mode=replay; shift ;;
    --fuzz)
      mode=fuzz
      seconds=${2:?--fuzz needs a number of seconds}
      shift 2 ;;
    -h|--help) sed -n '2,12p' "$0"; exit 0 ;;
    -*) echo "unknown option $1" >&2; exit 2 ;;
    *) harnesses+=("$1"); shift ;;
  esac
done

build=${TARV_FUZZ_BUILD_DIR:-$top/build/fuzz}
cmake -S fuzz -B "$build" -DCMAKE_C_COMPILER="${CC_FUZZ:-clang-14}" -DCMAKE_CXX_COMPILER="${CXX_FUZZ:-clang++-14}" >/dev/null
cmake --build "$build" -j"${TARV_JOBS:-2}"

if [ ${#harnesses[@]} -eq 0 ]; then
  mapfile -t harnesses < "$build/fuzzers.txt"
fi

# Longest input per harness: descriptions are short texts, files up to 64 KiB.
max_len() {
  case "$1" in
    filter_description_fuzzer) echo 8192 ;;
    graph_reader_fuzzer) echo 16384 ;;
    *) echo 65536 ;;
  esac
}

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:allocator_may_return_null=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
# One in-process fuzzer at a time (no -jobs/-workers): the machine is shared with builds.
common=(-rss_limit_mb=2048 -timeout=10)

failed=()
for h in "${harnesses[@]}"; do
  corpus=fuzz/corpus/$h
  if [ ! -x "$build/$h" ] || [ ! -d "$corpus" ]; then
    echo "== $h: no harness or no corpus" >&2
    failed+=("$h")
    continue
  fi
  dict=()
  [ -f "fuzz/$h.dict" ] && dict=(-dict="fuzz/$h.dict")
  echo "== $h: replaying $(find "$corpus" -type f | wc -l) inputs"
  if ! "$build/$h" "${common[@]}" -max_len="$(max_len "$h")" -runs=0 "$corpus" >"$build/$h.replay.log" 2>&1; then
    tail -n 40 "$build/$h.replay.log"
    failed+=("$h")
    continue
  fi
  if [ "$mode" = fuzz ]; then
    work=$build/work/$h
    artifacts=$build/artifacts/$h
    mkdir -p "$work" "$artifacts"
    echo "== $h: fuzzing for $seconds s"
    if ! "$build/$h" "${common[@]}" "${dict[@]}" -max_len="$(max_len "$h")" -max_total_time="$seconds" \
        -print_final_stats=1 -artifact_prefix="$artifacts/" \
        "$work" "$corpus" >"$build/$h.fuzz.log" 2>&1; then
      tail -n 60 "$build/$h.fuzz.log"
      echo "== $h: FAILED; the input is in $artifacts/" >&2
      failed+=("$h")
      continue
    fi
    grep -E '^#[0-9]+ +DONE' "$build/$h.fuzz.log" | tail -n 1 || true
    grep -E 'stat::number_of_executed_units' "$build/$h.fuzz.log" | tail -n 1 || true
  fi
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "== fuzz harnesses failed: ${failed[*]}" >&2
  exit 1
fi
echo "== all fuzz harnesses passed"
