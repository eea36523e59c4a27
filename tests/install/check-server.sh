#!/usr/bin/env bash
# What a server gets from the component "velkor", checked with the tools that
# read it, on a staging root (DESTDIR, prefix /usr):
# - the systemd units pass systemd-analyze verify, and the enablement of the
#   example, run offline, enables the timer;
# - systemd-tmpfiles makes the log directory 0750, and so does the package's
#   postinst on a server without systemd-tmpfiles;
# - logrotate reads the rotation (-d), then rotates a log in the directory
#   twice: the newest rotated log stays plain, the one before is compressed;
# - bash-completion finds the completion of each program, which completes
#   options (velkor's: those of its option table), volumes and values;
# - the cron line of the example is valid and runs (velkor-batch on a
#   simulated volume), and velkor-report judges its log, also once the log
#   was rotated;
# - the unit's metrics command writes what promtool reads.
#
#   check-server.sh BUILD_DIR SOURCE_DIR SYSCONFDIR
set -euo pipefail
build="$1" source="$2" sysconfdir="$3"
work="$(mktemp -d)"
sim=""
cleanup() {
  if [ -n "$sim" ]; then fusermount3 -u "$work/mnt" 2> /dev/null || kill "$sim" 2> /dev/null || true; wait "$sim" || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "server: $*" >&2; exit 1; }
for tool in systemd-analyze systemctl systemd-tmpfiles logrotate promtool pkg-config; do
  command -v "$tool" > /dev/null || fail "$tool is missing (scripts/install-deps installs it)"
done
[ -f /usr/share/bash-completion/bash_completion ] || fail "bash-completion is missing (scripts/install-deps installs it)"
stage="$work/root"
DESTDIR="$stage" cmake --install "$build" --component velkor --prefix /usr > /dev/null
case "$sysconfdir" in /*) etc="$stage$sysconfdir" ;; *) etc="$stage/usr/$sysconfdir" ;; esac
examples="$stage/usr/share/doc/velkor/examples"

# ---- systemd ----
units="$stage/usr/lib/systemd/system"
# The targets the units' default dependencies name, from the host.
cp /lib/systemd/system/*.target "$units/"
enable=$(grep -v '^#' "$examples/systemd-timer")
read -r -a words <<< "$enable"
[ "${words[*]:0:3}" = "systemctl enable --now" ] && [ ${#words[@]} = 4 ] || fail "unexpected enablement: $enable"
timer="${words[3]}"
# Starting needs the running systemd; enabling is done offline in the root.
systemctl --root="$stage" --quiet enable "$timer"
[ -L "$stage/etc/systemd/system/timers.target.wants/$timer" ] || fail "$timer was not enabled"
verify=$(systemd-analyze verify --man=no --root="$stage" "$timer" "${timer%.timer}.service" 2>&1) ||
  fail "systemd-analyze verify: $verify"
[ -z "$verify" ] || fail "systemd-analyze verify: $verify"
for page in $(sed -n 's/^Documentation=//p' "$units"/velkor-check@.*); do
  name="${page#man:}" section="${page##*(}"
  name="${name%(*}" section="${section%)}"
  [ -f "$stage/usr/share/man/man$section/$name.$section" ] || fail "the units name $page, which is not installed"
done

# ---- the log directory and its rotation ----
systemd-tmpfiles --create --root="$stage" velkor.conf
[ "$(stat -c '%a %U' "$stage/var/log/velkor")" = "750 root" ] || fail "/var/log/velkor: $(stat -c '%a %U' "$stage/var/log/velkor")"
rmdir "$stage/var/log/velkor"
mkdir "$work/bin"
ln -s "$(command -v grep)" "$(command -v install)" "$work/bin/"
DPKG_ROOT="$stage" PATH="$work/bin" /bin/sh "$source/debian/velkor.postinst" configure ||
  fail "the postinst failed without systemd-tmpfiles"
[ "$(stat -c '%a %U %G' "$stage/var/log/velkor")" = "750 root root" ] ||
  fail "/var/log/velkor after the postinst: $(stat -c '%a %U %G' "$stage/var/log/velkor")"
rotate="$etc/logrotate.d/velkor"
logrotate -d -s "$work/logrotate.state" "$rotate" > "$work/logrotate.out" 2>&1 ||
  fail "logrotate -d: $(cat "$work/logrotate.out")"
! grep -qi 'error' "$work/logrotate.out" || fail "logrotate -d: $(cat "$work/logrotate.out")"
sed "s|/var/log/velkor|$stage/var/log/velkor|" "$rotate" > "$work/rotate.conf"
for _ in 1 2; do
  echo "<velkor>" > "$stage/var/log/velkor/velkor.log"
  logrotate -f -s "$work/logrotate.state" "$work/rotate.conf"
done
[ -f "$stage/var/log/velkor/velkor.log.1" ] && [ -f "$stage/var/log/velkor/velkor.log.2.gz" ] &&
  [ ! -e "$stage/var/log/velkor/velkor.log" ] || fail "the log was not rotated: $(ls "$stage/var/log/velkor")"

# ---- completion ----
completions="$stage$(pkg-config --variable=completionsdir bash-completion)"
mkdir -p "$work/media/VOL1" "$work/media/VOL2" "$work/files"
touch "$work/files/a.dat"
completed=$(
  MEDIA="$work/media" FILES="$work/files" XDG_DATA_DIRS="$stage/usr/share" PATH="$stage/usr/bin:$PATH" bash --norc -c '
    source /usr/share/bash-completion/bash_completion
    compopt() { :; }  # acts only inside a completion the shell runs
    # Completes the last word of the line given as arguments.
    complete_line() {
      COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMP_LINE="$*"; COMP_POINT=${#COMP_LINE}; COMPREPLY=()
      __load_completion "$1" || { echo "no completion for $1"; return; }
      local function=$(complete -p "$1" | sed "s/.*-F \([^ ]*\) .*/\1/")
      _velkor_mount_root="$MEDIA"
      "$function" "$1" "${COMP_WORDS[-1]}" "${COMP_WORDS[-2]}"
      echo "$* => $(printf "%s\n" "${COMPREPLY[@]}" | sort | tr "\n" " ")"
    }
    complete_line velkor --
    complete_line velkor -L ""
    complete_line velkor --fix-
    complete_line velkor -l "$FILES/"
    complete_line velkor-batch -F V
    complete_line velkor-batch --q
    complete_line velkor-batch --progr
    complete_line velkor-report --for
    complete_line velkor-report --format p
    complete_line velkor-report --volume ""
    complete_line velkor-report --problem inv
    complete_line velkor-report --max
  ' 2>&1 < /dev/null
  )
