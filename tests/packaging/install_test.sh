#!/usr/bin/env bash
# Installs a build below a prefix of its own and uses what is there: each program starts and does some of its work,
# and the files around the programs are in their places. Usage: install_test.sh CMAKE BUILD-DIRECTORY VERSION
set -euo pipefail
export LC_ALL=C.UTF-8
cmake=$1
build=$2
version=$3

programs='cuewright cuewright-check cuewright-forwarder cuewright-monitor cuewright-netsurvey cuewright-node
    cuewright-recording cuewrightctl'
# Nobody's port: frames of the show are sent to it on this machine and go nowhere.
port=47113
# That of the simulated node, with the discovery beside it.
node_port=47114

directory=$(mktemp -d)
node=
trap '[ -z "$node" ] || kill "$node" 2>/dev/null || true; rm -rf "$directory"' EXIT
prefix=$directory/prefix
log=$directory/log
mkdir "$directory/work"
cd "$directory/work"

fail() {
    echo "FAILED: $*"
    [ ! -s "$log" ] || sed 's/^/    /' "$log"
    exit 1
}
# run COMMAND...: must succeed; its output is in $log.
run() { "$@" > "$log" 2>&1 < /dev/null || fail "$* (status $?)"; }
# says PATTERN: the output of the last command must match.
says() { grep -qE -e "$1" "$log" || fail "nothing matches: $1"; }
# refuses STATUS COMMAND...
refuses() {
    local expected=$1 status=0
    shift
    "$@" > "$log" 2>&1 < /dev/null || status=$?
    [ "$status" = "$expected" ] || fail "$*: expected status $expected, not $status"
}

run "$cmake" --install "$build" --prefix "$prefix"
export PATH=$prefix/bin:/usr/bin:/bin

# The files
found=$(cd "$prefix/bin" && echo *)
[ "$found" = "$(xargs <<< "$programs")" ] || fail "not the programs that were expected: $found"
for program in $programs; do
    grep -qx "\.Dt ${program^^} 1" "$prefix/share/man/man1/$program.1" || fail "$program has no manual page"
done
for program in $programs; do
    # The service has no options to complete.
    [ "$program" != cuewright ] || continue
    completion=$prefix/share/bash-completion/completions/$program
    run bash -euc "source '$completion'; complete -p $program"
    says "-F [a-z_]+ .*$program\$"
done
for program in cuewright cuewright-forwarder cuewright-netsurvey; do
    grep -qx "ExecStart=$prefix/bin/$program" "$prefix/lib/systemd/user/$program.service" || fail "the unit of $program"
done
grep -qx "Exec=.* $prefix/bin/cuewright-netsurvey" "$prefix/share/dbus-1/services/com.torvexserver.Netsurvey.service" ||
    fail "the activation file of the discovery"
! grep -rlF "$build" "$prefix/lib" "$prefix/share" || fail "a file names the build directory"

# Every program starts
for program in $programs; do
    [ "$program" != cuewright ] || continue
    run "$program" --version
    says "^$program $version\$"
    run "$program" --help
    says '^Usage: '
    says '^Exit status:'
done
refuses 1 env DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent cuewright
refuses 3 env DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent cuewrightctl play 1

# Recordings
run cuewright-recording generate --pattern still --universes 0-1 --seconds 0.5 show.rec
run cuewright-recording info --json show.rec
says '"frames": ?20\b'
run cuewright-recording check show.rec
says '^show.rec: good'
run cuewright-recording cut --to 0.2 show.rec part.rec
run cuewright-recording remap part.rec moved.rec 0-1=10-11
run cuewright-recording merge both.rec show.rec moved.rec
run cuewright-recording dump both.rec
[ "$(grep -c ' ArtDmx universe 1[01] ' "$log")" = 16 ] || fail "not the packets that were expected"
run cuewright-recording plot both.rec both.svg
run tail -n 1 both.svg
says '</svg>'
head -c 1000 show.rec > cut-short.rec
refuses 1 cuewright-recording check cut-short.rec

# A data directory, which is the service's own: beside the directory of the programs
mkdir -p "$prefix/data/playlists"
mv show.rec "$prefix/data/"
echo '[{"Id": 1, "Loop": false, "Brightness": 100}]' > "$prefix/data/playlists/playlists.json"
echo "[{\"path\": \"show.rec\", \"fps\": -1, \"outputs\": [\"0:192.0.2.10:$port\"]}]" > "$prefix/data/playlists/1.json"
run cuewright-check "$prefix/data"
says ': 0 errors, '

# The network's other end
run cuewright-monitor --address 127.0.0.1 --port 0 --duration 0.05 --json
says '"type":"monitor"'
refuses 1 cuewright-monitor --address 127.0.0.1 --port 0 --duration 0.05 --compare "$prefix/data/show.rec"

# A node, and what finds it: the node's reply goes to 127.0.0.1, where it must not listen itself
cuewright-node --universe 4-5 --name Truss --address 127.0.0.2 --port $node_port --json > node.json 2> node.err < /dev/null &
node=$!
without_bus=(env DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent)
for try in {1..100}; do
    run "${without_bus[@]}" cuewright-netsurvey --list --wait 0.1 --target 127.0.0.2 --port $node_port
    ! grep -q '^ADDRESS ' "$log" || break
done
says "^127\.0\.0\.2 +$node_port +1 +Truss +4-5 +[0-9.]+ s ago\$"
kill -INT $node
wait $node || fail "cuewright-node (status $?): $(cat node.err)"
node=
cp node.json "$log"
says '"name":"Truss".*"polls":[1-9]'

# Where a blackout would go
run "${without_bus[@]}" cuewrightctl blackout --dry-run --data "$prefix/data" --broadcast 192.0.2.255
says "^ +0 +192\.0\.2\.10:$port +playlist 1\$"
says "^ +0 +192\.0\.2\.255:6454 +broadcast\$"

# The service, started as a bus would start it, plays to the end
service=$(sed -n 's/^Exec=//p' "$prefix/share/dbus-1/services/com.torvexserver.Cuewright.service")
# Stopped before its bus goes.
run dbus-run-session -- bash -c '
    '"$service"' &
    service=$!
    for try in {1..300}; do
        cuewrightctl log-level >/dev/null 2>&1 && break   # answered once all of it is on the bus
        sleep 0.1
    done
    cuewrightctl play 1 --wait --timeout 60 && status=0 || status=$?
    kill $service
    exit $status'

rm "$prefix/data/show.rec"
refuses 1 cuewright-check "$prefix/data"
echo "installed, and at work: $found"
