#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Tests the packages that packaging/deb.sh has built: the same bits as this machine's own build, with and without the fast
# paths; installed in a fresh Debian, used, removed; and built a second time elsewhere, the same bytes.
#
#   packaging/test.sh PROGRAM      the krelvcp to compare with, build/release/krelvcp
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
program=${1:?usage: packaging/test.sh PROGRAM}
architecture=$(dpkg --print-architecture)
packages=$(realpath "build/deb/$architecture")
readonly NAMES="krelvcp libkrelvcp krelvcp-lv2 krelvcp-web libkrelvoice1 libkrelvoice-dev"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

compare_bits() {
    local name packaged=$work/tree/usr/bin/krelvcp builds=()
    for name in krelvcp libkrelvcp; do dpkg-deb -x "$packages/$name"_*.deb "$work/tree"; done
    builds=(--same "$packaged")
    # The first x86-64 machines had nothing but SSE2.
    [[ $architecture != amd64 ]] || builds+=(--same "qemu-x86_64 -cpu qemu64 $packaged")
    scripts/compare_builds.py "$program" "${builds[@]}" >"$work/bits.txt" 2>&1 || { cat "$work/bits.txt" >&2; return 1; }
    echo "test-deb: $(grep -c 'same bits' "$work/bits.txt") renders, the same bits as $program"
}

# What runs in the fresh system, as root. What is called krel after the packages are gone was left behind.
write_session() { # FILE
    cat >"$1" <<EOF
set -eu
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
cd /try
apt-get install -y -qq --no-install-recommends ./*.deb $(sed -n 's/^Depends: .*libkrelvoice-dev, //p' \
        packaging/debian/tests/control | tr -d ,) >/dev/null
packaging/debian/tests/smoke
dpkg -V $NAMES
apt-get purge -y -qq $NAMES >/dev/null
left=\$(find / -xdev -iname '*krel*' -not -path '/try/*' -not -path '/proc/*')
[ -z "\$left" ] || { echo "left behind: \$left" >&2; exit 1; }
echo "smoke: removed, nothing left"
EOF
}

run_in_fresh_system() {
    local name
    mkdir "$work/try"
    for name in $NAMES; do cp "$packages/$name"_*.deb "$work/try"; done
    cp -r --parents packaging/debian/tests assets/voice.flac tests/install "$work/try"
    write_session "$work/try/session"
    # shellcheck disable=SC2016  # the hook's own variable
    mmdebstrap --quiet --variant=apt --customize-hook="copy-in $work/try /" --customize-hook='chroot "$1" sh /try/session' \
        "$(. /etc/os-release && echo "$VERSION_CODENAME")" /dev/null
}

# In another folder, by another clock, language and mask.
build_again() {
    local file count=0
    (
        export TZ=Pacific/Kiritimati LC_ALL=C
        umask 027
        packaging/deb.sh "$architecture" "$work/again" >/dev/null
    )
    for file in "$packages"/*.{deb,dsc,xz,gz}; do
        cmp "$file" "$work/again/$(basename "$file")"
        count=$((count + 1))
    done
    echo "test-deb: built twice, $count files, the same bytes"
}

compare_bits
run_in_fresh_system
build_again
