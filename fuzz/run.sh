#!/usr/bin/env bash
# Builds the fuzz targets with clang (in build-fuzz) and runs each for SECONDS.
# Exits non-zero when a target finds a crash; its input is kept in
# build-fuzz/fuzz/artifacts/. Being a clang build, it also checks the lock
# contracts (common/threadSafety.h, -Wthread-safety) of the libraries the
# targets link, velkor's and the simulator's.
#
#   fuzz/run.sh SECONDS [--keep DIR] [--only TARGET] [--runs N]
#
#   SECONDS        time per target; 0: no time limit (then give --runs)
#   --keep DIR     keep each target's corpus in DIR/TARGET across runs: a run
#                  resumes from what the earlier ones found (and the seeds);
#                  each target's output goes to DIR/TARGET.log as it runs
#   --only TARGET  run that target alone (fuzz_reply, fuzz_numbers,
#                  fuzz_sim_request, fuzz_log)
#   --runs N       stop each target after N executions
#
# Without --keep each target starts from a copy of its seeds in a temporary
# directory that is removed afterwards.
set -euo pipefail
usage() { awk 'NR > 1 && /^#/ { sub(/^# ?/, ""); print; next } NR > 1 { exit }' "$0" >&2; exit 2; }
[ $# -ge 1 ] || usage
seconds="$1"; shift
[[ "$seconds" =~ ^[0-9]+$ ]] || usage
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build-fuzz"
targets=(fuzz_reply fuzz_numbers fuzz_sim_request fuzz_log)
keep="" runs=""
while [ $# -gt 0 ]; do
  case "$1" in
    --keep) [ $# -ge 2 ] || usage; keep="$2"; shift 2 ;;
    --only)
      [ $# -ge 2 ] || usage
      [[ " ${targets[*]} " == *" $2 "* ]] || { echo "fuzz: no target $2 (${targets[*]})" >&2; exit 2; }
      targets=("$2"); shift 2 ;;
    --runs) [ $# -ge 2 ] && [[ "$2" =~ ^[0-9]+$ ]] || usage; runs="$2"; shift 2 ;;
    *) usage ;;
  esac
done
[ "$seconds" != 0 ] || [ -n "$runs" ] || { echo "fuzz: SECONDS 0 needs --runs" >&2; exit 2; }

# The seeds of each target.
seeds() {
  case "$1" in
    fuzz_sim_request) echo "$root/fuzz/corpus-sim-request" ;;
    fuzz_log) echo "$root/fuzz/corpus-log" ;;
    *) echo "$root/fuzz/corpus" ;;
  esac
}

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELKOR_FUZZ=ON -DVELKOR_BENCH=OFF > "$build.configure.log" 2>&1 \
  || { cat "$build.configure.log"; exit 1; }
ninja -C "$build" "${targets[@]}"

if [ -n "$keep" ]; then
  mkdir -p "$keep"
  work="$(cd "$keep" && pwd)"
else
  work="$(mktemp -d)"
  trap 'rm -rf "$work"' EXIT
fi
mkdir -p "$build/fuzz/artifacts"
status=0
for target in "${targets[@]}"; do
  corpus="$work/$target"
  mkdir -p "$corpus"
  for seed in "$(seeds "$target")"/*; do
    [ -e "$corpus/${seed##*/}" ] || cp "$seed" "$corpus/"
  done
  limits=(-max_total_time="$seconds")
  [ -z "$runs" ] || limits+=(-runs="$runs")
  echo "== $target: ${seconds} s${runs:+, $runs runs}, corpus $corpus ($(ls "$corpus" | wc -l) inputs)"
  if ! "$build/fuzz/$target" "${limits[@]}" -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="$build/fuzz/artifacts/$target-" "$corpus" \
      > "$work/$target.log" 2>&1; then
    tail -60 "$work/$target.log"
    echo "fuzz: $target failed"
    status=1
  else
    grep -E '^(#[0-9]+ +DONE|stat::number_of_executed_units|Done )' "$work/$target.log" || tail -3 "$work/$target.log"
  fi
done
exit "$status"
