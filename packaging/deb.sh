#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the Debian source and binary packages of what is committed, and has lintian look at them.
#
#   packaging/deb.sh [ARCHITECTURE [FOLDER]]     default: this machine's, build/deb/ARCHITECTURE
#
# The source package has three upstream tarballs: the release (scripts/dist.sh), and as components ne10/ and speexdsp/ the
# two that cmake/tarballs.sha256 names, byte for byte. So a build farm needs no network. The project's tests run with
# DEB_BUILD_OPTIONS= (empty); the default is nocheck.
set -euo pipefail
umask 022
cd "$(dirname "${BASH_SOURCE[0]}")/.."
architecture=${1:-$(dpkg --print-architecture)}
folder=$(realpath -m "${2:-build/deb/$architecture}")
version=$(<VERSION)
maintainer=$(sed -n 's/^Maintainer: //p' packaging/debian/control)
export DEB_BUILD_OPTIONS=${DEB_BUILD_OPTIONS-nocheck}
[[ " $DEB_BUILD_OPTIONS " != *" nocheck "* ]] || export DEB_BUILD_PROFILES=nocheck

component() { # PACKAGE: links its tarball to where dpkg-source looks for it, and unpacks it as dpkg-source would
    local tarball orig
    tarball=$(cd .deps && ls "$1"_*.orig.tar.*)
    orig=$folder/krelvcp_$version.orig-$1.tar.${tarball##*.}
    cp ".deps/$tarball" "$orig"
    mkdir "$tree/$1"
    tar -xf "$orig" -C "$tree/$1" "${@:2}"
}

rm -rf "$folder"
mkdir -p "$folder"
(cd .deps && sha256sum --quiet --strict -c ../cmake/tarballs.sha256)
scripts/dist.sh "$folder"
readonly tree=$folder/krelvcp-$version
mv "$tree.tar.xz" "$folder/krelvcp_$version.orig.tar.xz"
tar -xf "$folder/krelvcp_$version.orig.tar.xz" -C "$folder"
component ne10
component speexdsp --strip-components=1
cp -rp "$tree/packaging/debian" "$tree/debian"
"$tree/packaging/changelog.py" "$maintainer" >"$tree/debian/changelog"

# What is the same for all architectures is built with this machine's.
build=full
[[ $architecture == "$(dpkg --print-architecture)" ]] || build=source,any
(cd "$tree" && dpkg-buildpackage --build=$build --host-arch="$architecture" --unsigned-source --unsigned-changes \
    --no-pre-clean --jobs="$(nproc)" >"$folder/build.log" 2>&1) ||
    { tail -n 40 "$folder/build.log" >&2; echo "deb: the build failed, see $folder/build.log" >&2; exit 1; }
rm -rf "$tree"
# Left out: that a first release closes no wish of Debian's bug tracker, where none was made.
lintian --allow-root --suppress-tags initial-upload-closes-no-bugs --fail-on error,warning --display-info \
    "$folder"/krelvcp_*_"$architecture".changes
(cd "$folder" && du -b -- *.deb | sort -k 2)
