# shellcheck shell=bash
# What the scripts share: sourced, not run. Looks for the tools, configures and builds.
#
#   quarry_need GROUP...             stops with the command that installs what is missing of these groups; with
#                                    QUARRY_INSTALL=1 in the environment it is installed instead
#   quarry_install GROUP...          installs what is missing, as root or with sudo; scripts/setup.sh is this alone
#   quarry_prepare PRESET [TARGET]   needs the tools for building, then builds build/PRESET, all of it or one target;
#                                    sets QUARRY to the program's path
#   quarry_test PRESET OPTION...     runs the tests of build/PRESET that the options of ctest choose; with CI set in the
#                                    environment a skipped one fails the run, whatever skipped it

QUARRY_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# Debian 12 package names, by what they are for.
quarry_packages() {
    case $1 in
        build) echo g++ cmake ninja-build libexpected-dev libewf-dev nlohmann-json3-dev ;;
        test) echo libgtest-dev libgmock-dev python3 python3-pytest python3-jsonschema ntfs-3g fuse3 fdisk gdisk \
            dosfstools e2fsprogs qemu-utils sleuthkit python3-libfsntfs libnbd-bin nbdkit libwim-dev ewf-tools xz-utils \
            attr strace util-linux mount coreutils binutils ;;
        docs) echo mandoc jq zsh fish parallel openssh-client ewf-tools libnbd-bin nbdkit qemu-system-common qemu-utils \
            libvhdi-utils sleuthkit procps ;;
        # Servers: not for a machine that somebody works on.
        cluster) echo slurm-wlm munge dropbear-bin ;;
        devices) echo dmsetup ;;
        package) echo dpkg-dev fakeroot mmdebstrap xz-utils coreutils binutils git ;;
        demo) echo xz-utils coreutils ;;
        clang) echo clang libclang-rt-14-dev llvm ;;
        lint) echo clang-format clang-tidy codespell git python3 shellcheck ;;
        valgrind) echo valgrind ntfs-3g xz-utils coreutils ;;
        bench) echo libbenchmark-dev libwim-dev time python3-matplotlib ;;
        *) echo "unknown package group: $1" >&2; return 1 ;;
    esac
}

quarry_say() { printf '\n== %s\n' "$*"; }

# The packages of these groups that are not installed, each once.
quarry_missing() {
    local group wanted all=()
    for group in "$@"; do
        wanted=$(quarry_packages "$group") || return 1
        # shellcheck disable=SC2206  # several packages
        all+=($wanted)
    done
    # Where there is no dpkg nothing is known to be missing; what is shows by itself.
    command -v dpkg-query >/dev/null || return 0
    printf '%s\n' "${all[@]}" | sort -u |
        { grep -vxF -f <(dpkg-query -W -f='${db:Status-Status} ${Package}\n' | sed -n 's/^installed //p') || true; }
}

quarry_need() {
    local missing
    if [ "${QUARRY_INSTALL:-0}" = 1 ]; then
        quarry_install "$@"
        return
    fi
    missing=$(quarry_missing "$@") || return 1
    [ -n "$missing" ] || return 0
    printf 'missing: %s\nTo install it: scripts/setup.sh %s\n' "${missing//$'\n'/ }" "$*" >&2
    return 1
}

quarry_install() {
    local list missing
    list=$(quarry_missing "$@") || return 1
    mapfile -t missing < <(printf '%s' "$list${list:+$'\n'}")
    [ ${#missing[@]} -gt 0 ] || return 0
    quarry_say "installing: ${missing[*]}"
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { echo "not root and no sudo: please install ${missing[*]}" >&2; return 1; }
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update -qq &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
            apt-get install -qq -y --no-install-recommends "${missing[@]}" >/dev/null
}

# Configures and builds one preset, all of it or one target. With CI set, where no cache of compiled files helps, the
# headers of the tests are precompiled for `release` too, and those of `sanitizers` do not each start a program.
quarry_build() {
    local preset=$1 target=${2:-all} log options=()
    case "${CI:+ci} $preset" in
        "ci release") options=(-DQUARRY_PRECOMPILE=TESTS) ;;
        "ci sanitizers") options=(-DQUARRY_TESTS_TOGETHER=ON) ;;
    esac
    quarry_say "building: $preset"
    log=$(cd "$QUARRY_ROOT" && cmake --preset "$preset" "${options[@]}" 2>&1) || { echo "$log"; return 1; }
    cmake --build "$QUARRY_ROOT/build/$preset" --target "$target" -- --quiet
}

# Empty counts for a coverage build, which every user may add to: some tests run the program as an ordinary one, and it
# complains on standard error where it cannot map its counts. They are made by the first run of the program.
quarry_reset_counts() {
    rm -rf "$1/counts" && mkdir -m 1777 "$1/counts" && (umask 0 && "$1/src/quarry" -help >/dev/null 2>&1)
}

quarry_test() {
    local build=$QUARRY_ROOT/build/$1 told
    shift
    told=$build/Testing/told.xml
    rm -f "$told"
    ctest --test-dir "$build" --output-on-failure --timeout 900 --output-junit "$told" "$@" || return 1
    [ -n "${CI:-}" ] || return 0
    grep -q '^	*skipped="0"$' "$told" || { echo "FAILED: tests were skipped, and CI is set" >&2; return 1; }
}

quarry_prepare() {
    local preset=${1:-release}
    quarry_need build test && quarry_build "$preset" "${2:-all}" || return 1
    [ "$preset" != coverage ] || quarry_reset_counts "$QUARRY_ROOT/build/$preset"
    # shellcheck disable=SC2034  # read by the script that sources this file
    QUARRY=$QUARRY_ROOT/build/$preset/src/quarry
}
