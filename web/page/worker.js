// SPDX-License-Identifier: Apache-2.0
// The page's renderings and pictures, off its main thread. It renders one voice at a time, the one asked for last first.

import { initialised } from "../src/engine.js";
import { Rendering } from "../src/render.js";
import { picture } from "./picture.js";

const STEP = 65536; // samples between two looks at the messages
const SHOWN = 0.1; // of progress that is worth a message

let api;
let recording = null; // {id, samples, rate}
let wanted = []; // voices to render, the next one last
let busy = false;

const nextTask = () => new Promise((resolve) => setTimeout(resolve, 0));

async function renderVoice(voice, { id, samples, rate }) {
    const rendering = new Rendering(api, samples, rate, voice);
    let shown = 0;
    while (!rendering.done && recording.id === id) {
        rendering.step(STEP);
        if (rendering.progress >= shown + SHOWN) {
            shown = rendering.progress;
            postMessage({ kind: "progress", id, voice, share: shown });
        }
        await nextTask();
    }
    if (recording.id === id) {
        const made = rendering.result;
        const pictured = picture(made, rate);
        postMessage({ kind: "take", id, voice, samples: made, picture: pictured }, [made.buffer]);
    }
    rendering.release();
}

async function work() {
    if (busy) return;
    busy = true;
    try {
        while (wanted.length > 0) await renderVoice(wanted.pop(), recording);
    } finally {
        busy = false;
    }
}

const handlers = {
    async module({ bytes }) {
        const { instance } = await WebAssembly.instantiate(bytes);
        api = initialised(instance);
        await work();
    },
    recording({ id, samples, rate }) {
        recording = { id, samples, rate };
        wanted = [];
        postMessage({ kind: "original", id, picture: picture(samples, rate) });
    },
    async render({ voices }) {
        const asked = [...voices].reverse();
        wanted = [...wanted.filter((voice) => !asked.includes(voice)), ...asked];
        if (api) await work();
    },
};

function report(error) {
    postMessage({ kind: "error", text: String(error) });
}

self.onmessage = async ({ data }) => {
    try {
        await handlers[data.kind](data);
    } catch (error) {
        report(error);
    }
};
