#!/bin/sh
# Draws bench_scan's figures file (--figures) as one SVG: objects per second
# and peak memory (log scale) against the volume's objects (log scale). Run
# by hand after a curve run; needs gnuplot (Debian: gnuplot-nox).
#
#   bench/plot.sh [FIGURES.csv [OUT.svg]]    (default: bench/scan-curve.csv, bench/scan-curve.svg)
set -eu
here=$(dirname "$0")
figures=${1:-$here/scan-curve.csv}
out=${2:-$here/scan-curve.svg}
[ -r "$figures" ] || { echo "plot.sh: cannot read $figures" >&2; exit 1; }
command -v gnuplot >/dev/null || { echo "plot.sh: gnuplot is not installed (apt install gnuplot-nox)" >&2; exit 1; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# Prints a plot clause for run $1 (its rows in a file of their own, in the
# file's order: bench_scan writes sizes ascending), column $2 as y, title $3,
# style $4; nothing when the file has no such run.
series() {
  f="$tmp/$(echo "$1" | tr ' ' _).csv"
  awk -F, -v run="$1" 'NR > 1 && $2 == run' "$figures" >"$f"
  [ -s "$f" ] && printf '"%s" using 1:(%s) with linespoints %s title "%s", ' "$f" "$2" "$4" "$3"
  return 0
}
rate=$(series "velkor -L" '$6' "velkor -L" "lw 2 pt 7")$(series "baseline" '$6' "baseline" "lw 2 pt 5")$(series "batch -L" '$6' "velkor-batch -L" "lw 2 pt 9")
memory=$(series "velkor -L" '$5/1024' "velkor -L" "lw 2 pt 7")$(series "baseline" '$5/1024' "baseline" "lw 2 pt 5")
memory=$memory$(series "report table" '$5/1024' "velkor-report (table)" "pt 4")
memory=$memory$(series "report csv" '$5/1024' "velkor-report --format csv" "pt 6")
memory=$memory$(series "report json" '$5/1024' "velkor-report --format json" "pt 8")
[ -n "$rate" ] || { echo "plot.sh: no velkor, baseline or batch rows in $figures" >&2; exit 1; }

gnuplot <<EOF
set terminal svg size 900,760 dynamic font "sans,12" background "white"
set output "$out"
set datafile separator ","
set logscale x
set xtics ("1,000" 1e3, "10,000" 1e4, "100,000" 1e5, "1,000,000" 1e6, "10,000,000" 1e7, "100,000,000" 1e8)
set grid
set offsets graph 0.03, graph 0.03, 0, 0
set key outside right top
set lmargin 10
set rmargin 34
set multiplot layout 2,1 title "velkor -L on generated volumes ($(basename "$figures"))"
set title "throughput"
set ylabel "objects per second"
set yrange [0:*]
plot ${rate%, }
set title "peak memory (velkor, baseline: VmHWM; velkor-report on the list run's log: ru\\\\_maxrss)"
set xlabel "objects on the volume"
set ylabel "MiB (log scale)"
set logscale y
set yrange [1:*]
plot ${memory%, }
unset multiplot
EOF
echo "plot.sh: wrote $out"
