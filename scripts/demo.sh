#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Renders the bundled voice through every preset, to listen to and compare.
#
#   scripts/demo.sh PROGRAM [FOLDER]     FOLDER/00-robot.wav ... FOLDER/16-cave.wav; default: out
set -euo pipefail
program=${1:?usage: scripts/demo.sh PROGRAM [FOLDER]}
folder=${2:-out}
voice=$(realpath --relative-to=. "$(dirname "${BASH_SOURCE[0]}")/../assets/voice.flac")

"$program" render "$voice" "$folder/" --preset all
"$program" compare "$voice" -o "$folder/compare.html"
echo "Open $folder/compare.html to hear and see them side by side."
echo "Listen to the files in $folder; the voice as it was is $voice."
