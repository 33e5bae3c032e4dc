# shellcheck shell=bash
# Common set-up of the scripts: sourced, not run. Installs what is missing, configures and builds.
#
#   quarry_prepare PRESET [TARGET]   tools for building and testing, then build/PRESET, all of it or one target;
#                                    sets QUARRY to the program's path
#   quarry_install GROUP...   the Debian packages of the named groups that are not installed yet
#
# Works as root or with sudo. A second call finds everything in place and takes seconds.

QUARRY_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# Debian 12 package names, by what they are for.
quarry_packages() {
    case $1 in
        build) echo g++ cmake ninja-build libexpected-dev ;;
        test) echo libgtest-dev libgmock-dev python3 python3-pytest ntfs-3g fuse3 fdisk gdisk dosfstools e2fsprogs \
            qemu-utils sleuthkit xz-utils attr util-linux mount coreutils ;;
        docs) echo mandoc zsh fish parallel openssh-client ewf-tools libnbd-bin nbdkit qemu-system-common qemu-utils \
            libvhdi-utils sleuthkit ;;
        # Servers: not for a machine that somebody works on.
        cluster) echo slurm-wlm munge dropbear-bin ;;
        package) echo dpkg-dev fakeroot mmdebstrap xz-utils coreutils ;;
        demo) echo xz-utils coreutils ;;
        clang) echo clang libclang-rt-14-dev llvm ;;
        lint) echo clang-format clang-tidy ;;
        bench) echo libbenchmark-dev time python3-matplotlib ;;
        coverage) echo gcovr ;;
        *) echo "unknown package group: $1" >&2; return 1 ;;
    esac
}

quarry_say() { printf '\n== %s\n' "$*"; }

quarry_install() {
    local group package wanted missing=()
    for group in "$@"; do
        wanted=$(quarry_packages "$group") || return 1
        for package in $wanted; do
            dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
                missing+=("$package")
        done
    done
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

# Configures and builds one preset, all of it or one target.
quarry_build() {
    local preset=$1 target=${2:-all} log
    quarry_say "building: $preset"
    log=$(cd "$QUARRY_ROOT" && cmake --preset "$preset" 2>&1) || { echo "$log"; return 1; }
    cmake --build "$QUARRY_ROOT/build/$preset" --target "$target" -- --quiet
}

# Empty counts for an instrumented build, which every user may add to: some tests run the program as an ordinary one,
# and it complains on standard error where it cannot leave its counts.
quarry_reset_counts() {
    find "$1" -name '*.gcda' -delete
    find "$1" -name '*.gcno' -print0 | while IFS= read -r -d '' notes; do
        install -m 666 /dev/null "${notes%.gcno}.gcda"
    done
}

quarry_prepare() {
    local preset=${1:-release}
    quarry_install build test && quarry_build "$preset" "${2:-all}" || return 1
    [ "$preset" != coverage ] || quarry_reset_counts "$QUARRY_ROOT/build/$preset"
    # shellcheck disable=SC2034  # read by the script that sources this file
    QUARRY=$QUARRY_ROOT/build/$preset/src/quarry
}
