#!/usr/bin/env bash
# Builds the libFuzzer harnesses with clang-14 in build/fuzz and runs them.
#
#   fuzz/run-fuzzers.sh [--replay]                 replays every corpus through its harness
#   fuzz/run-fuzzers.sh --fuzz SECONDS [HARNESS...] replays, then fuzzes each harness SECONDS long
#   fuzz/run-fuzzers.sh --replay HARNESS...        only the named harnesses
#   fuzz/run-fuzzers.sh --campaign MINUTES [HARNESS...]
#                                                   replays, fuzzes each harness MINUTES long, two at
#                                                   a time (both cores), measures the line coverage of
#                                                   each harness's reader files over its corpus, and
#                                                   rewrites fuzz/CAMPAIGN.md
#
# Seeds and regression cases live in fuzz/corpus/<harness>/ and are never modified here; inputs
# found while fuzzing go to build/fuzz/work/<harness>/, crashes to build/fuzz/artifacts/<harness>/.
# Exits non-zero when any harness fails. Environment: TARV_JOBS (build jobs, default 2),
# TARV_FUZZ_PARALLEL (harnesses fuzzed at once in a campaign, default 2),
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
    --campaign)
      mode=campaign
      minutes=${2:?--campaign needs a number of minutes}
      seconds=$((minutes * 60))
      shift 2 ;;
    -h|--help) sed -n '2,18p' "$0"; exit 0 ;;
    -*) echo "unknown option $1" >&2; exit 2 ;;
    *) harnesses+=("$1"); shift ;;
  esac
done

build=${TARV_FUZZ_BUILD_DIR:-$top/build/fuzz}
parallel=${TARV_FUZZ_PARALLEL:-2}
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

# The reader files of each harness, for its line coverage.
reader_files() {
  case "$1" in
    filter_description_fuzzer) echo src/core/FileReadWrite.cpp src/filters/ParameterTable.h src/dataset/DependentDataset.cpp ;;
    graph_reader_fuzzer) echo src/graphs/FilterGraph.cpp ;;
    tiff_stream_fuzzer) echo src/imageio/TiffImageReader.cpp src/imageio/TiffInputStream.cpp ;;
    tarv1_fuzzer) echo src/dataset/TARV1FileHeader.cpp src/dataset/TARV1DatasetFileReadModule.cpp src/dataset/TARV1DatasetFileReadWrite.cpp ;;
    raw_fuzzer) echo src/dataset/RawDatasetFileReadWrite.cpp ;;
    tiff_module_fuzzer) echo src/dataset/TiffFileReadModule.cpp src/dataset/TiffFileHeader.cpp src/dataset/TiffDeepTileCodec.cpp ;;
    nifti_fuzzer) echo src/formats/NiftiFormat.cpp ;;
    tiff_stack_fuzzer) echo src/formats/TiffStackFormat.cpp ;;
    metaimage_fuzzer) echo src/formats/MetaImageFormat.cpp ;;
    nrrd_fuzzer) echo src/formats/NrrdFormat.cpp ;;
    dicom_fuzzer) echo src/formats/DicomSeries.cpp src/formats/DicomStructure.cpp ;;
    format_probe_fuzzer) echo src/formats/FormatRegistry.cpp src/formats/VtkImageFiles.cpp src/formats/VtiStructure.cpp ;;
  esac
}

# One harness fuzzed for the campaign, its figures in $build/campaign/<harness>.json.
campaign_one() {
  local h=$1 work=$build/work/$1 artifacts=$build/artifacts/$1 dict=()
  rm -rf "$artifacts" "$build/campaign/$h.json"
  mkdir -p "$work" "$artifacts" "$build/campaign"
  [ -f "fuzz/$h.dict" ] && dict=(-dict="fuzz/$h.dict")
  local status=0 started commit
  started=$(date -u '+%Y-%m-%d %H:%M')
  commit=$(git rev-parse --short HEAD)$(git status --porcelain --untracked-files=no | grep -q . && echo '+changes' || true)
  "$build/$h" "${common[@]}" "${dict[@]}" -max_len="$(max_len "$h")" -max_total_time="$seconds" \
    -print_final_stats=1 -artifact_prefix="$artifacts/" "$work" "fuzz/corpus/$h" >"$build/$h.campaign.log" 2>&1 || status=$?
  local executions cov features findings corpus
  executions=$(grep -E 'stat::number_of_executed_units' "$build/$h.campaign.log" | tail -n 1 | awk '{print $2}')
  cov=$(grep -oE 'cov: [0-9]+' "$build/$h.campaign.log" | tail -n 1 | awk '{print $2}')
  features=$(grep -oE 'ft: [0-9]+' "$build/$h.campaign.log" | tail -n 1 | awk '{print $2}')
  findings=$(find "$artifacts" -type f | wc -l)
  corpus=$(( $(find "$work" -type f | wc -l) + $(find "fuzz/corpus/$h" -type f | wc -l) ))
  printf '{"executions": %s, "cov": %s, "features": %s, "findings": %s, "corpus": %s, "status": %s, "minutes": %s, "date": "%s", "commit": "%s", "parallel": %s}\n' \
    "${executions:-0}" "${cov:-0}" "${features:-0}" "$findings" "$corpus" "$status" "$minutes" "$started" "$commit" "$parallel" \
    > "$build/campaign/$h.json"
}

