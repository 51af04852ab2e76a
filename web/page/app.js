// SPDX-License-Identifier: Apache-2.0
// The page: what it shows, and what its buttons and keys do.

import { isSupported, loadKrelvcp } from "../src/krelvcp.js";
import { bytesOf, clock, element, embedded, find } from "./dom.js";
import { listenToKeys, VOICE_KEYS } from "./keys.js";
import { inWords, microphoneGone, noSimd, unreadable } from "./messages.js";
import { Meter } from "./meter.js";
import { startLive, startRecording } from "./microphone.js";
import { Player } from "./player.js";
import { Plots } from "./plots.js";
import { RATE, samplesOf } from "./sources.js";
import { Studio } from "./studio.js";
import { wavFile } from "./wav.js";

const LONGEST_RECORDING = 300; // seconds
const EXAMPLE = "example.flac";
const ASKING = "Asking for the microphone …"; // until the browser is answered, all else waits

const state = { voice: 11, side: "after", live: null, recording: null, busy: false };
const player = new Player(showPlayer);
const meter = new Meter(find("meter"));
const plots = new Plots(find("plots"), (side, seconds) => {
    if (usesMicrophone()) return;
    hear(side);
    player.seek(seconds);
    player.play();
});
let krelvcp;
let studio;

const usesMicrophone = () => state.live !== null || state.recording !== null;

// ---- what goes wrong

function complain(error) {
    find("error").textContent = inWords(error);
    find("error").hidden = false;
    find("error").scrollIntoView({ block: "nearest" });
}

/** A function for an event: while it waits for something it is not begun again, and its errors are shown. */
const guarded =
    (action) =>
    async (...values) => {
        if (state.busy) return;
        state.busy = true;
        find("error").hidden = true;
        try {
            await action(...values);
        } catch (error) {
            complain(error);
        } finally {
            state.busy = false;
            show();
        }
    };

// ---- what is heard

const take = () => studio?.take(state.voice);

/** A line that screen readers read out when it changes. */
function say(text) {
    if (find("status").textContent !== text) find("status").textContent = text;
}

/** The sound that the choice stands for; while a voice is being made, the one before goes on. */
function exchangeSound() {
    const sound = state.side === "before" ? studio.recording?.sound : take()?.sound;
    if (sound) player.exchange(sound);
}

function hear(side) {
    state.side = side;
    if (state.live) state.live.node.bypass = side === "before";
    exchangeSound();
    show();
}

function choose(voice) {
    state.voice = voice;
    state.side = "after";
    find("voices").querySelector(`[value="${voice}"]`).checked = true;
    if (state.live) Object.assign(state.live.node, { voice, bypass: false });
    studio.ask(voice);
    exchangeSound();
    show();
}

function togglePlay() {
    if (find("play").disabled) return;
    if (player.playing) player.pause();
    else player.play();
}

// ---- where recordings come from

function begin(name, samples, rate) {
    player.reset();
    state.side = "after";
    const others = krelvcp.voices.map(({ number }) => number).filter((number) => number !== state.voice);
    studio.record(name, samples, rate, [state.voice, ...others]);
    show();
}

async function open(name, bytes) {
    await stopMicrophone();
    say(`Reading ${name} …`);
    begin(name, await samplesOf(name, bytes), RATE);
}

/** Its bytes; a folder that is dropped has none. */
async function contents(file) {
    try {
        return await file.arrayBuffer();
    } catch {
        throw unreadable(file.name);
    }
}

const openFile = guarded(async (file) => file && open(file.name, await contents(file)));

/** For a microphone that goes away by itself. */
const ending = (toggle) =>
    guarded(async () => {
        await toggle();
        throw microphoneGone();
    });

async function stopMicrophone() {
    if (state.recording) await toggleRecording();
    if (state.live) await toggleLive();
}

async function toggleRecording() {
    if (state.recording) {
        const { samples, rate } = await finishRecording();
        if (samples.length > 0) begin("recording", samples, rate);
        return;
    }
    await stopMicrophone();
    player.pause();
    say(ASKING);
    state.recording = await startRecording(LONGEST_RECORDING);
    state.recording.onlost = ending(toggleRecording);
    show();
}

function finishRecording() {
    const { recording } = state;
    state.recording = null;
    show();
    return recording.finish();
}

async function toggleLive() {
    if (state.live) {
        const { live } = state;
        state.live = null;
        show();
        await live.close();
        return;
    }
    await stopMicrophone();
    player.pause();
    say(ASKING);
    const live = await startLive(krelvcp, state.voice);
    live.node.addEventListener("voiceheard", show);
    live.onlost = ending(toggleLive);
    state.live = live;
    state.side = "after";
    show();
}

// ---- what is shown

const milliseconds = (seconds) => `${Math.round(1000 * seconds)} ms`;
const described = ({ description }) => description.replaceAll(" x ", " × ");
const titleOf = ({ name, number }) => (name === "plain" ? `plain ${number}` : name);

function showVoice() {
    const voice = krelvcp.voices[state.voice];
    const late = krelvcp.latency(voice.number, RATE) / RATE;
    find("about").textContent = `${titleOf(voice)}: ${described(voice)}. Live, it comes ${milliseconds(late)} late.`;
    find("after-name").textContent = titleOf(voice);
    for (const input of find("voices").querySelectorAll("input")) {
        input.parentElement.style.setProperty("--made", studio.recording ? studio.progress(Number(input.value)) : 0);
    }
}

function showButton(id, on, label) {
    find(id).classList.toggle("on", on);
    find(id).querySelector(".label").textContent = label;
}

