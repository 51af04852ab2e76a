// SPDX-License-Identifier: Apache-2.0
// A whole recording, as `krelvcp render` writes it: the voice's delay cut off at the start, and what rings on kept.

import { VoiceEngine } from "./engine.js";

const RING_ON = new Set([2, 15, 16]); // until 60 dB below the peak
const DELAY_MOVES = new Set([10, 11, 12, 13, 14]); // until the last of the input is out
const DECAY = 0.001;
const SILENCE = 1.5 / 32768;
const PATIENCE = 0.5; // seconds of silence that end a tail
const LONGEST_TAIL = 10; // seconds

/** One voice of one recording, made step by step. */
export class Rendering {
    #engine;
    #samples;
    #voice;
    #rate;
    #skip; // samples of the engine's output that come before the recording's start
    #out;
    #fed = 0;
    #made = 0;
    #kept = 0; // samples up to the end of what is not silence
    #peak = 0;

    constructor(api, samples, rate, voice) {
        this.#engine = new VoiceEngine(api, rate, voice);
        this.#samples = samples;
        this.#voice = voice;
        this.#rate = rate;
        this.#skip = api.krel_voice_latency(voice, rate);
        this.#out = new Float32Array(samples.length + LONGEST_TAIL * rate);
    }

    get done() {
        const { length } = this.#samples;
        if (this.#made < length) return false;
        if (!RING_ON.has(this.#voice) && !DELAY_MOVES.has(this.#voice)) return true;
        const end = Math.max(this.#kept, length);
        return this.#made - end >= Math.round(PATIENCE * this.#rate) || this.#made === this.#out.length;
    }

    /** The share that is made so far, tail apart. */
    get progress() {
        return Math.min(1, this.#made / Math.max(1, this.#samples.length));
    }

    /** The samples, when all is done. */
    get result() {
        return this.#out.slice(0, Math.max(this.#kept, this.#samples.length));
    }

    /** Feeds the engine `count` samples more. */
    step(count) {
        const block = new Float32Array(count);
        block.set(this.#samples.subarray(this.#fed, this.#fed + count));
        this.#engine.process(block);
        this.#fed += count;
        const skipped = Math.min(this.#skip, count);
        this.#skip -= skipped;
        const within = Math.max(0, Math.min(count - skipped, this.#samples.length - this.#made));
        this.#keep(block.subarray(skipped, skipped + within));
        if (!this.done) this.#keepTail(block.subarray(skipped + within));
    }

    #keep(block) {
        this.#out.set(block, this.#made);
        this.#made += block.length;
        this.#peak = block.reduce((peak, x) => Math.max(peak, Math.abs(x)), this.#peak);
    }

    #keepTail(block) {
        const threshold = RING_ON.has(this.#voice) ? Math.max(DECAY * this.#peak, SILENCE) : SILENCE;
        for (let i = 0; i < block.length && !this.done; ++i) {
            this.#out[this.#made++] = block[i];
            if (Math.abs(block[i]) > threshold) this.#kept = this.#made;
        }
    }

    release() {
        this.#engine.release();
    }
}

/** All of it at once. */
export function render(api, samples, rate, voice) {
    const rendering = new Rendering(api, samples, rate, voice);
    while (!rendering.done) rendering.step(4096);
    rendering.release();
    return rendering.result;
}
