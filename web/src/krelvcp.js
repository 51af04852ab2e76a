// SPDX-License-Identifier: Apache-2.0
// Seventeen changed voices as WebAssembly. krelvcp.d.ts describes what is exported here.

import { initialised, listVoices, VoiceEngine } from "./engine.js";
import { render } from "./render.js";

// The smallest module with a SIMD instruction.
const SIMD = [
    0, 97, 115, 109, 1, 0, 0, 0, 1, 5, 1, 96, 0, 1, 123, 3, 2, 1, 0, 10, 10, 1, 8, 0, 65, 0, 253, 15, 253, 98, 11,
];

export function isSupported() {
    return typeof WebAssembly === "object" && WebAssembly.validate(new Uint8Array(SIMD));
}

async function compile(source) {
    if (source instanceof WebAssembly.Module) return source;
    if (source instanceof ArrayBuffer || ArrayBuffer.isView(source)) return WebAssembly.compile(source);
    const response = source instanceof Response ? source : await fetch(source);
    if (!response.ok) throw new Error(`${response.url}: ${response.status} ${response.statusText}`);
    return WebAssembly.compile(await response.arrayBuffer());
}

const instantiate = async (module) => initialised(await WebAssembly.instantiate(module));

export async function loadKrelvcp(source = new URL("krelvcp.wasm", import.meta.url)) {
    if (!isSupported()) throw new Error("krelvcp needs WebAssembly with SIMD");
    const module = await compile(source);
    return new Krelvcp(module, await instantiate(module));
}

const worklets = new WeakMap(); // by context: the promise that its worklet is there

function addWorklet(context, url) {
    if (!context.audioWorklet) throw new Error("audio worklets need https:, localhost or a file");
    if (!worklets.has(context)) {
        const added = context.audioWorklet.addModule(url);
        worklets.set(context, added);
        added.catch(() => worklets.delete(context)); // the next node tries again
    }
    return worklets.get(context);
}

export class Krelvcp {
    #api;

    constructor(module, api) {
        this.module = module;
        this.#api = api;
        this.voices = listVoices(api);
    }

    latency(voice, rate) {
        return this.#api.krel_voice_latency(voice, rate);
    }

    async createEngine(rate, voice) {
        return new VoiceEngine(await instantiate(this.module), rate, voice);
    }

    async createNode(context, { worklet = new URL("krelvcp-worklet.js", import.meta.url), ...options } = {}) {
        await addWorklet(context, worklet);
        return new VoiceNode(context, this, options);
    }

    render(samples, rate, voice) {
        return render(this.#api, samples, rate, voice);
    }
}

function checkVoice(krelvcp, voice) {
    if (!krelvcp.voices.some(({ number }) => number === voice)) throw new RangeError(`no voice ${voice}`);
}

// Node.js has no audio nodes.
export class VoiceNode extends (globalThis.AudioWorkletNode ?? Object) {
    #krelvcp;
    #voice;
    #heard;
    #bypass;

    constructor(context, krelvcp, { voice = 11, bypass = false } = {}) {
        checkVoice(krelvcp, voice);
        super(context, "krelvcp", {
            outputChannelCount: [1],
            channelCount: 1,
            channelCountMode: "explicit",
            processorOptions: { module: krelvcp.module, voice, bypass },
        });
        this.#krelvcp = krelvcp;
        this.#voice = this.#heard = voice;
        this.#bypass = bypass;
        this.port.onmessage = ({ data }) => {
            this.#heard = data.heard;
            this.dispatchEvent(new Event("voiceheard"));
        };
    }

    get voice() {
        return this.#voice;
    }
    set voice(voice) {
        checkVoice(this.#krelvcp, voice);
        this.#voice = voice;
        this.port.postMessage({ voice });
    }

    get bypass() {
        return this.#bypass;
    }
    set bypass(on) {
        this.#bypass = Boolean(on);
        this.port.postMessage({ bypass: this.#bypass });
    }

    get heard() {
        return this.#heard;
    }

    get latency() {
        return this.#krelvcp.latency(this.#heard, this.context.sampleRate) / this.context.sampleRate;
    }

    release() {
        this.disconnect();
        this.port.postMessage({ release: true });
    }
}
