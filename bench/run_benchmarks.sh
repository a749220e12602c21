#!/bin/bash
# Builds and runs the dataset benchmarks and their numpy/scipy peers in one run, and prints one
# table (ours / peer / ratio / goal). Single thread and processor time unless a row says otherwise
# (thread rows and the tool's rows: wall time); medians of the repetitions.
#
#   bench/run_benchmarks.sh [build directory]     (default: build-bench beside this script's parent)
#
# TARV_BENCH_DIR holds the volumes and files (default: a fresh directory under /tmp, removed after).
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
root="$(dirname "$here")"
build="${1:-$root/build-bench}"

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DTARV_BUILD_BENCH=ON -DTARV_BUILD_TOOLS=ON > /dev/null
cmake --build "$build" --target tarv_bench tarv _tarv -j2 > /dev/null

work="${TARV_BENCH_DIR:-}"
cleanup=0
if [ -z "$work" ]; then
  work="$(mktemp -d /tmp/tarv-bench.XXXXXX)"
  cleanup=1
fi
export TARV_BENCH_DIR="$work"
export OMP_NUM_THREADS=1 OPENBLAS_NUM_THREADS=1

echo "machine: $(lscpu | sed -n 's/^Model name: *//p'), $(getconf _NPROCESSORS_ONLN) cores, $(free -g | awk '/^Mem/ {print $2}') GiB" >&2
echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)" >&2
"$build/bench/tarv_bench" --write-volumes "$work"
"$build/bench/tarv_bench" --benchmark_format=json --benchmark_out="$work/ours.json" \
  --benchmark_out_format=json > /dev/null 2> "$work/ours.stderr" || { cat "$work/ours.stderr" >&2; exit 1; }
/usr/bin/python3 "$here/peers.py" "$work" > "$work/peers.json"
/usr/bin/python3 "$here/tool_rows.py" "$build/tools/tarv" "$work" > "$work/tools.json"
PYTHONPATH="$build/python" /usr/bin/python3 "$here/python_rows.py" "$root/examples/graphs/edges.graph" > "$work/python.json"
echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)" >&2
/usr/bin/python3 "$here/table.py" "$work/ours.json" "$work/peers.json" "$work/tools.json" "$work/python.json"
if [ "$cleanup" = 1 ]; then rm -rf "$work"; fi
