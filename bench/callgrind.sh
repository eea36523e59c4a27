#!/bin/sh
# User-space instructions per object of velkor -L and of the bare client
# (bench_baseline), by callgrind: each at two sizes of one generated volume
# and simulator binary, the difference in instructions divided by the
# difference in objects (start-up and end cancel out). Instructions do not
# depend on the machine's load, which wall times do.
#
#   bench/callgrind.sh [BUILD] [SIZES] [bench_scan options, e.g. --velkor BINARY]
#                                          default: build 10000,20000
#
# Target: velkor at most 1.10 x the baseline's instructions per object.
set -eu
build="${1:-build}"
sizes="${2:-10000,20000}"
dir="$(mktemp -d "${TMPDIR:-/tmp}/velkor-callgrind.XXXXXX")"
echo "callgrind output in $dir"
if [ $# -ge 2 ]; then shift 2; else shift $#; fi
"$build/bench/bench_scan" --callgrind "$dir" --objects "$sizes" "$@"
