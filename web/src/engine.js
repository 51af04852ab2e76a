// SPDX-License-Identifier: Apache-2.0
// The C API of krelvcp.wasm in JavaScript: for pages, workers, audio worklets and Node.js alike.

const CHUNK = 1024; // samples that pass through the module's memory at a time

function text(memory, address) {
    const bytes = new Uint8Array(memory.buffer, address);
    return String.fromCharCode(...bytes.subarray(0, bytes.indexOf(0)));
}

/** Readies an instance of the module for the functions below; returns its exports. */
export function initialised(instance) {
    instance.exports._initialize();
    return instance.exports;
}

/** The voices, in the order of their numbers. */
export function listVoices(api) {
    return Array.from({ length: api.krel_voice_count() }, (_, number) => ({
        number,
        name: text(api.memory, api.krel_voice_name(number)),
        description: text(api.memory, api.krel_voice_description(number)),
    }));
}

/** Changes the voice of one stream of mono samples. Several engines may share an instance's exports. */
export class VoiceEngine {
    #api;
    #handle;
    #address;
    #chunk = new Float32Array(0);

    constructor(api, rate, voice) {
        this.#api = api;
        this.#handle = api.krel_voice_create(rate, voice, 0, 0);
        this.#address = api.malloc(CHUNK * Float32Array.BYTES_PER_ELEMENT);
        if (this.#handle !== 0 && this.#address !== 0) return;
        this.release();
        throw new RangeError(`no engine for voice ${voice} at ${rate} Hz`);
    }

    /** The module's memory moves when it grows. */
    #view() {
        if (this.#chunk.length === 0) this.#chunk = new Float32Array(this.#api.memory.buffer, this.#address, CHUNK);
        return this.#chunk;
    }

    /** Changes the samples in place, any number of them. */
    process(samples) {
        if (samples.length <= CHUNK) {
            this.#processChunk(samples);
            return;
        }
        for (let at = 0; at < samples.length; at += CHUNK) this.#processChunk(samples.subarray(at, at + CHUNK));
    }

    #processChunk(samples) {
        const chunk = this.#view();
        chunk.set(samples);
        this.#api.krel_voice_process_float(this.#handle, this.#address, samples.length);
        for (let i = 0; i < samples.length; ++i) samples[i] = chunk[i];
    }

    /** Chooses another voice at once: up to some tens of milliseconds of work. */
    prepare(voice) {
        if (this.#api.krel_voice_prepare(this.#handle, voice) !== 0) throw new RangeError(`no voice ${voice}`);
    }

    /** Chooses another voice; preparePart() then builds it bit by bit. */
    beginPrepare(voice) {
        if (this.#api.krel_voice_prepare_begin(this.#handle, voice) !== 0) throw new RangeError(`no voice ${voice}`);
    }

    /** Some work on the chosen voice, as for so many blocks of 128 samples. How many are left. */
    preparePart(blocks) {
        return this.#api.krel_voice_prepare_part(this.#handle, blocks);
    }

    /** Lets the input through, as late as the voice would be. */
    set bypass(on) {
        this.#api.krel_voice_bypass(this.#handle, on ? 1 : 0);
    }

    /** The voice that is heard: a new one from the moment its fade begins. */
    get heard() {
        return this.#api.krel_voice_heard(this.#handle);
    }

    /** Gives the memory back; the engine is not used again. */
    release() {
        this.#api.krel_voice_release(this.#handle);
        this.#api.free(this.#address);
        this.#handle = this.#address = 0;
    }
}
