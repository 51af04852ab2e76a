// SPDX-License-Identifier: Apache-2.0
// A microphone through the voices into headphones, between the two ends of a sound server.

import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { join } from "node:path";
import { after, before, test } from "node:test";
import { setTimeout as sleep } from "node:timers/promises";
import * as support from "./support.mjs";

const { RATE } = support;
const SWITCH = 700; // ms between two choices
const GAP = 0.01; // seconds of silence in the midst of a tone
const EXCUSED = 9; // choices: a busy machine starves the sound server now and then, a busy worklet every time
const documented = readFileSync(join(support.ROOT, "docs/WEB.md"), "utf8").match(/```html\n(.*?)```/s)[1];
const keys = [..."w0123456789qwertyu"];
const tone = Float32Array.from({ length: 150 * RATE }, (_, i) => 0.3 * Math.sin((2 * Math.PI * 220 * i) / RATE));
let sound;

before(async () => (sound = await support.soundServer(await support.writeWav("tone.wav", tone))));
after(() => sound.stop());

/** The longest silence, in samples. */
function longestGap(heard) {
    let last = -1;
    let longest = 0;
    heard.forEach((x, i) => {
        if (Math.abs(x) <= 1 && i < heard.length - 1) return;
        longest = Math.max(longest, i - last - 1);
        last = i;
    });
    return longest;
}

/** The frequency of what is heard for a second. */
async function heardHertz() {
    const heard = sound.listen();
    await sleep(1000);
    const samples = await heard();
    const rises = samples.filter((x, i) => i > 0 && x >= 0 && samples[i - 1] < 0).length;
    return (rises * RATE) / Math.max(1, samples.length);
}

for (const name of support.BROWSERS) {
    test(`${name}: live, voices are switched without an error or a gap`, { timeout: 90000 }, async () => {
        const browser = await support.launch(name);
        try {
            const page = await support.open(browser, support.PAGE);
            await page.waitForSelector("#live:enabled");
            await page.click("#live");
            await support.until(page, () => document.querySelector("#meter").ariaValueNow > -30);
            await sleep(1000);
            const heard = sound.listen();
            for (const key of keys) {
                await page.keyboard.press(key);
                await sleep(SWITCH);
            }
            await support.until(page, () => document.querySelector("#status").textContent.includes("cave"));
            const samples = await heard();
            await page.click("#live");
            const window = (RATE * SWITCH) / 1000;
            const gaps = keys.map((_, i) => longestGap(samples.subarray(i * window, (i + 1) * window)) / RATE);
            const broken = gaps.filter((gap) => gap > GAP).length;
            const longest = (1000 * Math.max(...gaps)).toFixed(1);
            console.log(
                `| ${name} | ${broken} | ${longest} ms | gaps in ${gaps.length} live choices, the longest silence`,
            );
            assert.ok(samples.length > (16 * RATE * SWITCH) / 1000, `${samples.length} samples heard`);
            assert.ok(broken <= EXCUSED, `${broken} gaps`);
            assert.deepEqual(page.complaints, []);
        } finally {
            await browser.close();
        }
    });

    test(`${name}: the documented page speaks with the voice that is chosen`, { timeout: 60000 }, async () => {
        const server = await support.serve({ documented });
        const browser = await support.launch(name);
        try {
            const page = await support.open(browser, `${server.url}documented`);
            await page.click("button");
            await support.until(page, () => document.querySelectorAll("option").length === 17);
            await page.select("select", "7");
            let hz = 0;
            for (let tries = 0; tries < 20 && Math.abs(hz - 220) > 5; ++tries) hz = await heardHertz();
            assert.ok(Math.abs(hz - 220) <= 5, `${hz} Hz`);
            assert.deepEqual(
                page.complaints.filter((text) => !text.includes("404")),
                [],
            );
        } finally {
            await browser.close();
            server.close();
        }
    });
}
