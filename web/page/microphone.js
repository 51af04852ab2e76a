// SPDX-License-Identifier: Apache-2.0
// The microphone: recorded, or through a voice to the headphones.

import { scriptUrl } from "./dom.js";
import { noMicrophone, notSecure } from "./messages.js";

// The voices want the voice as it is.
const AS_IT_IS = { echoCancellation: false, noiseSuppression: false, autoGainControl: false };

async function microphone() {
    if (!navigator.mediaDevices || !globalThis.AudioWorkletNode) throw notSecure();
    try {
        return await navigator.mediaDevices.getUserMedia({ audio: AS_IT_IS });
    } catch (error) {
        throw noMicrophone(error);
    }
}

/** A context with the microphone in it. */
class Session {
    constructor(stream) {
        this.stream = stream;
        this.context = new AudioContext({ latencyHint: "interactive" });
        this.source = this.context.createMediaStreamSource(stream);
        this.analyser = new AnalyserNode(this.context, { fftSize: 1024 });
    }

    /** Calls back when the microphone goes away by itself. */
    set onlost(callback) {
        this.stream.getTracks()[0].onended = callback;
    }

    close() {
        this.onlost = null;
        for (const track of this.stream.getTracks()) track.stop();
        return this.context.close();
    }
}

class Recording extends Session {
    #node;
    #longest; // seconds
    #batches = [];
    count = 0;

    async start(longest) {
        this.#longest = longest;
        await this.context.audioWorklet.addModule(scriptUrl("recorder"));
        this.#node = new AudioWorkletNode(this.context, "recorder", { channelCount: 1, channelCountMode: "explicit" });
        this.#node.port.onmessage = ({ data }) => this.#keep(data);
        this.source.connect(this.analyser).connect(this.#node).connect(this.context.destination);
    }

    #keep(batch) {
        // A page that is not looked at does not end it in time.
        if (this.seconds >= this.#longest) return;
        this.#batches.push(batch);
        this.count += batch.length;
    }

    get seconds() {
        return this.count / this.context.sampleRate;
    }

    /** Ends it; {samples, rate}. */
    async finish() {
        await new Promise((resolve) => {
            this.#node.port.onmessage = ({ data }) => resolve(this.#keep(data));
            this.#node.port.postMessage("flush");
        });
        const samples = new Float32Array(this.count);
        this.#batches.reduce((at, batch) => (samples.set(batch, at), at + batch.length), 0);
        const rate = this.context.sampleRate;
        await this.close();
        return { samples, rate };
    }
}

class Live extends Session {
    async start(krelvcp, voice) {
        this.node = await krelvcp.createNode(this.context, { voice, worklet: scriptUrl("worklet") });
        this.source.connect(this.node).connect(this.analyser).connect(this.context.destination);
    }

    /** Seconds from the microphone to the ear, as far as the browser tells. */
    get latency() {
        const { baseLatency = 0, outputLatency = 0 } = this.context;
        return this.node.latency + baseLatency + outputLatency;
    }
}

async function start(session, ...options) {
    try {
        await session.start(...options);
        return session;
    } catch (error) {
        session.close();
        throw error;
    }
}

export const startRecording = async (longest) => start(new Recording(await microphone()), longest);
export const startLive = async (krelvcp, voice) => start(new Live(await microphone()), krelvcp, voice);
