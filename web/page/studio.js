// SPDX-License-Identifier: Apache-2.0
// The voices of a recording: what the worker makes of it, kept as far as memory allows.

import { scriptUrl } from "./dom.js";

const MOST_BYTES = 400e6; // of kept sounds

function soundOf(samples, rate) {
    const sound = new AudioBuffer({ length: samples.length, sampleRate: rate, numberOfChannels: 1 });
    sound.copyToChannel(samples, 0);
    return sound;
}

/** Events: "take" and "progress" with {voice}, "original", "error" with {text}. */
export class Studio extends EventTarget {
    #worker = new Worker(scriptUrl("worker"));
    #id = 0;
    #takes = new Map(); // by voice; the one used last comes last
    #progress = new Map();
    #bytes = 0;
    recording = null; // {name, sound, picture}; the picture follows its sound

    constructor(module) {
        super();
        this.#worker.onmessage = ({ data }) =>
            data.id === undefined || data.id === this.#id ? this.#hear(data) : null;
        this.#worker.onerror = (event) => this.#tell("error", { text: event.message });
        this.#worker.postMessage({ kind: "module", bytes: module });
    }

    #tell(name, detail) {
        this.dispatchEvent(new CustomEvent(name, { detail }));
    }

    #hear({ kind, voice, ...data }) {
        if (kind === "take") this.#keep(voice, data);
        if (kind === "progress") this.#progress.set(voice, data.share);
        if (kind === "original") this.recording.picture = data.picture;
        this.#tell(kind, { voice, ...data });
    }

    #keep(voice, { samples, picture }) {
        const room = Math.max(2, Math.floor(MOST_BYTES / this.#bytes));
        const oldest = this.#takes.keys();
        while (this.#takes.size >= room) this.#takes.delete(oldest.next().value);
        this.#takes.set(voice, { sound: soundOf(samples, this.recording.sound.sampleRate), picture });
        this.#progress.delete(voice);
    }

    /** Takes a recording; `voices` are made of it in this order, the first at once and the others if there is room. */
    record(name, samples, rate, voices) {
        this.#takes.clear();
        this.#progress.clear();
        this.#id += 1;
        this.#bytes = samples.byteLength;
        this.recording = { name, sound: soundOf(samples, rate), picture: null };
        this.#worker.postMessage({ kind: "recording", id: this.#id, samples, rate });
        const fits = voices.length * this.#bytes <= MOST_BYTES;
        this.#worker.postMessage({ kind: "render", voices: fits ? voices : voices.slice(0, 1) });
    }

    /** The sound and picture of a voice; undefined, and it is made next, when it is not there. */
    take(voice) {
        const take = this.#takes.get(voice);
        if (take) {
            this.#takes.delete(voice);
            this.#takes.set(voice, take);
        }
        return take;
    }

    ask(voice) {
        if (this.recording && !this.#takes.has(voice)) this.#worker.postMessage({ kind: "render", voices: [voice] });
    }

    /** 0 to 1. */
    progress(voice) {
        return this.#takes.has(voice) ? 1 : (this.#progress.get(voice) ?? 0);
    }
}
