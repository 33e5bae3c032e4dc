#!/usr/bin/env bash
# Makes the Debian package, a tarball with a static program for other systems, and the source tarball, and tries all:
# the package is installed in a bare Debian system in a scratch directory, copies a file of the sample disk there and
# is removed without a trace; the static program copies in a bare system that is older; the source tarball holds what
# git knows. All end in build/release/packages.
# Each is the same to the byte whenever and wherever it is made: SOURCE_DATE_EPOCH is the time of the last commit.
# Usage: scripts/package.sh [--compile]      compiles the source tarball as the README says, in another directory, too:
#                                            it must give the same bytes. scripts/full.sh does so.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

compile=${1:-}
case $compile in "" | --compile) ;; *) echo "usage: scripts/package.sh [--compile]" >&2; exit 2 ;; esac
quarry_need build package
quarry_prepare release quarry
cd "$QUARRY_ROOT"
packages=$QUARRY_ROOT/build/release/packages
work=$(mktemp -d)
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
# What still runs writes there.
trap 'wait; "${as_root[@]}" rm -rf "$work"' EXIT

fail() { printf 'FAILED: %s\n' "$*" >&2; exit 1; }

# same WHAT FILE FILE
same() { diff "$2" "$3" >&2 || fail "$1"; }

manifest() { awk -F'\t' -v path="$1" -v field="$2" '$1 == path { print $field }' samples/MANIFEST.tsv; }

git() { command git -c safe.directory='*' "$@"; }
# What is committed, and what was changed since in files that git knows.
tree=$(git stash create)
tree=${tree:-HEAD}
version=$("$QUARRY" -h 2>&1 | sed -n 's/.*quarry ver: *\([0-9.]*\).*/\1/p' | head -n 1)
[ -n "$version" ] || fail "the program does not say its version"
"$QUARRY" -h 2>"$work/usage.built"
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}
export SOURCE_DATE_EPOCH
mkdir -p "$packages"

# From the same sources as this machine's packages, whichever form they are written in.
sources=()
for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources; do
    [ ! -s "$file" ] || sources+=("$file")
done
# Debian 11, from where this machine has its Debian 12.
# shellcheck disable=SC2016  # a word of apt
mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Release: bookworm' 'Created-By: Packages' | sed -n 1p)
[ -n "$mirror" ] || fail "apt knows no source of Debian 12"
root=$work/root
older=$work/older

# bare_system RELEASE DIRECTORY SOURCE...: an installed system with nothing in it.
bare_system() {
    local release=$1 directory=$2
    shift 2
    "${as_root[@]}" mmdebstrap --quiet --variant=essential --mode=root "$release" "$directory" "$@" \
        2>"$directory.log" || { cat "$directory.log" >&2; return 1; }
}
# They are fetched while this machine compiles.
chmod 755 "$work"
bare_system bookworm "$root" "${sources[@]}" &
making_root=$!
bare_system bullseye "$older" "$mirror" &
making_older=$!

