// SPDX-License-Identifier: Apache-2.0
// The audio worklet "krelvcp". It is one thread: voices are built there in small parts, between blocks.

import { initialised, VoiceEngine } from "./engine.js";

const PARTS = 4; // blocks of silence, of the 256 that a new voice settles on, per block of sound

class KrelvcpProcessor extends AudioWorkletProcessor {
    #engine;
    #heard;
    #released = false;

    constructor({ processorOptions: { module, voice, bypass } }) {
        super();
        this.#engine = new VoiceEngine(initialised(new WebAssembly.Instance(module)), sampleRate, voice);
        this.#engine.bypass = bypass;
        this.#heard = voice;
        this.port.onmessage = ({ data }) => this.#obey(data);
    }

    #obey({ voice, bypass, release }) {
        if (this.#released) return;
        if (voice !== undefined) this.#engine.beginPrepare(voice);
        if (bypass !== undefined) this.#engine.bypass = bypass;
        if (release) this.#release();
    }

    #release() {
        this.#engine.release();
        this.#released = true;
    }

    process([[input]], [[output]]) {
        if (this.#released) return false;
        if (input) output.set(input);
        this.#engine.preparePart(PARTS);
        this.#engine.process(output);
        this.#report(this.#engine.heard);
        return true;
    }

    #report(heard) {
        if (heard === this.#heard) return;
        this.#heard = heard;
        this.port.postMessage({ heard });
    }
}

registerProcessor("krelvcp", KrelvcpProcessor);
