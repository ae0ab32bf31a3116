#!/usr/bin/env bash
# systemd has nothing to say against the user units, and their exposure has not grown.
# Usage: units_test.sh SOURCE-DIRECTORY. Status 77: nothing here can tell.
set -euo pipefail
units=$1/packaging/systemd
command -v systemd-analyze >/dev/null || { echo "no systemd-analyze (Debian package systemd)"; exit 77; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# A user manager's view of the world, empty but for these units. The programs need not be built: that they are there
# and may be run is all that is looked at.
mkdir -p "$work/bin" "$work/units" "$work/runtime"
chmod 700 "$work/runtime"
export XDG_RUNTIME_DIR=$work/runtime HOME=$work XDG_CONFIG_HOME=$work/config LC_ALL=C.UTF-8
for file in "$units"/*.service.in; do
    name=$(basename "$file" .in)
    ln -s /bin/true "$work/bin/${name%.service}"
    sed "s|@BINDIR@|$work/bin|g" "$file" > "$work/units/$name"
done

# The bus that Type=dbus asks for, also where dbus-user-session is not installed.
printf '[Socket]\nListenStream=%%t/bus\n' > "$work/units/dbus.socket"
printf '[Service]\nExecStart=/bin/true\n' > "$work/units/dbus.service"
status=0
if ! systemd-analyze --user --man=no verify "$work/units"/cuewright*.service > "$work/said" 2>&1 || [ -s "$work/said" ]; then
    echo "systemd-analyze verify:"
    cat "$work/said"
    status=1
fi

# exposure NAME LIMIT: tenths of systemd's figure from 0 (safe) to 10; docs/deploy.md names these and what is left.
exposure() {
    systemd-analyze security --offline=true --no-pager --threshold="$2" "$work/units/$1.service" > "$work/said" 2>&1 ||
        { echo "$1.service: more exposed than $2 tenths:"; tail -n 1 "$work/said"; status=1; }
    tail -n 1 "$work/said"
}
exposure cuewright 65
exposure cuewright-forwarder 64
exposure cuewright-netsurvey 64
exit $status
