// SPDX-License-Identifier: Apache-2.0
// Plays one sound at a time; another one takes over where the first one stands.

const FADE = 0.012; // seconds

export class Player {
    #context = null;
    #analyser = null;
    #sound = null; // AudioBuffer
    #voice = null; // {source, gain} that is heard
    #place = 0; // seconds, where it stood at #since
    #since = 0;
    #changed;

    constructor(changed) {
        this.#changed = changed;
    }

    get playing() {
        return this.#voice !== null;
    }

    get duration() {
        return this.#sound?.duration ?? 0;
    }

    get position() {
        const since = this.playing ? this.#context.currentTime - this.#since : 0;
        return Math.min(this.duration, this.#place + Math.max(0, since));
    }

    get analyser() {
        return this.#analyser;
    }

    /** Browsers resample between a sound's rate and their own less well than between their own and the device's. */
    #open(rate) {
        if (this.#context?.sampleRate === rate) return;
        this.#context?.close();
        this.#context = new AudioContext({ sampleRate: rate });
        this.#analyser = new AnalyserNode(this.#context, { fftSize: 1024 });
        this.#analyser.connect(this.#context.destination);
    }

    #start() {
        const context = this.#context;
        const gain = new GainNode(context, { gain: 0 });
        const source = new AudioBufferSourceNode(context, { buffer: this.#sound });
        source.connect(gain).connect(this.#analyser);
        gain.gain.setValueAtTime(0, context.currentTime);
        gain.gain.linearRampToValueAtTime(1, context.currentTime + FADE);
        source.start(0, this.#place);
        this.#since = context.currentTime;
        this.#voice = { source, gain };
        source.onended = () => this.#voice?.source === source && this.#end();
    }

    #stop() {
        if (!this.playing) return;
        const { source, gain } = this.#voice;
        this.#place = this.position;
        this.#voice = null;
        gain.gain.setTargetAtTime(0, this.#context.currentTime, FADE / 4);
        source.stop(this.#context.currentTime + 2 * FADE);
    }

    #end() {
        this.#voice = null;
        this.#place = 0;
        this.#changed();
    }

    play() {
        if (this.playing || !this.#sound) return;
        this.#open(this.#sound.sampleRate);
        this.#context.resume();
        if (this.#place >= this.duration) this.#place = 0;
        this.#start();
        this.#changed();
    }

    pause() {
        this.#stop();
        this.#changed();
    }

    seek(seconds) {
        const { playing } = this;
        this.#stop();
        this.#place = Math.max(0, Math.min(seconds, this.duration));
        if (playing) this.#start();
        this.#changed();
    }

    /** Exchanges the sound; the place is kept, playing or not. */
    exchange(sound) {
        if (sound === this.#sound) return;
        const { playing } = this;
        this.#stop();
        this.#sound = sound;
        this.#place = Math.min(this.#place, this.duration);
        if (playing && sound) this.#start();
        this.#changed();
    }

    /** Silent, at the start, without a sound. */
    reset() {
        this.#stop();
        this.#sound = null;
        this.#place = 0;
        this.#changed();
    }
}
