// SPDX-License-Identifier: Apache-2.0
// What the tests share: test sounds, what native code makes of them, browsers, a web server, a sound server.

import { execFileSync, spawn } from "node:child_process";
import { createHash } from "node:crypto";
import { once } from "node:events";
import { existsSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { createServer } from "node:http";
import { tmpdir } from "node:os";
import { extname, join } from "node:path";
import { setTimeout as sleep } from "node:timers/promises";
import { pathToFileURL } from "node:url";
import puppeteer from "puppeteer-core";
import { wavFile } from "../page/wav.js";

export const ROOT = new URL("../..", import.meta.url).pathname;
export const WEB = join(ROOT, "build/web");
export const PAGE = pathToFileURL(join(WEB, "krelvcp.html")).href;
export const NATIVE = join(ROOT, "build/release");
export const BROWSERS = (process.env.BROWSERS ?? "chromium,firefox").split(",");
export const RATE = 48000;

export const module = () => readFileSync(join(WEB, "krelvcp/krelvcp.wasm"));

/** A temporary folder for as long as the tests run. */
export const folder = mkdtempSync(join(tmpdir(), "krelvcp-web-"));
process.on("exit", () => rmSync(folder, { recursive: true, force: true }));

// ---- sounds

/** A gliding voice-like tone with pauses and some noise, in steps of 16 bits. */
export function speech(seconds, rate = RATE) {
    let phase = 0;
    let random = 1;
    return Float32Array.from({ length: seconds * rate }, (_, i) => {
        random = (Math.imul(random, 1664525) + 1013904223) | 0;
        phase += (2 * Math.PI * (140 + 40 * Math.sin(i / rate / 0.3))) / rate;
        const tone = [1, 2, 3, 5, 8].reduce((sum, n) => sum + Math.sin(n * phase) / n, 0);
        const loud = Math.sin((3 * Math.PI * i) / rate) > -0.6 ? 0.25 : 0;
        return Math.round(32768 * (loud * tone + (0.01 * random) / 2 ** 31)) / 32768;
    });
}

export async function writeWav(name, samples, rate = RATE) {
    const path = join(folder, name);
    writeFileSync(path, Buffer.from(await wavFile(samples, rate).arrayBuffer()));
    return path;
}

/** The samples of a 16-bit WAV file, as bytes. */
export function wavData(path) {
    const file = readFileSync(path);
    const at = file.indexOf("data") + 8;
    return file.subarray(at, at + file.readUInt32LE(at - 4));
}

export const samplesOf = (bytes) => new Int16Array(bytes.buffer.slice(bytes.byteOffset), 0, bytes.length >> 1);

export const sha256 = (bytes) => createHash("sha256").update(bytes).digest("hex");

/** By voice, the digest of the native engine's samples. */
export function nativeDigests(samples, rate) {
    const path = join(folder, "in.f32");
    writeFileSync(path, samples);
    const library = join(NATIVE, "libkrelvoice.so.1");
    return execFileSync(join(ROOT, "web/tests/native.py"), [library, rate, path], { encoding: "utf8" })
        .trim()
        .split("\n");
}

/** By voice, the path of what `krelvcp render` makes of a file. */
export function nativeRenders(path) {
    execFileSync(join(NATIVE, "krelvcp"), ["render", "-q", path, join(folder, "{number}.wav"), "--preset", "all"], {
        stdio: "ignore",
    });
    return Array.from({ length: 17 }, (_, voice) => join(folder, `${String(voice).padStart(2, "0")}.wav`));
}

// ---- servers and browsers

const TYPES = { ".js": "text/javascript", ".wasm": "application/wasm" };
// Browsers give a fine clock to pages that nothing foreign can reach.
const ISOLATED = { "Cross-Origin-Opener-Policy": "same-origin", "Cross-Origin-Embedder-Policy": "require-corp" };

/** Serves build/web, and pages given by name. {url, close} */
export async function serve(pages) {
    const server = createServer((request, response) => {
        const path = request.url.slice(1);
        try {
            const body = pages[path] ?? readFileSync(join(WEB, path));
            response.writeHead(200, { "Content-Type": TYPES[extname(path)] ?? "text/html", ...ISOLATED }).end(body);
        } catch {
            response.writeHead(404).end();
        }
    });
    await once(server.listen(0, "127.0.0.1"), "listening");
    return { url: `http://127.0.0.1:${server.address().port}/`, close: () => server.close() };
}

const CHROMIUM = {
    browser: "chrome",
    executablePath: "/usr/bin/chromium",
    ignoreDefaultArgs: ["--mute-audio"],
    args: ["--no-sandbox", "--use-fake-ui-for-media-stream", "--autoplay-policy=no-user-gesture-required"],
};
const FIREFOX = {
    browser: "firefox",
    executablePath: "/usr/bin/firefox-esr",
    extraPrefsFirefox: {
        "browser.download.dir": folder,
        "browser.download.folderList": 2,
        "media.autoplay.default": 0,
        "media.navigator.permission.disabled": true,
        "privacy.reduceTimerPrecision": false,
    },
};

export const launch = (name) => puppeteer.launch(name === "chromium" ? CHROMIUM : FIREFOX);

/** Lets a browser's downloads go to the folder. Firefox has a setting for that. */
async function allowDownloads(browser) {
    if (browser.protocol !== "cdp") return;
    const session = await browser.target().createCDPSession();
    await session.send("Browser.setDownloadBehavior", { behavior: "allow", downloadPath: folder });
}

/** Opens an address; what goes wrong in it is kept in page.complaints, what it asks for in page.requests. */
export async function open(browser, address, before) {
    await allowDownloads(browser);
    const page = await browser.newPage();
    page.complaints = [];
    page.requests = [];
    page.on("console", (message) => page.complaints.push(message.text()));
    page.on("pageerror", (error) => page.complaints.push(error.message));
    page.on("request", (request) => page.requests.push(request.url()));
    if (before) await page.evaluateOnNewDocument(before);
    await page.goto(address);
    return page;
}

/** Waits for a condition on the page; asked from outside, since a browser may give an unseen page no time to ask itself. */
export async function until(page, condition, ...values) {
    for (let tries = 0; tries < 300; ++tries) {
        if (await page.evaluate(condition, ...values)) return;
        await sleep(100);
    }
    throw new Error(`waited too long for ${condition}`);
}

export const textOf = (page, selector) => page.$eval(selector, (found) => found.textContent.trim());

const SOUND_SERVER = `
load-module module-null-sink sink_name=ears rate=${RATE}
load-module module-null-sink sink_name=mouth rate=${RATE}
load-module module-remap-source master=mouth.monitor source_name=microphone
set-default-sink ears
set-default-source microphone
load-module module-native-protocol-unix auth-anonymous=1`;

/** Listens to what is played; the function returned ends that and gives the samples. */
function listen() {
    const options = ["--device=ears.monitor", "--format=s16le", "--channels=1", `--rate=${RATE}`, "--latency-msec=20"];
    const ear = spawn("parec", options, { stdio: ["ignore", "pipe", "ignore"] });
    const heard = [];
    ear.stdout.on("data", (bytes) => heard.push(bytes));
    return async () => {
        ear.kill();
        await once(ear.stdout, "end");
        return samplesOf(Buffer.concat(heard));
    };
}

/** A sound server without hardware: browsers hear a file that is said into it, and it hears what they play. */
export async function soundServer(path) {
    const home = mkdtempSync(join(folder, "sound-"));
    const socket = join(home, "pulse/native");
    Object.assign(process.env, { HOME: home, XDG_RUNTIME_DIR: home, PULSE_SERVER: `unix:${socket}` });
    writeFileSync(join(home, "server.pa"), SOUND_SERVER);
    const options = ["-n", "--daemonize=no", "--exit-idle-time=-1", "--disable-shm=yes", "-F", join(home, "server.pa")];
    const server = spawn("pulseaudio", options, { stdio: "ignore" });
    for (let tries = 0; !existsSync(socket) && tries < 100; ++tries) await sleep(100);
    const talk = spawn("paplay", ["--device=mouth", path], { stdio: "ignore" });
    return { listen, stop: () => [talk, server].forEach((one) => one.kill()) };
}
