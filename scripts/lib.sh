# Shared by the scripts: messages and installing what is missing. Source it; it sets the working directory
# to the top of the checkout.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '\033[1m==>\033[0m %s\n' "$*"; }
die() { printf 'error: %s\n' "$*" >&2; exit 1; }

build_packages=(g++ cmake ninja-build pkg-config qtbase5-dev libcli11-dev nlohmann-json3-dev libcairo2-dev)
test_packages=(libgtest-dev libgmock-dev dbus-daemon libglib2.0-bin iproute2 python3-numpy)
run_packages=(dbus-daemon libglib2.0-bin)

# ensure_packages NAME...: installs those Debian packages that are not there; quick when none is missing.
ensure_packages() {
    local missing=() name
    for name in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null)" = installed ] || missing+=("$name")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    command -v apt-get >/dev/null || die "this needs a Debian system with apt-get; missing packages: ${missing[*]}"
    local sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || die "packages are missing and there is no sudo; as root, run: apt-get install ${missing[*]}"
        sudo=(sudo)
    fi
    say "installing ${missing[*]}"
    local log
    log=$(mktemp)
    # Package lists may be old or absent on a fresh machine; an install that works without them saves time.
    if ! { "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}" ||
           { "${sudo[@]}" apt-get update && "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"; }; } >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        rm -f "$log"
        die "could not install: ${missing[*]} (look above; is the machine's package source reachable?)"
    fi
    rm -f "$log"
}

# use_ccache: sets launcher_options to have the compiler cached where ccache is installed.
launcher_options=()
# Objects that use the tests' precompiled headers are cached, too.
export CCACHE_SLOPPINESS=pch_defines,time_macros
if command -v ccache >/dev/null; then
    launcher_options=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

# configure_and_build PRESET [TARGET...]: builds a preset, or only those of its targets, with all cores, quiet unless
# something fails.
configure_and_build() {
    cmake --preset "$1" "${launcher_options[@]}" >/dev/null
    cmake --build --preset "$1" ${2:+--target "${@:2}"}
}

# run_ctest BUILD WORD...: ctest in that build's directory. What GoogleTest has skipped, which ctest counts as passed,
# stands with its reason in front of ctest's closing lines.
run_ctest() {
    local build=$1 line closing=
    shift
    ctest --test-dir "$build" --output-on-failure "$@" | {
        while IFS= read -r line || [ -n "$line" ]; do
            case $closing$line in
                [0-9]*'% tests passed, '*' failed out of '*) closing+=$line$'\n' ;;
                *) printf '%s\n' "$line" ;;
            esac
        done
        # Without these lines nothing ran, and the log is another run's.
        [ -z "$closing" ] || awk '
            /: Skipped$/ { skipped = 1; reason = ""; next }
            /^\[ (RUN|      OK| FAILED)/ { skipped = 0 }
            skipped && /^\[  SKIPPED \]/ { sub(/,$/, "", $4); print "skipped: " $4 ":" reason; skipped = 0 }
            skipped { reason = reason " " $0 }' "$build/Testing/Temporary/LastTest.log" || true
        printf '%s' "$closing"
    }
}
