// SPDX-License-Identifier: Apache-2.0
// Every voice as WebAssembly gives the samples of native code: in Node.js, and in the browsers' audio worklets.

import assert from "node:assert/strict";
import { test } from "node:test";
import { loadKrelvcp } from "../src/krelvcp.js";
import * as support from "./support.mjs";

const { RATE } = support;

test("an engine equals the native one at every rate, in calls of any length", async () => {
    const krelvcp = await loadKrelvcp(support.module());
    for (const rate of [8000, 22050, 44100, 48000, 192000]) {
        const samples = support.speech(1, rate);
        const wanted = support.nativeDigests(samples, rate);
        for (const { number } of krelvcp.voices) {
            const engine = await krelvcp.createEngine(rate, number);
            const out = samples.slice();
            for (let at = 0, n = 1; at < out.length; at += n, n = (n * 7 + 1) % 3001) {
                engine.process(out.subarray(at, at + n));
            }
            assert.equal(support.sha256(out), wanted[number], `voice ${number} at ${rate} Hz`);
        }
    }
});

test("a rendering equals what the program writes", async () => {
    const krelvcp = await loadKrelvcp(support.module());
    const samples = support.speech(2);
    const wanted = support.nativeRenders(await support.writeWav("talk.wav", samples));
    for (const { number } of krelvcp.voices) {
        const path = await support.writeWav("rendered.wav", krelvcp.render(samples, RATE, number));
        assert.deepEqual(support.wavData(path), support.wavData(wanted[number]), `voice ${number}`);
    }
});

test("what there is not is refused", async () => {
    const krelvcp = await loadKrelvcp(support.module());
    await assert.rejects(krelvcp.createEngine(RATE, 17), RangeError);
    await assert.rejects(krelvcp.createEngine(7999, 0), RangeError);
    const engine = await krelvcp.createEngine(RATE, 3);
    assert.throws(() => engine.prepare(-1), RangeError);
    assert.equal(engine.heard, 3);
    await assert.rejects(loadKrelvcp(new Uint8Array(8)), WebAssembly.CompileError);
});

/** In the page: the samples of every voice by way of an audio node, as digests. */
async function digests(samples, rate) {
    const { loadKrelvcp: load } = await import("/krelvcp/krelvcp.js");
    const krelvcp = await load();
    const voices = krelvcp.voices.map(async ({ number }) => {
        const context = new OfflineAudioContext(1, samples.length, rate);
        const buffer = new AudioBuffer({ length: samples.length, sampleRate: rate });
        buffer.copyToChannel(Float32Array.from(samples), 0);
        const source = new AudioBufferSourceNode(context, { buffer });
        source.connect(await krelvcp.createNode(context, { voice: number })).connect(context.destination);
        source.start();
        const made = await context.startRendering();
        const digest = await crypto.subtle.digest("SHA-256", made.getChannelData(0));
        return [...new Uint8Array(digest)].map((byte) => byte.toString(16).padStart(2, "0")).join("");
    });
    return Promise.all(voices);
}

/** In the page: how a node fails whose voice there is not. */
async function refusal() {
    const { loadKrelvcp: load } = await import("/krelvcp/krelvcp.js");
    const context = new OfflineAudioContext(1, 1, 48000);
    return (await load()).createNode(context, { voice: 17 }).catch((error) => error.name);
}

for (const name of support.BROWSERS) {
    test(`${name}: the audio worklet equals the native engine`, async () => {
        const server = await support.serve({ blank: "<!doctype html>" });
        const browser = await support.launch(name);
        try {
            const samples = support.speech(1);
            const page = await support.open(browser, `${server.url}blank`);
            assert.deepEqual(await page.evaluate(digests, [...samples], RATE), support.nativeDigests(samples, RATE));
            assert.equal(await page.evaluate(refusal), "RangeError");
        } finally {
            await browser.close();
            server.close();
        }
    });
}
