// SPDX-License-Identifier: Apache-2.0
// The level of what is heard, as a bar.

const FLOOR = -60; // dBFS
const FALL = 1.2; // dB a picture

export class Meter {
    #root;
    #fill;
    #level = FLOOR;
    #block = new Float32Array(1024);

    constructor(root) {
        this.#root = root;
        this.#fill = root.querySelector(".fill");
    }

    /** Shows what an analyser hears; null: nothing. */
    show(analyser) {
        let peak = 0;
        if (analyser) {
            analyser.getFloatTimeDomainData(this.#block);
            peak = this.#block.reduce((a, x) => Math.max(a, Math.abs(x)), 0);
        }
        const level = Math.max(FLOOR, 20 * Math.log10(peak + 1e-9));
        this.#level = Math.max(level, this.#level - FALL, FLOOR);
        this.#fill.style.transform = `scaleX(${1 - this.#level / FLOOR})`;
        this.#root.setAttribute("aria-valuenow", Math.round(this.#level));
        this.#root.classList.toggle("hot", this.#level > -1);
    }
}
