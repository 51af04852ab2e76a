// SPDX-License-Identifier: Apache-2.0
// Where a recording comes from: a file, or the example.

import { empty, tooLong, unreadable } from "./messages.js";

export const RATE = 48000; // Hz, of what was a file
const MOST_MINUTES = 10;

function mixed(sound) {
    const mono = new Float32Array(sound.length);
    for (let c = 0; c < sound.numberOfChannels; ++c) {
        sound.getChannelData(c).forEach((x, i) => (mono[i] += x / sound.numberOfChannels));
    }
    return mono;
}

export async function samplesOf(name, bytes) {
    let sound;
    try {
        sound = await new OfflineAudioContext(1, 1, RATE).decodeAudioData(bytes);
    } catch {
        throw unreadable(name);
    }
    if (sound.length === 0) throw empty(name);
    if (sound.duration > 60 * MOST_MINUTES) throw tooLong(name, MOST_MINUTES);
    return mixed(sound);
}
