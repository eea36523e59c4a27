#!/usr/bin/env bash
# cmake --install of the build into an empty prefix installs exactly the
# expected files, and the installed programs run from there: velkor -v inside
# the sandbox (it looks for the admin volume before anything else) against a
# plain management file, velkor-report --help, kvfsim without a mount point.
#
#   check-install.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build="$1" source="$2"
prefix="$(mktemp -d)"
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" > /dev/null

expected="bin/kvf-sandbox
bin/kvfsim
bin/velkor-report
etc/logrotate.d/velkor
lib/systemd/system/velkor-check@.service
lib/systemd/system/velkor-check@.timer
lib/tmpfiles.d/velkor.conf
sbin/velkor
sbin/velkor-batch
share/bash-completion/completions/velkor
share/bash-completion/completions/velkor-batch
share/bash-completion/completions/velkor-report
share/doc/velkor/examples/systemd-timer
share/doc/velkor/examples/velkor-check-mail.conf
share/doc/velkor/examples/velkor-check-mail@.service
share/doc/velkor/examples/velkor-check-nightly-timer.conf
share/doc/velkor/examples/velkor-check-nightly.conf
share/doc/velkor/examples/velkor-check-repair.conf
share/doc/velkor/examples/velkor.cron
share/doc/velkor/examples/velkor.rules.test.yml
share/doc/velkor/examples/velkor.rules.yml
share/man/man1/kvf-sandbox.1
share/man/man1/kvfsim.1
share/man/man1/velkor-report.1
share/man/man8/velkor-batch.8
share/man/man8/velkor.8"
actual="$(cd "$prefix" && find . \( -type f -o -type l \) | sed 's|^\./||' | sort)"
if [ "$actual" != "$expected" ]; then
  echo "installed files differ from the expected ones:"
  diff <(echo "$expected") <(echo "$actual") || true
  exit 1
fi

touch "$prefix/manage.cmd"
version="$("$prefix/bin/kvf-sandbox" --manage-file "$prefix/manage.cmd" --cwd "$prefix" -- "$prefix/sbin/velkor" -v)"
[ "$(echo "$version" | head -1)" = "velkor (KVF) 1.00" ] || { echo "velkor -v: $version"; exit 1; }
"$prefix/sbin/velkor-batch" --version | grep -qx 'velkor-batch (KVF) 1.00' || { echo "velkor-batch --version"; exit 1; }
"$prefix/bin/velkor-report" --help | grep -q -- '--check' || { echo "velkor-report --help lacks --check"; exit 1; }
"$prefix/bin/kvfsim" --generate 5 --expect "$prefix/expect.json"
[ -s "$prefix/expect.json" ] || { echo "kvfsim wrote no expectations"; exit 1; }
echo "install: $(echo "$expected" | wc -l) files, programs run from the prefix"