# Every long option of velkor's option table but -I's, which velkor refuses.
long=$(sed -n 's/^ *{"\([a-z-]*\)", [a-z_]*_argument,.*/--\1/p' "$source/util/velkor/commandLine.h" |
  grep -vx -- --non-interactive | sort | tr '\n' ' ')
expected="velkor -- => $long
velkor -L  => VOL1 VOL2 
velkor --fix- => --fix-all --fix-stats 
velkor -l $work/files/ => $work/files/a.dat 
velkor-batch -F V => VOL1 VOL2 
velkor-batch --q => --quiet 
velkor-batch --progr => --progress --progress= 
velkor-report --for => --format= 
velkor-report --format p => prometheus 
velkor-report --volume  => VOL1 VOL2 
velkor-report --problem inv => invalidAttribute invalidState invalidZid 
velkor-report --max => --max-age= "
[ "$completed" = "$expected" ] || { diff <(echo "$expected") <(echo "$completed") || true; fail "completions differ"; }
[ -f "$completions/velkor" ] || fail "no completion in $completions"

# ---- the cron line, and the metrics ----
# A command of the package with its programs and files in the staging root.
staged() { sed -E "s#(^| )/(usr|var)/#\1$stage/\2/#g" <<< "$1"; }
cron=$(grep -v '^#' "$examples/velkor.cron")
read -r minute hour day month weekday user command <<< "$cron"
field='^(\*|[0-9]+(-[0-9]+)?(,[0-9]+(-[0-9]+)?)*)(/[0-9]+)?$'
for f in "$minute" "$hour" "$day" "$month" "$weekday"; do
  [[ $f =~ $field ]] || fail "cron field '$f' of: $cron"
done
[ "$user" = root ] || fail "the cron line runs as '$user'"
bash -n -c "$command" || fail "cron command: $command"
program="${command%% *}"
[ -x "$stage$program" ] || fail "the cron line runs $program, which is not installed"
log="$stage/var/log/velkor/velkor.log"
# The line's command as cron runs it, on a generated volume in the sandbox.
mkdir "$work/mnt"
"$build/sim/kvfsim" --generate 60 "$work/mnt" > "$work/kvfsim.out" 2>&1 &
sim=$!
for _ in $(seq 100); do [ -e "$work/mnt/control/state.json" ] && break; sleep 0.1; done
status=0
"$source/scripts/kvf-sandbox" --admin "$work/mnt/Manage_KVF" --volume "/media/kvf/VOL1=$work/mnt/volumes/VOL1" \
  --ro "$stage/usr/sbin" --cwd "$stage/var/log/velkor" -- \
  /bin/sh -c "$(staged "$command")" < /dev/null || status=$?
# The generated volume has problem files: found, none repaired.
[ "$status" = 4 ] || fail "the cron line's command exited $status"
status=0
"$stage/usr/bin/velkor-report" --check --volume VOL1 "$log" > /dev/null || status=$?
[ "$status" = 1 ] || fail "velkor-report --check on the cron line's log gave $status"
# The day after a rotation the log holds no run yet: the verdict is the same.
logrotate -f -s "$work/logrotate.state" "$work/rotate.conf"
status=0
"$stage/usr/bin/velkor-report" --check --max-age 8d --volume VOL1 "$log" > "$work/check.out" || status=$?
[ "$status" = 1 ] || fail "velkor-report --check after the rotation gave $status: $(cat "$work/check.out")"
# The unit's metrics command, its paths into the staging root.
metrics=$(sed -n 's/^ExecStopPost=-//p' "$units/velkor-check@.service")
metrics="${metrics//%i/VOL1}"
mkdir -p "$stage/var/lib/prometheus/node-exporter"
(PATH=/usr/bin:/bin; eval "$(staged "$metrics")")
promtool check metrics < "$stage/var/lib/prometheus/node-exporter/velkor-VOL1.prom" ||
  fail "promtool: $(cat "$stage/var/lib/prometheus/node-exporter/velkor-VOL1.prom")"
echo "server: units, log directory, rotation, completion, cron line and metrics checked"
