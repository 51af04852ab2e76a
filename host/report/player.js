// SPDX-License-Identifier: Apache-2.0
// One player for all sounds. Data: {program, recordings: [{name, rate, axis, topHz, takes: [take]}]}; the first take of a
// recording is the original.
const { program, recordings } = JSON.parse(document.getElementById("data").textContent);
const reducedMotion = matchMedia("(prefers-reduced-motion: reduce)");

const END = 0.02; // seconds before the end that count as the end
const MOST_ATTENUATION = 18; // dB, when voices are made equally loud
const DIGIT_PAUSE = 700; // ms within which a second digit belongs to the first

/** One recording: its cards and sounds. */
function makeBoard(recording, index) {
    const board = element("div", undefined, "board");
    const range = pitchRange(recording.takes);
    const players = recording.takes.map((take, i) => {
        const card = makeCard(take, recording, range);
        const audio = card.querySelector("audio");
        audio.addEventListener("play", show);
        audio.addEventListener("pause", show);
        audio.addEventListener("ended", ended);
        audio.addEventListener("timeupdate", showPlace);
        card.querySelector(".play").addEventListener("click", () => (i === state.take ? toggle() : (choose(i), play())));
        makeSeekable(card.querySelector(".plots"), i);
        board.append(card);
        return { take, card, audio };
    });
    board.hidden = index !== 0;
    find("boards").append(board);
    return { recording, board, players };
}

function makeSeekable(plots, take) {
    const seek = (event) => {
        const box = plots.getBoundingClientRect();
        choose(take);
        moveTo(((event.clientX - box.left) / box.width) * board().recording.axis);
        play();
    };
    plots.addEventListener("click", seek);
    plots.addEventListener("pointermove", (event) => event.pointerType === "mouse" && event.buttons === 1 && seek(event));
}

// Playing: one sound at a time, all at one place in the recording.

const state = { board: 0, take: 0, voice: 1, sameLoudness: false, repeat: false };
const boards = [];
const board = () => boards[state.board];
const current = () => board().players[state.take];
const lastPlace = (player) => Math.max(0, player.take.seconds - END);

/** A sound that is stopped before it has begun, or cannot be played, is no error. */
function start(audio) {
    audio.play().catch(show);
}

function play() {
    const { audio } = current();
    if (audio.currentTime >= lastPlace(current())) audio.currentTime = 0;
    start(audio);
}

function toggle() {
    const { audio } = current();
    if (audio.paused) play();
    else audio.pause();
}

function moveTo(seconds) {
    current().audio.currentTime = Math.min(Math.max(seconds, 0), lastPlace(current()));
    showPlace();
}

function ended() {
    if (state.repeat) play();
    else show();
}

/** Another take of this recording, where the one before it stands. */
function choose(index) {
    if (index === state.take || !board().players[index]) return;
    const before = current().audio;
    const playing = !before.paused;
    const place = before.currentTime;
    before.pause();
    state.take = index;
    if (index !== 0) state.voice = index;
    const { audio, card } = current();
    audio.volume = volume();
    audio.currentTime = Math.min(place, lastPlace(current()));
    if (playing) start(audio);
    card.scrollIntoView({ block: "nearest", behavior: reducedMotion.matches ? "instant" : "smooth" });
    show();
}

function chooseBoard(index) {
    current().audio.pause();
    state.board = index;
    state.take = Math.min(state.take, board().players.length - 1);
    boards.forEach((b, i) => (b.board.hidden = i !== index));
    current().audio.volume = volume();
    showRecording();
    show();
}

function step(by) {
    const count = board().players.length;
    choose((state.take + by + count) % count);
}

function chooseNumber(number) {
    const index = board().players.findIndex(({ take }) => take.number === number);
    if (index >= 0) choose(index);
}

/** 1, or what brings the take down to the quietest one of its recording. */
function volume() {
    if (!state.sameLoudness) return 1;
    const levels = board().players.map(({ take }) => take.loudness ?? 0);
    const target = Math.max(Math.min(...levels), Math.max(...levels) - MOST_ATTENUATION);
    return Math.min(1, 10 ** ((target - (current().take.loudness ?? target)) / 20));
}

