#!/usr/bin/env bash
# What kvf-sandbox isolates: the command sees none of the host's processes,
# has no capabilities, sees the sandbox's own /usr read-only whatever the
# working directory, and a read-only bind below the working directory stays
# read-only; a working directory of / is refused, from --cwd or from where it
# is run, and one below /usr or /etc; the host's /run/lock/velkor is the
# sandbox's (or --lock-dir's); --help prints the script's header comment and
# nothing else.
#
#   check-sandbox.sh SOURCE_DIR
set -euo pipefail
sandbox="$1/scripts/kvf-sandbox"
dir="$(mktemp -d)"
marker="kvf-sandbox-host-process-$$"
host=""
cleanup() {
  [ -z "$host" ] || kill "$host" 2> /dev/null || true
  rm -rf "$dir"
}
trap cleanup EXIT
failed=0
check() {
  local what="$1"
  shift
  if "$@"; then echo "ok: $what"; else echo "FAILED: $what"; failed=1; fi
}

# A host process the command must not see. The probe takes the process's
# name from the environment, so that no command line but the process's own
# holds it.
(exec -a "$marker" sleep 300) &
host=$!
until grep -qa "$marker" "/proc/$host/cmdline" 2> /dev/null; do sleep 0.05; done
export MARKER="$marker"
probe='printf "%s\n" "$MARKER" | grep -laFf - /proc/[0-9]*/cmdline 2> /dev/null | grep -q .'
check "the host sees its own process" sh -c "$probe"
inside() {
  "$sandbox" --cwd "$dir" -- /bin/sh -c "$1" > "$dir/out" 2>&1
}
check "the command sees no host process" inside "! { $probe; }"
check "the command has no capabilities" \
  inside 'grep -qx "CapEff:[[:space:]]*0*" /proc/self/status && grep -qx "CapPrm:[[:space:]]*0*" /proc/self/status'

# The working directory is bound after the layout, read-only binds after it.
mkdir -p "$dir/work/sub"
echo kept > "$dir/work/sub/file"
ro_below_cwd() {
  "$sandbox" --ro "$dir/work/sub" --cwd "$dir/work" -- /bin/sh -c \
    'test -x /usr/bin/env && ! touch /usr/kvf-sandbox-probe 2> /dev/null && test -s /etc/passwd &&
     ! (echo changed > sub/file) 2> /dev/null && echo written > here'
  [ "$(cat "$dir/work/sub/file")" = kept ] && [ "$(cat "$dir/work/here")" = written ]
}
check "/usr and /etc are the sandbox's, a read-only bind below the working directory stays read-only" ro_below_cwd

refused() {
  local err
  if err="$(cd "$1" && "$sandbox" "${@:2}" -- /bin/true 2>&1)"; then return 1; fi
  echo "$err" | grep -q "the working directory / .* would be bound read-write over the whole sandbox"
}
check "--cwd / is refused" refused "$dir" --cwd /
check "a working directory / taken from where it runs is refused" refused /
check "--cwd /etc is refused" eval '! "$sandbox" --cwd /etc -- /bin/true 2> /dev/null'
below() {
  local err
  if err="$("$sandbox" --cwd "$1" -- /bin/true 2>&1)"; then return 1; fi
  echo "$err" | grep -q "the working directory $1 (--cwd) would be bound read-write below the sandbox's own $2"
}
check "--cwd below /usr is refused" below /usr/share /usr
check "--cwd below /etc is refused" below "$(find /etc -mindepth 1 -maxdepth 1 -type d | head -1)" /etc

# Runs in sandboxes meet runs on the host at the host's lock directory (made
# when missing, as velkor makes it); --lock-dir puts another in its place.
same_lock_dir() {
  local inside
  inside="$("$sandbox" --cwd "$dir" "${@:2}" -- /usr/bin/stat -c '%d:%i %a' /run/lock/velkor)" &&
    [ "$inside" = "$(stat -c '%d:%i %a' "$1")" ]
}
check "the host's /run/lock/velkor is the sandbox's" same_lock_dir /run/lock/velkor
mkdir -m 0700 "$dir/locks"
check "--lock-dir binds another lock directory" same_lock_dir "$dir/locks" --lock-dir "$dir/locks"

# --help: the header comment (from line 2 to the first line that is not a
# comment), without its comment marks.
header_only() {
  local help n
  help="$("$sandbox" --help)"
  n="$(echo "$help" | wc -l)"
  [ "$(echo "$help" | sed 's/^/# /; s/^# $/#/')" = "$(sed -n "2,$((n + 1))p" "$sandbox")" ] &&
    ! sed -n "$((n + 2))p" "$sandbox" | grep -q '^#'
}
check "--help prints the header comment and nothing else" header_only
exit "$failed"
