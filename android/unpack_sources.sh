#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Puts the Ne10 and SpeexDSP sources that Android.bp compiles into android/external/: checksums verified, corrected as in
# the CMake build, without build files of their own. Needs CMake and the two tarballs (names in cmake/tarballs.sha256;
# scripts/setup.sh fetches them on Debian).
#
#   android/unpack_sources.sh [FOLDER_WITH_TARBALLS]      default: .deps
set -euo pipefail
tarballs=$(realpath "${1:-$(dirname "${BASH_SOURCE[0]}")/../.deps}")
cd "$(dirname "${BASH_SOURCE[0]}")/.."

cmake -DTARBALL_DIR="$tarballs" -DOUT=android/external -P cmake/Sources.cmake
echo "android/external/ is complete"