# Line coverage of the reader files over the corpus (seeds and what the campaign found).
coverage_one() {
  local h=$1 coverage=${TARV_FUZZ_COVERAGE_DIR:-$top/build/fuzz-coverage}
  local profiles=$coverage/profiles/$h
  rm -rf "$profiles" && mkdir -p "$profiles"
  LLVM_PROFILE_FILE="$profiles/%p.profraw" "$coverage/$h" "fuzz/corpus/$h" "$build/work/$h" > /dev/null 2>&1 || true
  llvm-profdata-14 merge -sparse "$profiles"/*.profraw -o "$profiles/merged.profdata" 2>/dev/null || { echo 0; return; }
  local files=() f
  for f in $(reader_files "$h"); do files+=("$top/$f"); done
  llvm-cov-14 report "$coverage/$h" -instr-profile="$profiles/merged.profdata" "${files[@]}" 2>/dev/null |
    awk '/^TOTAL/ {print $(NF-3)}' | tr -d '%'
}

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

if [ "$mode" = campaign ] && [ ${#failed[@]} -eq 0 ]; then
  echo "== campaign: ${#harnesses[@]} harnesses, $minutes min each, $parallel at a time"
  running=0
  for h in "${harnesses[@]}"; do
    campaign_one "$h" &
    running=$((running + 1))
    if [ "$running" -ge "$parallel" ]; then wait -n || true; running=$((running - 1)); fi
  done
  wait || true
  echo "== coverage build"
  coverage=${TARV_FUZZ_COVERAGE_DIR:-$top/build/fuzz-coverage}
  cmake -S fuzz -B "$coverage" -DTARV_FUZZ_COVERAGE=ON -DCMAKE_C_COMPILER="${CC_FUZZ:-clang-14}" \
    -DCMAKE_CXX_COMPILER="${CXX_FUZZ:-clang++-14}" >/dev/null
  cmake --build "$coverage" -j"${TARV_JOBS:-2}" >/dev/null
  table=fuzz/CAMPAIGN.md
  mapfile -t every < "$build/fuzzers.txt"
  # Rows of harnesses that did not run in this build directory are kept from the table.
  declare -A kept=()
  if [ -f "$table" ]; then
    while IFS= read -r row; do
      name=$(echo "$row" | awk -F'|' '{gsub(/ /, "", $2); print $2}')
      [ -n "$name" ] && kept[$name]=$row
    done < <(grep -E '^\| [a-z0-9_]+_fuzzer \|' "$table")
  fi
  {
    echo "# Fuzzing campaign"
    echo
    echo "Written by \`fuzz/run-fuzzers.sh --campaign MINUTES\` on $(getconf _NPROCESSORS_ONLN) cores, each row from the"
    echo "harness's latest campaign run (its start, the commit it ran at, \"+changes\""
    echo "when the tree had uncommitted changes, and how many harnesses were fuzzed at once). libFuzzer under ASan + UBSan with the dictionaries under"
    echo "fuzz/. Line coverage: clang's source-based coverage of the seed corpus and the campaign's inputs"
    echo "replayed through the harness, over the harness's reader files, measured after the harness's run"
    echo "(this table last written $(date -u '+%Y-%m-%d %H:%M'))."
    echo
    echo "| harness | started (UTC) | commit | at once | minutes | executions | executions/s | edges (cov) | features | corpus | findings | line coverage of its readers | reader files |"
    echo "|---|---|---|---|---|---|---|---|---|---|---|---|---|"
    for h in "${every[@]}"; do
      j=$build/campaign/$h.json
      if [ ! -f "$j" ]; then
        [ -n "${kept[$h]:-}" ] && echo "${kept[$h]}"
        continue
      fi
      line=$(coverage_one "$h")
      /usr/bin/python3 - "$j" "$h" "${line:-0}" "$(reader_files "$h")" <<'PY'
import json, sys
j = json.load(open(sys.argv[1]))
h, line, files = sys.argv[2], sys.argv[3], sys.argv[4]
rate = j["executions"] / (j["minutes"] * 60.0)
print(f"| {h} | {j['date']} | {j['commit']} | {j.get('parallel', 2)} | {j['minutes']} | {j['executions']} | {rate:.0f} | {j['cov']} | "
      f"{j['features']} | {j['corpus']} | {j['findings']} | {line} % | "
      f"{', '.join('`' + f + '`' for f in files.split())} |")
PY
    done
  } > "$table"
  cat "$table"
  if [ -n "$(find "$build/artifacts" -type f 2>/dev/null)" ]; then
    echo "== findings are under $build/artifacts/" >&2
    exit 1
  fi
fi

if [ ${#failed[@]} -gt 0 ]; then
  echo "== fuzz harnesses failed: ${failed[*]}" >&2
  exit 1
fi
echo "== all fuzz harnesses passed"
