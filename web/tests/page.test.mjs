// SPDX-License-Identifier: Apache-2.0
// The page as a person uses it, from disk. SCREENSHOTS=FOLDER keeps pictures of it, to look at.

import assert from "node:assert/strict";
import { existsSync, readFileSync } from "node:fs";
import { createRequire } from "node:module";
import { basename, join } from "node:path";
import { after, before, test } from "node:test";
import { setTimeout as sleep } from "node:timers/promises";
import * as support from "./support.mjs";

const { textOf, until } = support;
const wav = await support.writeWav("my voice.wav", support.speech(3));
const renders = support.nativeRenders(wav);
let sound;

before(async () => (sound = await support.soundServer(await support.writeWav("long.wav", support.speech(100)))));
after(() => sound.stop());

/** In the page: drops a file on it. */
function dropFile(name, bytes) {
    const dataTransfer = new DataTransfer();
    dataTransfer.items.add(new File([Uint8Array.from(bytes)], name));
    document.body.dispatchEvent(new DragEvent("drop", { dataTransfer, bubbles: true, cancelable: true }));
}

const drop = (page, path) => page.evaluate(dropFile, basename(path), [...readFileSync(path)]);
const place = (page) => page.$eval("#seek", (seek) => seek.valueAsNumber);
const ready = (page) => page.waitForSelector("#download:enabled");

async function downloaded(page, name) {
    await page.click("#download");
    const path = join(support.folder, name);
    for (let tries = 0; tries < 50 && !existsSync(path); ++tries) await sleep(100);
    await sleep(200);
    return support.wavData(path);
}

async function photograph(page, name) {
    if (!process.env.SCREENSHOTS) return;
    for (const [width, height] of [
        [1200, 900],
        [390, 844],
    ]) {
        for (const value of name === "chromium" ? ["light", "dark"] : ["light"]) {
            if (name === "chromium") await page.emulateMediaFeatures([{ name: "prefers-color-scheme", value }]);
            await page.setViewport({ width, height });
            await page.screenshot({
                path: join(process.env.SCREENSHOTS, `${name}-${width}-${value}.png`),
                fullPage: true,
            });
        }
    }
    await page.setViewport({ width: 1200, height: 900 });
}

/** What a checker of accessible pages objects to: labels, roles, contrast and the like. */
async function objections(page) {
    await page.evaluate(readFileSync(createRequire(import.meta.url).resolve("axe-core"), "utf8"));
    const { violations } = await page.evaluate(() => globalThis.axe.run());
    return violations.map(({ id, nodes }) => `${id}: ${nodes.map(({ html }) => html)}`);
}

async function playsAndSwitches(page) {
    await page.keyboard.press(" ");
    await until(page, () => document.querySelector("#seek").valueAsNumber > 0.3);
    const before_ = await place(page);
    for (const key of ["5", "y", "b", "b", "w"]) await page.keyboard.press(key);
    await until(page, () => document.querySelector("#status").textContent === "my voice.wav");
    assert.ok((await place(page)) >= before_, "it goes on where it was");
    await until(page, () => document.querySelector("#meter").ariaValueNow > -40);
    await page.keyboard.press("b");
    assert.equal(await textOf(page, '.sides [aria-pressed="true"]'), "Before");
    await page.click('.plot[data-side="after"] canvas', { offset: { x: 10, y: 10 } });
    assert.equal(await textOf(page, '.sides [aria-pressed="true"]'), "After");
    assert.ok((await place(page)) < before_, "a click moves it");
    assert.equal(await page.$eval("#play", (play) => play.ariaLabel), "Pause");
    await page.keyboard.press(" ");
}

async function records(page) {
    await page.click("#record");
    await until(page, () => /0:02/.test(document.querySelector("#time").textContent));
    await page.click("#record");
    await until(page, () => /^recording, 0:0[2-9]/.test(document.querySelector("#name").textContent));
    await ready(page);
    const bytes = await downloaded(page, "recording-girl.wav");
    const samples = new Int16Array(bytes.buffer.slice(bytes.byteOffset), 0, bytes.length >> 1);
    assert.ok(
        samples.some((x) => Math.abs(x) > 3000),
        "something is heard",
    );
}

async function speaksPlainly(page) {
    await page.evaluate(dropFile, "report.pdf", [1, 2, 3, 4]);
    await until(page, () => document.querySelector("#error").textContent.startsWith("“report.pdf” is not a sound"));
    assert.equal(await textOf(page, "#status"), "recording", "it is no longer being read");
    for (const [name, words] of [
        ["NotFoundError", "No microphone"],
        ["NotAllowedError", "may not use the microphone"],
    ]) {
        await page.evaluate((error) => {
            navigator.mediaDevices.getUserMedia = () => Promise.reject(new DOMException("", error));
        }, name);
        await page.click("#live");
        await until(page, (text) => document.querySelector("#error").textContent.includes(text), words);
    }
}

for (const name of support.BROWSERS) {
    test(`${name}: drop, play, switch, compare, download, record`, { timeout: 120000 }, async () => {
        const browser = await support.launch(name);
        try {
            const page = await support.open(browser, support.PAGE);
            await page.setViewport({ width: 1200, height: 900 });
            await page.waitForSelector("#open:enabled");
            await drop(page, wav);
            await ready(page);
            await photograph(page, name);
            assert.deepEqual(await objections(page), []);
            await playsAndSwitches(page);
            for (const [key, voice, file] of [
                ["w", 11, "girl"],
                ["2", 2, "echo"],
            ]) {
                await page.keyboard.press(key);
                await ready(page);
                const bytes = await downloaded(page, `my voice-${file}.wav`);
                assert.deepEqual(bytes, support.wavData(renders[voice]), "what the program writes");
            }
            await page.keyboard.press("w");
            await records(page);
            await speaksPlainly(page);
            assert.deepEqual(page.complaints, []);
            assert.deepEqual(
                page.requests.filter((url) => !/^(data|blob):/.test(url) && url !== support.PAGE),
                [],
            );
        } finally {
            await browser.close();
        }
    });

    test(`${name}: without SIMD it says so`, { timeout: 60000 }, async () => {
        const browser = await support.launch(name);
        try {
            const page = await support.open(browser, support.PAGE, () => (WebAssembly.validate = () => false));
            await until(page, () => document.querySelector("#error").textContent.includes("WebAssembly with SIMD"));
            assert.ok(await page.$("#open:disabled"));
        } finally {
            await browser.close();
        }
    });
}
