// SPDX-License-Identifier: Apache-2.0
// The audio worklet "recorder": hands its input to the page.

const BATCH = 4096; // samples

class Recorder extends AudioWorkletProcessor {
    #batch = new Float32Array(BATCH);
    #filled = 0;

    constructor() {
        super();
        this.port.onmessage = () => this.#flush();
    }

    #flush() {
        this.port.postMessage(this.#batch.slice(0, this.#filled));
        this.#filled = 0;
    }

    process([[input]]) {
        if (!input) return true;
        if (this.#filled + input.length > BATCH) this.#flush();
        this.#batch.set(input, this.#filled);
        this.#filled += input.length;
        return true;
    }
}

registerProcessor("recorder", Recorder);
