#!/usr/bin/env bash
# Builds the fuzz targets with clang (in build-fuzz) and runs each for SECONDS
# on a copy of its seed corpus (fuzz/corpus-log for the run-log reader,
# fuzz/corpus for the others). Exits non-zero when a target finds a
# crash; its input is kept in build-fuzz/fuzz/artifacts/.
#
#   fuzz/run.sh 60
set -euo pipefail
seconds="${1:?usage: fuzz/run.sh SECONDS}"
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build-fuzz"
targets=(fuzz_reply fuzz_numbers fuzz_log)

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELKOR_FUZZ=ON -DVELKOR_BENCH=OFF > "$build.configure.log" 2>&1 \
  || { cat "$build.configure.log"; exit 1; }
ninja -C "$build" "${targets[@]}"

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$build/fuzz/artifacts"
status=0
for target in "${targets[@]}"; do
  mkdir -p "$work/$target"
  corpus="$root/fuzz/corpus"
  [ "$target" = fuzz_log ] && corpus="$root/fuzz/corpus-log"
  cp "$corpus/"* "$work/$target/"
  echo "== $target: ${seconds} s"
  if ! "$build/fuzz/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="$build/fuzz/artifacts/$target-" "$work/$target" \
      > "$work/$target.log" 2>&1; then
    tail -60 "$work/$target.log"
    echo "fuzz: $target failed"
    status=1
  else
    grep -E '^(#[0-9]+ +DONE|stat::number_of_executed_units|Done )' "$work/$target.log" || tail -3 "$work/$target.log"
  fi
done
exit "$status"
