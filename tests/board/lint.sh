#!/bin/sh
# Reads what the package and the bench bring besides their programs the way those will who use
# it: the shells, the manual's formatter, systemd, and Debian's own check of packages.
#   lint.sh SOURCEDIR BUILDDIR
# Exit code 77: a checker is missing.
set -eu

source=$1
build=$2
packaging=$source/packaging

for checker in dash shellcheck mandoc lintian; do
    if ! command -v "$checker" >/dev/null; then
        echo "SKIPPED: $checker is not installed"
        exit 77
    fi
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

faults=0
fault() {
    echo "FAILED: $1" >&2
    faults=$((faults + 1))
}

for script in "$packaging"/start "$packaging"/mftool.init "$packaging"/examples/sdcard "$packaging"/*.sh \
    "$packaging"/debian/postinst "$packaging"/debian/prerm "$source"/tests/board/*.sh \
    "$source"/scripts/*.sh "$source"/test.sh "$source"/run.sh; do
    dash -n "$script" || fault "dash cannot read $script"
    shellcheck "$script" || fault "shellcheck finds faults in $script"
done

shellcheck --shell=bash "$source/bench/completion.bash" || fault "shellcheck finds faults in the completion"

for page in "$packaging/mftool.1" "$source/docs/bench.1"; do
    mandoc -T lint -W warning "$page" || fault "the manual page $page has faults"
    if command -v man >/dev/null; then
        warnings=$(man --warnings -l "$page" 2>&1 >/dev/null)
        [ -z "$warnings" ] || fault "the manual page $page does not format well: $warnings"
    fi
done

# Its program is not installed here, so that it gets another one that is there.
if command -v systemd-analyze >/dev/null; then
    sed 's,^ExecStart=.*,ExecStart=/bin/true,' "$packaging/mftool.service" >"$work/mftool.service"
    status=0
    complaints=$(systemd-analyze verify --man=no "$work/mftool.service" 2>&1) || status=$?
    [ "$status$complaints" = 0 ] || fault "systemd does not understand the unit: $complaints"
else
    echo "no systemd-analyze here: the unit is verified where the package is installed"
fi

# What is meant to be otherwise stands in packaging/debian/lintian-overrides.
# lintian's check of init scripts dies of a package without a postrm script.
(cd "$build" && cpack -B "$work" >/dev/null)
lintian --allow-root --fail-on error,warning --dont-check-part init-d "$work"/*.deb || fault "lintian finds faults in the package"

[ "$faults" = 0 ] && echo "no faults"
