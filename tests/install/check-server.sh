#!/usr/bin/env bash
# What a server gets from the component "velkor", checked with the tools that
# read it, on a staging root (DESTDIR, prefix /usr):
# - the systemd units pass systemd-analyze verify (the service also with the
#   repair drop-in of the examples), the service's exposure is 2.5 or below
#   (systemd-analyze security), and the enablement of the example, run
#   offline, enables the timer;
# - systemd-tmpfiles makes the log directory 0750 and the lock directory
#   root's alone, and the package's postinst makes the log directory on a
#   server without systemd-tmpfiles;
# - logrotate reads the rotation (-d), then rotates a log in the directory
#   twice: the newest rotated log stays plain, the one before is compressed;
# - bash-completion finds the completion of each program, which completes
#   options (velkor's: those of its option table), volumes and values;
# - the cron line of the example is valid and runs (velkor-batch on a
#   simulated volume), and velkor-report judges its log, also once the log
#   was rotated;
# - the unit's metrics command writes what promtool reads;
# - the unit's command lines, run with the unit's restrictions that a
#   sandbox can apply, list, and with the repair drop-in fix and delete.
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
dropins="$stage/etc/systemd/system/${timer%.timer}.service.d"
mkdir -p "$dropins"
cp "$examples/velkor-check-repair.conf" "$examples/velkor-check-nightly.conf" "$dropins/"
mkdir -p "$stage/etc/systemd/system/$timer.d"
cp "$examples/velkor-check-nightly-timer.conf" "$stage/etc/systemd/system/$timer.d/"
cp "$examples/velkor-check-mail.conf" "$dropins/"
cp "$examples/velkor-check-mail@.service" "$stage/etc/systemd/system/"
# The mail unit runs the host's shell: verified on the host, as an instance.
cp "$examples/velkor-check-mail@.service" "$work/velkor-check-mail@velkor-check@VOL1.service.service"
verify=$(systemd-analyze verify --man=no "$work/velkor-check-mail@velkor-check@VOL1.service.service" 2>&1) ||
  fail "systemd-analyze verify: $verify"
verify=$(systemd-analyze verify --man=no --root="$stage" "$timer" "${timer%.timer}.service" 2>&1) ||
  fail "systemd-analyze verify: $verify"
[ -z "$verify" ] || fail "systemd-analyze verify: $verify"
exposure=$(systemd-analyze security --offline=true "$units/velkor-check@.service" 2>&1 |
  sed -n 's/.*Overall exposure level for [^:]*: \([0-9.]*\) .*/\1/p')
[ -n "$exposure" ] && awk -v e="$exposure" 'BEGIN { exit !(e <= 2.5) }' ||
  fail "systemd-analyze security: exposure ${exposure:-unknown}, more than 2.5"
for page in $(sed -n 's/^Documentation=//p' "$units"/velkor-check@.*); do
  name="${page#man:}" section="${page##*(}"
  name="${name%(*}" section="${section%)}"
  [ -f "$stage/usr/share/man/man$section/$name.$section" ] || fail "the units name $page, which is not installed"
done

# ---- the alerting rules, as installed ----
(cd "$examples" && promtool check rules velkor.rules.yml && promtool test rules velkor.rules.test.yml) > "$work/rules.out" 2>&1 ||
  fail "the alerting rules: $(cat "$work/rules.out")"