function showSides() {
    for (const button of document.querySelectorAll(".sides button")) {
        button.setAttribute("aria-pressed", button.dataset.side === state.side);
    }
}

function statusText() {
    if (state.recording) return "Recording";
    if (state.live) {
        const { heard } = state.live.node;
        const what = state.side === "before" ? "your own voice" : titleOf(krelvcp.voices[heard]);
        return `Live: ${what}, ${milliseconds(state.live.latency)} late`;
    }
    if (!studio.recording) return "Open, record or go live";
    if (state.side === "after" && !take()) return `Making ${titleOf(krelvcp.voices[state.voice])} …`;
    return studio.recording.name;
}

function showPlots() {
    const { recording } = studio;
    find("plots").hidden = !recording;
    if (!recording) return;
    find("name").textContent = `${recording.name}, ${clock(recording.sound.duration)}`;
    plots.show({ before: recording.picture, after: take()?.picture, side: state.side, waiting: !take() });
}

function show() {
    showVoice();
    showSides();
    showButton("record", state.recording !== null, state.recording ? "Stop" : "Record");
    showButton("live", state.live !== null, state.live ? "Stop live" : "Start live");
    showPlots();
    showPlayer();
    find("download").disabled = !take();
    say(statusText());
}

function showPlayer() {
    const ready = player.duration > 0 && !usesMicrophone();
    find("play").disabled = find("seek").disabled = !ready;
    find("play").setAttribute("aria-label", player.playing ? "Pause" : "Play");
    find("play").classList.toggle("playing", player.playing);
    find("seek").max = player.duration || 1;
    showPlace();
}

function showPlace() {
    const text = state.recording
        ? clock(state.recording.seconds)
        : `${clock(player.position)} / ${clock(player.duration)}`;
    find("seek").value = player.position;
    if (find("time").textContent !== text) {
        find("time").textContent = text;
        find("seek").setAttribute("aria-valuetext", text);
    }
    plots.move(player.position);
}

function tick() {
    showPlace();
    meter.show((state.live ?? state.recording)?.analyser ?? (player.playing ? player.analyser : null));
    if (state.recording?.seconds >= LONGEST_RECORDING) find("record").click();
    requestAnimationFrame(tick);
}

// ---- the rest

function download() {
    const made = take();
    if (!made) return;
    const stem = studio.recording.name.replace(/\.[^.]*$/, "");
    const file = wavFile(made.sound.getChannelData(0), made.sound.sampleRate);
    const name = titleOf(krelvcp.voices[state.voice]).replace(" ", "-");
    const link = element("a", { href: URL.createObjectURL(file), download: `${stem}-${name}.wav` });
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 60000);
}

function makeVoices() {
    const grid = find("voices").querySelector(".grid");
    for (const voice of krelvcp.voices) {
        const input = element("input", { type: "radio", name: "voice", value: voice.number });
        input.addEventListener("change", () => choose(voice.number));
        const key = element("kbd", { textContent: VOICE_KEYS[voice.number].toUpperCase() });
        const label = element("label", { className: "voice" }, input, element("span", {}, titleOf(voice)), key);
        key.ariaHidden = "true";
        grid.append(label);
    }
}

function listenToDrops() {
    const over = (on) => document.body.classList.toggle("over", on);
    document.addEventListener("dragover", (event) => {
        event.preventDefault();
        over(true);
    });
    document.addEventListener("dragleave", (event) => event.relatedTarget === null && over(false));
    document.addEventListener("drop", (event) => {
        event.preventDefault();
        over(false);
        openFile(event.dataTransfer.files[0]);
    });
}

function listen() {
    const click = (id, action) => find(id).addEventListener("click", action);
    click("open", () => find("file").click());
    click(
        "example",
        guarded(() => open(EXAMPLE, bytesOf(embedded("example-sound")).buffer)),
    );
    click("record", guarded(toggleRecording));
    click("live", guarded(toggleLive));
    click("play", togglePlay);
    click("download", download);
    find("file").addEventListener("change", (event) => {
        openFile(event.target.files[0]);
        event.target.value = "";
    });
    find("seek").addEventListener("input", (event) => player.seek(event.target.valueAsNumber));
    for (const button of document.querySelectorAll(".sides button")) {
        button.addEventListener("click", () => hear(button.dataset.side));
    }
    listenToDrops();
    listenToKeys(() => find("shortcuts").checked, {
        " ": togglePlay,
        b: () => hear(state.side === "before" ? "after" : "before"),
        d: download,
        voice: choose,
    });
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", showPlots);
    new ResizeObserver(showPlots).observe(find("plots"));
}

async function unpacked(base64) {
    const stream = new Blob([bytesOf(base64)]).stream().pipeThrough(new DecompressionStream("gzip"));
    return new Response(stream).arrayBuffer();
}

function listenToStudio() {
    studio.addEventListener("take", ({ detail }) => {
        if (detail.voice === state.voice) exchangeSound();
        show();
    });
    studio.addEventListener("progress", showVoice);
    studio.addEventListener("original", show);
    studio.addEventListener("error", ({ detail }) => complain(new Error(detail.text)));
}

async function main() {
    if (!isSupported() || !globalThis.DecompressionStream) throw noSimd();
    const module = await unpacked(embedded("module"));
    krelvcp = await loadKrelvcp(module);
    studio = new Studio(module);
    makeVoices();
    listenToStudio();
    listen();
    choose(state.voice);
    for (const id of ["open", "example", "record", "live"]) find(id).disabled = false;
    tick();
}

main().catch(complain);
