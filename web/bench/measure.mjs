// SPDX-License-Identifier: Apache-2.0
// How much of real time each voice takes, in Node.js and in the browsers' audio worklets, its longest block, and how soon
// the first sound is there. Lines like those of the other benchmarks.

import { loadKrelvcp } from "../src/krelvcp.js";
import * as support from "../tests/support.mjs";

const { RATE } = support;
const BLOCK = 128;
const SECONDS = 20;
const samples = support.speech(SECONDS);

/** Each voice's share of real time in an audio worklet, whose thread has no clock: by the time that all blocks take. */
async function shares(input, rate) {
    const { loadKrelvcp: load } = await import("/krelvcp/krelvcp.js");
    const krelvcp = await load();
    const sound = new AudioBuffer({ length: input.length, sampleRate: rate });
    sound.copyToChannel(Float32Array.from(input), 0);
    const seconds = async (connect) => {
        const context = new OfflineAudioContext(1, input.length, rate);
        const source = new AudioBufferSourceNode(context, { buffer: sound });
        await connect(context, source);
        source.start();
        const start = performance.now();
        await context.startRendering();
        return (performance.now() - start) / 1000;
    };
    const best = async (connect) => Math.min(await seconds(connect), await seconds(connect), await seconds(connect));
    const empty = await best((context, source) => source.connect(context.destination));
    const found = [];
    for (const { number } of krelvcp.voices) {
        const all = await best(async (context, source) => {
            source.connect(await krelvcp.createNode(context, { voice: number })).connect(context.destination);
        });
        found.push((all - empty) / (input.length / rate));
    }
    return found;
}

/** Each voice's longest block in ms, on a page's thread. A block counts as the shortest of its runs: others interrupt. */
async function longestBlocks(input, rate, block, runs) {
    const { loadKrelvcp: load } = await import("/krelvcp/krelvcp.js");
    const krelvcp = await load();
    const found = [];
    for (const { number } of krelvcp.voices) {
        const times = new Float64Array(Math.floor(input.length / block)).fill(Infinity);
        for (let run = 0; run < runs; ++run) {
            const engine = await krelvcp.createEngine(rate, number);
            const data = Float32Array.from(input);
            times.forEach((time, i) => {
                const start = performance.now();
                engine.process(data.subarray(i * block, (i + 1) * block));
                times[i] = Math.min(time, performance.now() - start);
            });
        }
        found.push(times.reduce((a, b) => Math.max(a, b)));
    }
    return found;
}

function nodeShares(krelvcp) {
    const share = (number) => {
        const start = performance.now();
        krelvcp.render(samples, RATE, number);
        return (performance.now() - start) / 1000 / SECONDS;
    };
    return krelvcp.voices.map(({ number }) => Math.min(share(number), share(number), share(number)));
}

/** Seconds from an empty tab to a page that can be used, and from a file's arrival to the changed voice that can be heard. */
async function firstSound(browser) {
    const begun = performance.now();
    const page = await support.open(browser, support.PAGE);
    await page.waitForSelector("#example:enabled");
    const usable = performance.now();
    await page.click("#example");
    await page.waitForSelector("#play:enabled");
    const done = performance.now();
    await page.close();
    return [(usable - begun) / 1000, (done - usable) / 1000];
}

const krelvcp = await loadKrelvcp(support.module());
const columns = { node: nodeShares(krelvcp) };
const longest = {};
for (const name of support.BROWSERS) {
    const server = await support.serve({ blank: "<!doctype html>" });
    const browser = await support.launch(name);
    const page = await support.open(browser, `${server.url}blank`);
    columns[name] = await page.evaluate(shares, [...samples], RATE);
    longest[name] = await page.evaluate(longestBlocks, [...samples.subarray(0, 4 * RATE)], RATE, BLOCK, 8);
    const [usable, heard] = await firstSound(browser);
    console.log(
        `| ${name} | ${usable.toFixed(2)} s | ${heard.toFixed(2)} s |  page usable, example as girl ready to play`,
    );
    await browser.close();
    server.close();
}
const percent = (share) => `${(100 * share).toFixed(2)} %`;
const millis = (ms) => `${ms.toFixed(2)} ms`;
console.log(`| voice | ${Object.keys(columns).join(" | ")} | ${Object.keys(longest).join(" | ")} |`);
for (const { number, name } of krelvcp.voices) {
    const share = Object.values(columns).map((column) => percent(column[number]));
    const block = Object.values(longest).map((column) => millis(column[number]));
    console.log(`| ${number} ${name} | ${share.join(" | ")} | ${block.join(" | ")} |`);
}
console.log(`shares of real time; blocks of ${BLOCK} samples (2.67 ms): the longest`);