# ---- the log directory and its rotation ----
systemd-tmpfiles --create --root="$stage" velkor.conf
[ "$(stat -c '%a %U' "$stage/var/log/velkor")" = "750 root" ] || fail "/var/log/velkor: $(stat -c '%a %U' "$stage/var/log/velkor")"
[ "$(stat -c '%a %U' "$stage/var/lib/velkor")" = "700 root" ] || fail "/var/lib/velkor: $(stat -c '%a %U' "$stage/var/lib/velkor")"
[ "$(stat -c '%a %U' "$stage/run/lock/velkor")" = "700 root" ] ||
  fail "/run/lock/velkor: $(stat -c '%a %U' "$stage/run/lock/velkor" 2>&1)"
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
long=$(sed -n 's/^ *{"\([a-z-]*\)", [a-z_]*_argument,.*/--\1/p' "$source/util/velkor/front/commandLine.h" |
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
mkdir -m 0700 "$work/locks"
"$source/scripts/kvf-sandbox" --lock-dir "$work/locks" --admin "$work/mnt/Manage_KVF" --volume "/media/kvf/VOL1=$work/mnt/volumes/VOL1" \
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

# ---- the unit's command lines under its restrictions ----
# No service manager runs here: bwrap applies what matters of the unit (and
# its drop-ins) to its ExecStart lines: every directory read-only but those
# ReadWritePaths and LogsDirectory declare, a private /tmp, no capabilities
# but the bounding set, no new privileges (bwrap sets it always). The places
# the unit names are the simulator's and the staging root's.
declare -A place=(
  [/_admin/Manage_KVF]="$work/mnt/Manage_KVF" [/media/kvf/VOL1]="$work/mnt/volumes/VOL1"
  [/run/lock]="$work/unit-lock" [/var/log/velkor]="$stage/var/log/velkor" [/var/lib/velkor]="$work/unit-state"
)
mkdir -m 1777 "$work/unit-lock"
mkdir -m 0700 "$work/unit-state"
# unit_runs FILE... : runs the ExecStart lines of the unit files given (the
# unit, then its drop-ins), printing each one's exit status; their output
# goes to unit.out.
unit_runs() {
  local writable=() caps=() lines=() line path args
  writable+=("/var/log/$(sed -n 's/^LogsDirectory=//p' "$@")" "/var/lib/$(sed -n 's/^StateDirectory=//p' "$@")")
  for path in $(sed -n 's/^ReadWritePaths=//p' "$@"); do writable+=("${path#-}"); done
  for cap in $(sed -n 's/^CapabilityBoundingSet=//p' "$@"); do caps+=(--cap-add "$cap"); done
  while IFS= read -r line; do
    if [ -z "$line" ]; then lines=(); else lines+=("$line"); fi
  done < <(sed -n 's/^ExecStart=//p' "$@")
  : > "$work/unit.out"
  args=(--unshare-pid --die-with-parent --cap-drop ALL "${caps[@]}")
  for path in /usr /etc /var /opt /srv; do [ -d "$path" ] && args+=(--ro-bind "$path" "$path"); done
  args+=(--symlink usr/bin /bin --symlink usr/lib /lib --symlink usr/lib64 /lib64 --symlink usr/sbin /sbin)
  args+=(--dev /dev --proc /proc --tmpfs /tmp --tmpfs /run --tmpfs /media --tmpfs /var/log --tmpfs /var/lib)
  args+=(--ro-bind "$stage/usr" "$stage/usr")
  for path in "${!place[@]}"; do
    local bind=--ro-bind
    for w in "${writable[@]}"; do
      w="${w//%i/VOL1}"
      [[ "$path/" == "$w/"* ]] && bind=--bind
    done
    args+=("$bind" "${place[$path]}" "$path")
  done
  for line in "${lines[@]}"; do
    line="${line//%i/VOL1}"
    local status=0
    # The program from the staging root; its arguments as the unit has them.
    bwrap "${args[@]}" -- /bin/sh -c "exec $stage${line#-}" < /dev/null >> "$work/unit.out" 2>&1 || status=$?
    echo "$status"
  done
}
volume_files() { find "$work/mnt/volumes/VOL1" -type f | wc -l; }
[ "$(unit_runs "$units/velkor-check@.service")" = 4 ] || fail "the unit's list: $(cat "$work/unit.out")"
# The nightly window's run: a whole pass on this small volume, its checkpoint gone at its end.
[ "$(unit_runs "$units/velkor-check@.service" "$dropins/velkor-check-nightly.conf")" = 4 ] ||
  fail "the nightly drop-in's list: $(cat "$work/unit.out")"
grep -q "no checkpoint of VOL1 in /var/lib/velkor: a new pass begins" "$work/unit.out" ||
  fail "the nightly run did not look for its pass: $(cat "$work/unit.out")"
[ -z "$(ls -A "$work/unit-state")" ] || fail "the ended pass left $(ls "$work/unit-state")"
before=$(volume_files)
# The fix leaves the corrupted files, the delete the fixable files the fix
# did not take (open ones): 4 both; what matters is what they did.
statuses=$(unit_runs "$units/velkor-check@.service" "$dropins/velkor-check-repair.conf" | tr '\n' ' ')
[ "$statuses" = "4 4 " ] || fail "the repair drop-in's fix and delete exited $statuses: $(cat "$work/unit.out")"
grep -Eq -- '--fix-all VOL1: .*\(([1-9][0-9]*) fixed' "$work/unit.out" || fail "the fix fixed nothing: $(cat "$work/unit.out")"
[ "$(volume_files)" -lt "$before" ] || fail "the delete unlinked no file: $(cat "$work/unit.out")"
echo "server: units, log directory, rotation, completion, cron line, metrics and the unit's runs checked"