# pack: the Debian package.
pack() {
    rm -rf "$packages"/*.deb build/release/packages/_CPack_Packages
    cpack --config build/release/CPackConfig.cmake >"$work/cpack.log" || { cat "$work/cpack.log"; fail "cpack"; }
}

# packed DIRECTORY FILE: a tarball of the directory that does not tell who made it, or when.
packed() {
    tar -C "$(dirname "$1")" --sort=name --owner=0 --group=0 --numeric-owner --mtime="@$SOURCE_DATE_EPOCH" -cf - \
        "$(basename "$1")" | gzip -n -9 >"$2"
}

quarry_say "packing"
rm -rf "${packages:?}"/*
pack
deb=$(echo "$packages"/*.deb)
mv "$deb" "$work/first.deb"
pack
cmp "$work/first.deb" "$deb" || fail "the package differs from one that was made a moment before"
tarball=$packages/quarry-$version.tar.gz
git archive --format=tar --prefix="quarry-$version/" "$tree" | gzip -n -9 >"$tarball"

# The program with the C library in it, so that the age of the system's own does not matter.
quarry_say "a static program"
cmake --build build/release --target quarry_static -- --quiet
portable=$work/quarry-$version-linux-$(uname -m)
DESTDIR=$work/static cmake --install build/release --prefix / >/dev/null
install --strip build/release/src/quarry_static "$work/static/bin/quarry"
mkdir "$portable"
cp -r "$work"/static/bin "$work"/static/share "$portable"
static=$packages/$(basename "$portable").tar.gz
packed "$portable" "$static"
! readelf -lW "$portable/bin/quarry" | grep -q INTERP || fail "the static program wants a loader"
ls -l "$deb" "$tarball" "$static"
dpkg-deb --info "$deb"
dpkg-deb --contents "$deb" | awk '{ print $1, $2, $6 }'

quarry_say "the source tarball"
tar -tf "$tarball" | grep -v '/$' | sed 's|^[^/]*/||' | sort >"$work/packed"
git ls-files | sort >"$work/known"
same "files of the tarball and of git" "$work/known" "$work/packed"
tar -xf "$tarball" -C "$work"
unpacked=$work/quarry-$version
# The commands of the README, on the tree as it was unpacked; every file is compiled anew.
compile_tarball() (
    cd "$unpacked"
    export CCACHE_DISABLE=1
    cmake --preset release -DQUARRY_TESTS=OFF >/dev/null
    cmake --build --preset release -- --quiet
    DESTDIR=$work/installed cmake --install build/release --prefix /usr/local >/dev/null
)
if [ "$compile" = --compile ]; then
    compile_tarball
    "$work/installed/usr/local/bin/quarry" -h 2>"$work/usage"
    same "the usage of the program from the tarball" "$work/usage.built" "$work/usage"
    cmp "$QUARRY" "$unpacked/build/release/src/quarry" || fail "the same source in two directories gives two programs"
    [ -s "$work/installed/usr/local/share/man/man1/quarry.1" ] || fail "no manual page from the tarball"
    [ -s "$work/installed/usr/local/share/zsh/site-functions/_quarry" ] || fail "no zsh completion from the tarball"
else
    cmake -S "$unpacked" -B "$work/configured" -G Ninja -DQUARRY_TESTS=OFF >/dev/null || fail "the tarball does not suffice for cmake"
fi

quarry_say "a bare system"
wait "$making_root" || fail "no system to install in"
inside() { "${as_root[@]}" chroot "$root" env PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C "$@"; }

# Every file and directory but the package system's own books.
files_of_system() { "${as_root[@]}" find "$root" -path "$root/var/lib/dpkg" -prune -o -path "$root/var/log" -prune -o -print | sort; }
files_of_system >"$work/before"

quarry_say "installing, running, removing"
"${as_root[@]}" cp "$deb" "$root/var/log/quarry.deb"
inside dpkg --install /var/log/quarry.deb
inside quarry -h 2>"$work/usage"
same "the usage of the installed program" "$work/usage.built" "$work/usage"
for file in bin/quarry share/man/man1/quarry.1.gz share/bash-completion/completions/quarry \
    share/zsh/vendor-completions/_quarry share/fish/vendor_completions.d/quarry.fish share/doc/quarry/changelog.gz; do
    [ -s "$root/usr/$file" ] || fail "not installed: /usr/$file"
done
zcat "$root/usr/share/man/man1/quarry.1.gz" | cmp - docs/quarry.1
same "the licence" LICENSE "$root/usr/share/doc/quarry/copyright"
# The binary needs the C library and nothing else.
[ "$(dpkg-deb --field "$deb" Depends | sed 's/ (.*//')" = libc6 ] || fail "depends on more than the C library"
[ "$(dpkg-deb --field "$deb" Suggests)" = "libewf2, jq" ] || fail "does not suggest what reads EWF images and manifests"

xz -dc samples/disk.img.xz | "${as_root[@]}" tee "$root/var/log/disk.img" >/dev/null
# By path as an ordinary user, by entry as root.
inside chmod 1777 /var/log
inside chroot --userspec=nobody:nogroup / quarry -image /var/log/disk.img -offset 0x100000 \
    -src /Pictures/terraces.png -dst /var/log/terraces.png
inside quarry -image /var/log/disk.img -offset 0x100000 -mft "$(manifest /deleted.txt 2)" -dst /var/log/deleted.txt
for path in /Pictures/terraces.png /deleted.txt; do
    echo "$(manifest $path 4)  $root/var/log/$(basename $path)" | sha256sum --check
done

inside dpkg --remove quarry
files_of_system >"$work/removed"
same "files are left after removal" "$work/before" "$work/removed"
inside dpkg --purge quarry 2>"$work/purge.log" || { cat "$work/purge.log"; fail "purge"; }
# shellcheck disable=SC2016  # a word of dpkg-query
[ -z "$(inside dpkg-query --show --showformat='${Status}' quarry 2>/dev/null)" ] || fail "the package is still known"

quarry_say "the static program in an older system"
wait "$making_older" || fail "no older system to try the static program in"
"${as_root[@]}" tar -xf "$static" -C "$older/opt"
"${as_root[@]}" cp "$root/var/log/disk.img" "$older/opt/disk.img"
"${as_root[@]}" chmod 1777 "$older/opt"
in_older() { "${as_root[@]}" chroot --userspec=nobody:nogroup "$older" "/opt/$(basename "$portable")/bin/quarry" "$@"; }
in_older -h 2>"$work/usage"
same "the usage of the static program" "$work/usage.built" "$work/usage"
in_older -image /opt/disk.img -offset 0x100000 -src /Pictures/terraces.png -dst /opt/terraces.png
echo "$(manifest /Pictures/terraces.png 4)  $older/opt/terraces.png" | sha256sum --check
printf 'EVF\x09\x0d\x0a\xff\x00\x01\x01\x00\x00\x00' | "${as_root[@]}" tee "$older/opt/case.E01" >/dev/null
status=0
in_older -exact -image /opt/case.E01 -volumes >/dev/null 2>"$work/refused" || status=$?
{ [ "$status" = 5 ] && grep -q 'a static program cannot load it' "$work/refused"; } || fail "the static program on an EWF image"

quarry_say "package and tarball are good"
