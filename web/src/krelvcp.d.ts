/* SPDX-License-Identifier: Apache-2.0 */
/** Seventeen changed voices for mono audio, as WebAssembly. Samples are full scale at +-1. */

/** Whether this browser or Node.js can run the voices: it needs WebAssembly with SIMD. */
export function isSupported(): boolean;

/** Where krelvcp.wasm comes from: its address, what fetch() gave, its bytes, or the compiled module. */
export type ModuleSource = string | URL | Response | BufferSource | WebAssembly.Module;

/**
 * Loads the voices; without `source` from krelvcp.wasm beside this file. Rejects where they cannot run, or when the module
 * cannot be fetched. In Node.js give the bytes: `await loadKrelvcp(await readFile(path))`.
 */
export function loadKrelvcp(source?: ModuleSource): Promise<Krelvcp>;

export interface Voice {
    /** 0 to 16: what all calls know the voice by. */
    readonly number: number;
    /** One English word; 7, 8 and 9 share theirs. */
    readonly name: string;
    /** One English line. */
    readonly description: string;
}

/** The voices, loaded. Made by loadKrelvcp(). */
export class Krelvcp {
    private constructor();
    readonly module: WebAssembly.Module;
    /** In the order of their numbers. */
    readonly voices: readonly Voice[];

    /**
     * Samples by which a voice lags its input at a rate in Hz; -1 for what is no voice or a rate outside 8000 to 192000.
     * Exact, but for voices 10 to 14, whose delay moves with the voice.
     */
    latency(voice: number, rate: number): number;

    /** A whole recording at once, lined up with the input: what `krelvcp render` writes. Work for a worker. */
    render(samples: Float32Array, rate: number, voice: number): Float32Array;

    /** An engine in a memory of its own, for streams outside the Web Audio API. Rejects with a RangeError. */
    createEngine(rate: number, voice: number): Promise<VoiceEngine>;

    /** An audio node; the first one of a context also loads its audio worklet. Rejects where that, or the voice, is not there. */
    createNode(context: BaseAudioContext, options?: NodeOptions): Promise<VoiceNode>;
}

export interface NodeOptions {
    /** The voice to begin with; 11, the girl's, without. */
    voice?: number;
    bypass?: boolean;
    /** The address of krelvcp-worklet.js; without, beside this file. */
    worklet?: string | URL;
}

/**
 * One input, mixed to mono, and one mono output, `latency` later. A fault of the audio thread is the event
 * "processorerror", as with every AudioWorkletNode.
 */
export class VoiceNode extends AudioWorkletNode {
    private constructor();
    /**
     * The voice that was chosen last. Setting it changes the voice while sound flows, without a click: it is built during
     * 64 blocks of 128 samples, listens for as long as it is late and a little longer, and is faded in within 30 ms. What
     * is no voice throws a RangeError.
     */
    voice: number;
    /** The voice that is heard; the event "voiceheard" says when it changes. */
    readonly heard: number;
    /** Lets the input through, as late as the voice would be. */
    bypass: boolean;
    /** Seconds by which the voice that is heard lags the input. */
    readonly latency: number;
    /** Disconnects the node and frees its memory. It is not used again. */
    release(): void;
}

/** One stream of mono samples. Calls of any length give the same output, bit for bit. */
export class VoiceEngine {
    private constructor();
    /** Changes the samples in place. */
    process(samples: Float32Array): void;
    /** Chooses another voice: up to some tens of milliseconds of work. Throws a RangeError for what is no voice. */
    prepare(voice: number): void;
    /** The same in parts, for threads that must not stop: begin, then parts until one returns 0. */
    beginPrepare(voice: number): void;
    /** Works as much as `blocks` blocks of 128 samples take; returns how many are left. */
    preparePart(blocks: number): number;
    set bypass(on: boolean);
    readonly heard: number;
    /** Frees its memory. It is not used again. */
    release(): void;
}
