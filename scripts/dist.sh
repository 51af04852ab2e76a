#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Writes the release's source tarball, build/dist/krelvcp-VERSION.tar.xz: what is committed, the same bytes wherever and
# whenever it is made.
#
#   scripts/dist.sh [FOLDER]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
folder=${1:-build/dist}
name=krelvcp-$(<VERSION)

[[ -z $(git status --porcelain) ]] || echo "dist: what is not committed is not part of the release" >&2
[[ $(git show HEAD:VERSION) == "$(<VERSION)" ]] || { echo "dist: VERSION is not committed" >&2; exit 1; }
mkdir -p "$folder"
# The files' time is the commit's; one thread, because the number of threads shows in the compressed bytes.
git -c tar.umask=0022 archive --format=tar --prefix="$name/" HEAD | xz -6 -T1 >"$folder/$name.tar.xz.part"
mv "$folder/$name.tar.xz.part" "$folder/$name.tar.xz"
(cd "$folder" && sha256sum "$name.tar.xz")
