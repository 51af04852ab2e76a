// SPDX-License-Identifier: Apache-2.0
// The two pictures of a recording, before and after, on one time axis.

import { COLUMNS, ROWS } from "./picture.js";

const WAVE = 0.4; // of the height

function spectrum(levels, [red, green, blue]) {
    const canvas = new OffscreenCanvas(COLUMNS, ROWS);
    const context = canvas.getContext("2d");
    const image = context.createImageData(COLUMNS, ROWS);
    levels.forEach((level, i) => image.data.set([red, green, blue, level], 4 * i));
    context.putImageData(image, 0, 0);
    return canvas;
}

function drawWave(context, extremes, width, height) {
    const most = extremes.reduce((a, x) => Math.max(a, Math.abs(x)), 0.05);
    const y = (x) => (height / 2) * (1 - x / most);
    const x = (column) => ((column + 0.5) * width) / COLUMNS;
    context.beginPath();
    context.moveTo(0, y(0));
    for (let i = 0; i < COLUMNS; ++i) context.lineTo(x(i), y(extremes[2 * i + 1]) - 0.5);
    for (let i = COLUMNS - 1; i >= 0; --i) context.lineTo(x(i), y(extremes[2 * i]) + 0.5);
    context.fill();
}

/** A colour of the page's style as red, green and blue. */
function rgb(canvas, colour) {
    const context = new OffscreenCanvas(1, 1).getContext("2d");
    context.fillStyle = getComputedStyle(canvas).getPropertyValue(colour);
    context.fillRect(0, 0, 1, 1);
    return context.getImageData(0, 0, 1, 1).data;
}

class Plot {
    #figure;
    #canvas;
    #head;
    #picture = null;

    constructor(figure, seek) {
        this.#figure = figure;
        this.#canvas = figure.querySelector("canvas");
        this.#head = figure.querySelector(".head");
        this.#canvas.addEventListener("click", (event) => {
            const box = this.#canvas.getBoundingClientRect();
            seek((event.clientX - box.left) / box.width);
        });
    }

    set current(on) {
        this.#figure.classList.toggle("current", on);
    }

    set waiting(on) {
        this.#figure.classList.toggle("waiting", on);
    }

    move(share) {
        this.#head.style.left = `${100 * share}%`;
    }

    draw(picture, axis) {
        this.#picture = picture ?? this.#picture;
        const canvas = this.#canvas;
        canvas.width = canvas.clientWidth * devicePixelRatio;
        canvas.height = canvas.clientHeight * devicePixelRatio;
        if (!this.#picture || canvas.width === 0) return;
        const context = canvas.getContext("2d");
        const width = (canvas.width * this.#picture.seconds) / axis;
        const middle = canvas.height * WAVE;
        const ink = rgb(canvas, "--wave");
        context.fillStyle = `rgb(${ink[0]} ${ink[1]} ${ink[2]})`;
        drawWave(context, this.#picture.extremes, width, middle - 4 * devicePixelRatio);
        context.drawImage(spectrum(this.#picture.levels, ink), 0, middle, width, canvas.height - middle);
    }
}

/** `seek(side, seconds)` is called for clicks. */
export class Plots {
    #plots = {};
    #axis = 1;

    constructor(root, seek) {
        for (const figure of root.querySelectorAll(".plot")) {
            const { side } = figure.dataset;
            this.#plots[side] = new Plot(figure, (share) => seek(side, share * this.#axis));
        }
    }

    get axis() {
        return this.#axis;
    }

    /** Pictures or null; what is null yet keeps the picture that was there. */
    show({ before, after, side, waiting }) {
        this.#axis = Math.max(before?.seconds ?? 0, after?.seconds ?? 0) || 1;
        this.#plots.before.draw(before, this.#axis);
        this.#plots.after.draw(after, this.#axis);
        this.#plots.after.waiting = waiting;
        for (const [name, plot] of Object.entries(this.#plots)) plot.current = name === side;
    }

    move(seconds) {
        for (const plot of Object.values(this.#plots)) plot.move(Math.min(1, seconds / this.#axis));
    }
}
