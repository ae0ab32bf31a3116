#!/usr/bin/env bash
# Pastes the README's show into a shell, as a newcomer would, and looks at what comes out.
# Usage: example_test.sh README CUEWRIGHT FORWARDER. Status 77: this machine cannot run it.
set -euo pipefail
readme=$1
program=$2
forwarder=$3

# Ports of its own: a network namespace with nothing but the loopback interface.
if [ "${IN_NAMESPACE:-}" != yes ]; then
    unshare --user --map-root-user --net true 2>/dev/null || { echo "skipped: no network namespace to be had"; exit 77; }
    command -v gdbus >/dev/null || { echo "skipped: no gdbus"; exit 77; }
    IN_NAMESPACE=yes exec unshare --user --map-root-user --net "$0" "$@"
fi
ip link set lo up

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"
mkdir -p build/release/core/apps/output/repeater/src build/release/core/apps/output/forwarder/src
cp "$program" build/release/core/apps/output/repeater/src/cuewright
cp "$forwarder" build/release/core/apps/output/forwarder/src/cuewright-forwarder

# What a sanitizer says goes here: the example ends its programs by a signal, so that their status tells nothing.
for kind in ASAN TSAN UBSAN; do
    options=${kind}_OPTIONS
    export "$options=${!options:-} log_path=$directory/report"
done
no_report() {
    compgen -G "$directory/report.*" >/dev/null || return 0
    cat "$directory"/report.*
    echo "$1: a sanitizer reports"
    exit 1
}

sed -n '/^mkdir -p show\/bin/,/^```/p' "$readme" | sed '$d' > pasted
for shell in bash dash; do
    rm -rf show
    $shell < pasted > output 2>&1 || { cat output; no_report "$shell"; echo "$shell: the example failed"; exit 1; }
    no_report "$shell"
    for expected in '^(true,)' 'universe 0 to 192.0.2.10:6454: .* levels 255 128' 'universe 0 to 192.0.2.10:6454: .* levels 0 0'; do
        grep -q "$expected" output || { cat output; echo "$shell: nothing matches: $expected"; exit 1; }
    done
done
echo "the example plays in bash and dash"