function flip(name) {
    state[name] = !state[name];
    current().audio.volume = volume();
    show();
}

// What is shown

function show() {
    const { take, audio } = current();
    const playing = !audio.paused && !audio.ended;
    board().players.forEach((player, i) => {
        const chosen = i === state.take;
        player.card.classList.toggle("current", chosen);
        player.card.classList.toggle("playing", chosen && playing);
        player.card.querySelector(".play").setAttribute("aria-label", `${chosen && playing ? "Pause" : "Play"} ${label(player.take)}`);
    });
    find("play").classList.toggle("playing", playing);
    find("play").setAttribute("aria-label", playing ? "Pause" : "Play");
    if (find("now").textContent !== label(take)) find("now").textContent = label(take);
    find("original").setAttribute("aria-pressed", state.take === 0);
    find("loudness").setAttribute("aria-pressed", state.sameLoudness);
    find("repeat").setAttribute("aria-pressed", state.repeat);
    showPlace();
    cancelAnimationFrame(frame);
    if (playing && !reducedMotion.matches) follow();
}

let frame = 0;

function follow() {
    showPlace();
    if (!current().audio.paused) frame = requestAnimationFrame(follow);
}

function showPlace() {
    const { axis, takes } = board().recording;
    const { currentTime } = current().audio;
    board().board.style.setProperty("--at", Math.min(1, currentTime / axis));
    find("position").max = takes[state.take].seconds;
    find("position").value = currentTime;
    find("position").setAttribute("aria-valuetext", `${currentTime.toFixed(1)} seconds`);
    find("clock").textContent = `${clock(currentTime)} / ${clock(takes[state.take].seconds)}`;
}

function showRecording() {
    const { name, rate, takes } = board().recording;
    const voices = takes.length - 1;
    find("title").textContent = name;
    document.title = `${name} – voices compared`;
    find("summary").textContent = `${takes[0].seconds.toFixed(1)} s at ${rate / 1000} kHz, the original and ${voices} ${voices === 1 ? "voice" : "voices"}, made by ${program}`;
    [...find("recordings").children].forEach((button, i) => button.setAttribute("aria-pressed", i === state.board));
}

// Keyboard

let digits = { text: "", time: -Infinity };

function pressDigit(digit, time) {
    const more = time - digits.time < DIGIT_PAUSE ? digits.text + digit : digit;
    const known = board().players.some(({ take }) => take.number === Number(more));
    digits = { text: known ? more : digit, time };
    chooseNumber(Number(digits.text));
}

const KEYS = {
    " ": toggle,
    ArrowLeft: () => step(-1),
    ArrowRight: () => step(1),
    ",": () => moveTo(current().audio.currentTime - 1),
    ".": () => moveTo(current().audio.currentTime + 1),
    Home: () => moveTo(0),
    o: () => choose(state.take === 0 ? state.voice : 0),
    l: () => flip("sameLoudness"),
    r: () => flip("repeat"),
};

document.addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    if (event.key === " " && event.target.closest("button")) return;
    if (event.key.startsWith("Arrow") && event.target.closest("input")) return;
    const key = event.key.length === 1 ? event.key.toLowerCase() : event.key;
    if (/^\d$/.test(key)) pressDigit(key, event.timeStamp);
    else if (KEYS[key]) KEYS[key]();
    else return;
    event.preventDefault();
});

// Start

recordings.forEach((recording, i) => {
    boards.push(makeBoard(recording, i));
    const button = element("button", recording.name, "switch");
    button.addEventListener("click", () => chooseBoard(i));
    find("recordings").append(button);
});
find("no-sound").hidden = document.createElement("audio").canPlayType("audio/ogg; codecs=opus") !== "";
find("recordings").hidden = recordings.length < 2;
find("play").addEventListener("click", toggle);
find("previous").addEventListener("click", () => step(-1));
find("next").addEventListener("click", () => step(1));
find("original").addEventListener("click", KEYS.o);
find("loudness").addEventListener("click", KEYS.l);
find("repeat").addEventListener("click", KEYS.r);
find("position").addEventListener("input", (event) => moveTo(event.target.valueAsNumber));
showRecording();
show();
