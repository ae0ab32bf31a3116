# Shared by the scripts that build and test packages: throw-away Debian roots, made by mmdebstrap from the package
# sources that this machine itself uses. Source it after lib.sh.

# Hosts' architecture, and the Debian release that this machine runs and the roots hold.
native=$(dpkg --print-architecture)
release=$(. /etc/os-release && printf %s "${VERSION_CODENAME:-}")
[ "$release" = bookworm ] || die "this needs Debian 12 (bookworm), this machine says: ${release:-nothing}"

# package_sources [SUITE-SUFFIX...]: the machine's sources of the release's suites, as one-line entries. Without
# arguments all of them. What else the machine has configured stays out: a root is plain Debian.
package_sources() {
    local wanted=("$@") suffix
    [ $# -gt 0 ] || wanted=("" -updates -security)
    for suffix in "${wanted[@]}"; do
        # A field that the source does not set shows as its name.
        apt-get indextargets --format "deb [signed-by=\$(SIGNED_BY)] \$(REPO_URI) \$(RELEASE) \$(COMPONENT)" \
            'Created-By: Packages' "Release: $release$suffix" | sed 's/ \[signed-by=\$(SIGNED_BY)\]//' | sort -u
    done
}

# package_options: the settings of the machine's apt that decide whether its sources can be reached and believed,
# as mmdebstrap's options, in the array apt_options.
package_options() {
    local setting
    apt_options=()
    while read -r setting; do
        apt_options+=("--aptopt=$setting")
    done < <(apt-config dump | grep -E '^Acquire::(http|https|ftp)::Proxy|^Acquire::Check-|^Acquire::Retries' || true)
}

# throw_away_root OPTION...: mmdebstrap. Root's would mount /dev, /proc and /sys where all see them, and leave them in
# its directory when it is killed; in a mount namespace of its own they end with it, however it ends. Where root may not
# have one, mmdebstrap does as well as it can.
throw_away_root() {
    local own=()
    [ "$(id -u)" -ne 0 ] || ! unshare --mount true 2>/dev/null || own=(unshare --mount)
    "${own[@]}" mmdebstrap "$@"
}

# progress LOG: keeps all that it reads in LOG and shows what tells how far the work is.
progress() {
    local line
    while IFS= read -r line; do
        printf '%s\n' "$line" >&3
        case $line in
            '==> '*) say "${line#'==> '}" ;;
            '['*'0/'*']'*) printf '    %s\n' "${line%%']'*}]" ;;
            'I: running apt-get update'*) printf '    package lists\n' ;;
            'I: installing remaining packages'*|'I: downloading packages'*) printf '    %s\n' "${line#I: }" ;;
        esac
    done 3>"$1"
}

# enter_emulation ARCHITECTURE SYSROOT COMMAND...: runs COMMAND, in place of this script, where programs of that
# architecture start through the emulator, as far as it and its children see. SYSROOT is where they find their
# libraries, which then show up behind the machine's own in /usr/lib; empty for programs in a root of their own.
# The machine stays as it is: the kernel's table of such formats is a private one of the new user namespace, and the
# mounts are seen in here only. A process-id namespace and a session of its own keep a mistaken kill() among the command's
# own processes: emulated programs that start others have been seen to signal everything. All of them end with this one.
enter_emulation() {
    local processor sysroot=$2 steps gate child status=0 unshare=(unshare --mount --pid --fork --kill-child --mount-proc)
    case $1 in
        arm64) processor=aarch64 ;;
        armhf) processor=arm ;;
        *) die "nothing emulates $1 here" ;;
    esac
    shift 2
    ensure_packages qemu-user-static
    export CUEWRIGHT_EMULATION=yes
    # The shell has processes in the background ignore the keys' signals, and the command has a right to them.
    steps='
        mount -t binfmt_misc none /proc/sys/fs/binfmt_misc || {
            echo "error: no private table of executable formats to be had: that takes Linux 6.7 or later, with" \
                "binfmt_misc; this is $(uname -r)" >&2
            exit 1
        }
        cat "/usr/lib/binfmt.d/qemu-$0.conf" > /proc/sys/fs/binfmt_misc/register
        [ -z "$1" ] || mount -t overlay overlay -o "lowerdir=/usr/lib:$1/usr/lib" /usr/lib
        shift
        exec setsid --wait env --default-signal=INT,QUIT "$@"'
    if [ "$(id -u)" -ne 0 ]; then
        "${unshare[@]}" --user --map-root-user sh -ec "$steps" "$processor" "$sysroot" "$@" &
        child=$!
    else
        # Root has every user to give, which takes somebody outside who writes the map; programs gain the new name
        # space's rights when they are started with it.
        gate=$(mktemp -d)/gate
        mkfifo "$gate"
        unshare --user sh -c 'read -r _ < "$0"; exec "$@"' "$gate" \
            "${unshare[@]}" sh -ec "$steps" "$processor" "$sysroot" "$@" &
        child=$!
    fi
    # A session of its own hears nothing of the terminal's keys, nor of its end.
    trap 'kill -KILL "$child"; exit 130' INT TERM HUP
    if [ "$(id -u)" -eq 0 ]; then
        while [ "$(readlink "/proc/$child/ns/user")" = "$(readlink /proc/self/ns/user)" ]; do sleep 0.01; done
        echo 0 0 65536 > "/proc/$child/uid_map"
        echo 0 0 65536 > "/proc/$child/gid_map"
        echo > "$gate"
        rm -r "${gate%/*}"
    fi
    wait "$child" || status=$?
    exit "$status"
}
