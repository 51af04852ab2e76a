#!/usr/bin/env bash
# Renders the bundled voice through every preset, to listen to and compare.
#
#   scripts/demo.sh PROGRAM [FOLDER]     FOLDER/00-robot.wav ... FOLDER/16-cave.wav; default: out
set -euo pipefail
program=${1:?usage: scripts/demo.sh PROGRAM [FOLDER]}
folder=${2:-out}
voice=$(realpath --relative-to=. "$(dirname "${BASH_SOURCE[0]}")/../assets/voice.flac")

mkdir -p "$folder"
"$program" render "$voice" "$folder" --preset all --tail 1
echo "Listen to the files in $folder; the voice as it was is $voice."
