// SPDX-License-Identifier: Apache-2.0
// A card for each sound: its words, numbers and pictures.
//
// A take: {number, name, description, delay, cost, seconds, peak, rms, loudness, pitch, contour, outline, spectrogram,
// audio}; seconds and Hz, the contour in tenths of Hz, levels in dB with null for silence. The original has no number,
// name, description, delay and cost.

const find = (id) => document.getElementById(id);
const decimals = (value, digits) => value.toFixed(digits).replace("-", "−");
const level = (value) => (value === null ? "−∞" : decimals(value, 1));
const hertz = (value) => (value >= 1000 ? `${value / 1000}k` : `${value}`);
const clock = (seconds) => `${Math.floor(seconds / 60)}:${(seconds % 60).toFixed(1).padStart(4, "0")}`;
const isOriginal = (take) => take.number === null;
const label = (take) => (isOriginal(take) ? "Original" : `${take.number} ${take.name}`);

function cost(share) {
    const percent = share * 100;
    return decimals(percent, percent < 1 ? 2 : 1);
}

function figures(take) {
    const rows = [
        ["Loudness", level(take.loudness), "LUFS"],
        ["Peak", level(take.peak), "dBFS"],
        ["RMS", level(take.rms), "dBFS"],
        ["Pitch", take.pitch ? decimals(take.pitch, 0) : "–", take.pitch ? "Hz" : ""],
    ];
    if (isOriginal(take)) return rows;
    rows.push(["Delay", decimals(take.delay * 1000, 0), "ms"], ["Cost", cost(take.cost), "%"]);
    return rows;
}

function element(tag, text, className) {
    const made = document.createElement(tag);
    if (text !== undefined) made.textContent = text;
    if (className) made.className = className;
    return made;
}

// Pictures

function wavePath(outline) {
    const columns = outline.length / 2;
    let top = "";
    let bottom = "";
    for (let i = 0; i < columns; ++i) {
        top += `L${i} ${-outline[2 * i + 1] - 0.5}`;
        bottom = `L${i} ${-outline[2 * i] + 0.5}${bottom}`;
    }
    return columns ? `M0 0${top}L${columns - 1} 0${bottom}Z` : "";
}

/** What the pitch axis of a recording has to show: all but the strays of its takes, with room above and below. */
function pitchRange(takes) {
    const all = takes.flatMap(({ contour }) => contour.filter((tenths) => tenths > 0)).sort((a, b) => a - b);
    if (all.length === 0) return { low: 75, high: 300 };
    const at = (share) => all[Math.floor(share * (all.length - 1))] / 10;
    return { low: 0.9 * Math.min(at(0.01), 100), high: 1.15 * Math.max(at(0.99), 200) };
}

/** Where a frequency lies on the logarithmic axis, 0 to 1. */
const pitchPlace = (hz, { low, high }) => Math.log(hz / low) / Math.log(high / low);

function pitchPath(contour, range) {
    let path = "";
    let last = 0;
    contour.forEach((tenths, i) => {
        // A jump by more than a fifth is another sound, not a glide.
        const joined = last > 0 && Math.abs(Math.log2(tenths / last)) < 0.58;
        if (tenths > 0) path += `${joined ? "L" : "M"}${i + 0.5} ${(100 * (1 - pitchPlace(tenths / 10, range))).toFixed(1)}`;
        last = tenths;
    });
    return path;
}

function addTicks(plot, values, place, text) {
    for (const value of values) {
        const tick = element("span", text(value), "tick");
        tick.style.bottom = `${100 * place(value)}%`;
        plot.append(tick);
    }
}

function spectrumTicks(plot, topHz) {
    const mel = (hz) => Math.log1p(hz / 700);
    const shown = [200, 500, 1000, 2000, 4000].filter((hz) => hz < 0.8 * topHz);
    addTicks(plot, shown, (hz) => mel(hz) / mel(topHz), hertz);
}

function pitchTicks(plot, range) {
    const shown = [50, 100, 200, 400].filter((hz) => hz > range.low && hz < range.high);
    const place = (hz) => pitchPlace(hz, range);
    for (const hz of shown) {
        const rule = element("div", undefined, "rule");
        rule.style.bottom = `${100 * place(hz)}%`;
        plot.prepend(rule);
    }
    addTicks(plot, shown, place, hertz);
}

function timeTicks(row, axis) {
    const step = [0.1, 0.2, 0.5, 1, 2, 5, 10, 30, 60, 120, 300, 600, 1800].find((s) => axis / s <= 7) ?? 3600;
    for (let i = 0; i * step < axis * 0.96; ++i) {
        const seconds = i * step;
        const text = step >= 30 ? `${Math.floor(seconds / 60)}:${String(seconds % 60).padStart(2, "0")}` : `${+seconds.toFixed(1)}`;
        const tick = element("span", i === 0 && step < 30 ? "0 s" : text, "tick");
        tick.style.left = `${(100 * seconds) / axis}%`;
        row.append(tick);
    }
}

function drawPlots(card, take, recording, range) {
    const original = recording.takes[0];
    const wave = card.querySelector(".wave svg");
    wave.setAttribute("viewBox", "0 -128 399 256");
    wave.setAttribute("aria-label", `Waveform: peak ${level(take.peak)} dBFS`);
    wave.querySelector("path").setAttribute("d", wavePath(take.outline));

    const spectrum = card.querySelector(".spectrum");
    spectrum.querySelector("img").src = take.spectrogram;
    spectrum.querySelector("img").alt = `Spectrogram, 0 to ${hertz(recording.topHz)}Hz`;
    spectrumTicks(spectrum, recording.topHz);

    const pitch = card.querySelector(".pitch");
    const chart = pitch.querySelector("svg");
    chart.setAttribute("viewBox", `0 0 ${take.contour.length} 100`);
    chart.setAttribute("aria-label", pitchText(take, original));
    chart.querySelector(".before").setAttribute("d", pitchPath(original.contour, range));
    chart.querySelector(".after").setAttribute("d", isOriginal(take) ? "" : pitchPath(take.contour, range));
    pitchTicks(pitch, range);
    timeTicks(card.querySelector(".time"), recording.axis);
}

function descriptionText(take) {
    return isOriginal(take) ? "the recording as it was" : take.description.replace(/\bx (?=\d)/g, "× ");
}

function pitchText(take, original) {
    const text = (t) => (t.pitch ? `${decimals(t.pitch, 0)} Hz` : "none");
    return isOriginal(take) ? `Pitch: ${text(take)}` : `Pitch: before ${text(original)}, after ${text(take)}`;
}

// Cards

function makeCard(take, recording, range) {
    const card = find("card").content.firstElementChild.cloneNode(true);
    card.setAttribute("aria-label", label(take));
    card.querySelector(".number").textContent = isOriginal(take) ? "" : take.number;
    card.querySelector(".name").textContent = isOriginal(take) ? "Original" : take.name;
    card.querySelector(".description").textContent = descriptionText(take);
    card.querySelector("audio").src = take.audio;
    drawPlots(card, take, recording, range);
    for (const [name, value, unit] of figures(take)) {
        const item = element("div");
        const reading = element("dd", `${value} `);
        reading.append(element("span", unit, "unit"));
        item.append(element("dt", name), reading);
        card.querySelector(".figures").append(item);
    }
    return card;
}
