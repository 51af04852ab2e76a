// SPDX-License-Identifier: Apache-2.0
// A mono sound as a 16-bit WAV file.

const HEADER = 44;

function writeHeader(view, count, rate) {
    const put = (at, text) => [...text].forEach((c, i) => view.setUint8(at + i, c.charCodeAt(0)));
    put(0, "RIFF");
    view.setUint32(4, HEADER - 8 + 2 * count, true);
    put(8, "WAVEfmt ");
    view.setUint32(16, 16, true);
    view.setUint16(20, 1, true); // PCM
    view.setUint16(22, 1, true); // channels
    view.setUint32(24, rate, true);
    view.setUint32(28, 2 * rate, true);
    view.setUint16(32, 2, true);
    view.setUint16(34, 16, true);
    put(36, "data");
    view.setUint32(40, 2 * count, true);
}

/** Samples that are steps of 1 / 32768, as the voices are, come out exactly. */
export function wavFile(samples, rate) {
    const view = new DataView(new ArrayBuffer(HEADER + 2 * samples.length));
    writeHeader(view, samples.length, rate);
    samples.forEach((x, i) => {
        const step = Math.max(-32768, Math.min(32767, Math.round(x * 32768)));
        view.setInt16(HEADER + 2 * i, step, true);
    });
    return new Blob([view], { type: "audio/wav" });
}
