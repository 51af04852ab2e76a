// SPDX-License-Identifier: Apache-2.0
// What a recording looks like: its waveform, and its spectrogram on the mel scale.

export const COLUMNS = 640;
export const ROWS = 80;

const FRAME = 2048;
const TOP_HZ = 8000;
const RANGE_DB = 66; // below the loudest spot, nothing is shown

const mel = (hz) => Math.log1p(hz / 700);
const hertz = (m) => 700 * Math.expm1(m);

const hann = Float32Array.from({ length: FRAME }, (_, i) => 0.5 - 0.5 * Math.cos((2 * Math.PI * i) / FRAME));
const cosines = Float64Array.from({ length: FRAME / 2 }, (_, i) => Math.cos((2 * Math.PI * i) / FRAME));
const sines = Float64Array.from({ length: FRAME / 2 }, (_, i) => -Math.sin((2 * Math.PI * i) / FRAME));

function reverseBits(values) {
    for (let i = 1, j = 0; i < FRAME; ++i) {
        let bit = FRAME >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j |= bit;
        if (i < j) [values[i], values[j]] = [values[j], values[i]];
    }
}

/** The radix-2 transform, in place. */
function transform(re, im) {
    reverseBits(re);
    reverseBits(im);
    for (let half = 1; half < FRAME; half *= 2) {
        const stride = FRAME / (2 * half);
        for (let start = 0; start < FRAME; start += 2 * half) {
            for (let k = 0; k < half; ++k) {
                const a = start + k;
                const b = a + half;
                const c = cosines[k * stride];
                const s = sines[k * stride];
                const x = re[b] * c - im[b] * s;
                const y = re[b] * s + im[b] * c;
                re[b] = re[a] - x;
                im[b] = im[a] - y;
                re[a] += x;
                im[a] += y;
            }
        }
    }
}

/** The frame around a sample, windowed. */
function frame(samples, centre) {
    const windowed = new Float64Array(FRAME);
    const first = centre - FRAME / 2;
    const end = Math.min(FRAME, samples.length - first);
    for (let i = Math.max(0, -first); i < end; ++i) windowed[i] = samples[first + i] * hann[i];
    return windowed;
}

/** The powers of two frames, from one transform: the spectra of its real and its imaginary part are told by symmetry. */
function powers(re, im) {
    const pair = [new Float64Array(FRAME / 2), new Float64Array(FRAME / 2)];
    transform(re, im);
    for (let k = 0; k < FRAME / 2; ++k) {
        const mirror = (FRAME - k) % FRAME;
        pair[0][k] = (re[k] + re[mirror]) ** 2 + (im[k] - im[mirror]) ** 2;
        pair[1][k] = (im[k] + im[mirror]) ** 2 + (re[mirror] - re[k]) ** 2;
    }
    return pair;
}

/** For every row, from the top down, the transform's bins between which it lies. */
function rowBins(rate) {
    const top = mel(Math.min(TOP_HZ, rate / 2));
    const bin = (row) => (hertz((top * (ROWS - row)) / ROWS) * FRAME) / rate;
    return Array.from({ length: ROWS }, (_, row) => {
        const low = Math.floor(bin(row + 1));
        return [low, Math.min(FRAME / 2, Math.max(low + 1, Math.round(bin(row))))];
    });
}

/** ROWS times COLUMNS bytes from the top row down; 0 is nothing, 255 the loudest. */
function spectrogram(samples, rate) {
    const bins = rowBins(rate);
    const levels = new Float32Array(ROWS * COLUMNS);
    const centre = (x) => Math.round(((x + 0.5) * samples.length) / COLUMNS);
    for (let x = 0; x < COLUMNS; x += 2) {
        powers(frame(samples, centre(x)), frame(samples, centre(x + 1))).forEach((power, odd) => {
            bins.forEach(([low, high], row) => {
                levels[row * COLUMNS + x + odd] = power.subarray(low, high).reduce((a, b) => Math.max(a, b), 0);
            });
        });
    }
    const most = levels.reduce((a, b) => Math.max(a, b), 1e-9);
    return Uint8Array.from(levels, (level) => {
        const below = 10 * Math.log10(level / most + 1e-12);
        return Math.max(0, 255 * (1 + below / RANGE_DB));
    });
}

/** The lowest and the highest sample of every column, in turn. */
function extremes(samples) {
    const found = new Float32Array(2 * COLUMNS);
    for (let x = 0; x < COLUMNS; ++x) {
        const first = Math.floor((x * samples.length) / COLUMNS);
        const end = Math.max(first + 1, Math.floor(((x + 1) * samples.length) / COLUMNS));
        const column = samples.subarray(first, end);
        found[2 * x] = column.reduce((a, b) => Math.min(a, b), 0);
        found[2 * x + 1] = column.reduce((a, b) => Math.max(a, b), 0);
    }
    return found;
}

export function picture(samples, rate) {
    return { extremes: extremes(samples), levels: spectrogram(samples, rate), seconds: samples.length / rate };
}
