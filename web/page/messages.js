// SPDX-License-Identifier: Apache-2.0
// What went wrong, in words that help.

/** An error whose message is meant for people. */
export class Trouble extends Error {}

const MICROPHONE = {
    NotAllowedError: "The browser may not use the microphone. Allow it in the settings of this page, then try again.",
    NotFoundError: "No microphone was found. Connect one, then try again.",
    NotReadableError: "The microphone does not answer. Perhaps another program uses it.",
};

export const noSimd = () =>
    new Trouble(
        "This browser cannot run the voices: they need WebAssembly with SIMD. Chrome 105, Firefox 121, Safari 16.4 and later ones can.",
    );

export const notSecure = () =>
    new Trouble("Browsers give a microphone only to pages from https:, from this computer, or from a file.");

export const noMicrophone = ({ name, message }) =>
    new Trouble(MICROPHONE[name] ?? `The microphone cannot be used: ${message}`);

export const microphoneGone = () =>
    new Trouble("The microphone has gone: it was unplugged, or the browser took it back.");

export const unreadable = (name) =>
    new Trouble(`“${name}” is not a sound that this browser can read. WAV, FLAC, MP3, Ogg and M4A mostly are.`);

export const empty = (name) => new Trouble(`“${name}” holds no sound.`);

export const tooLong = (name, minutes) => new Trouble(`“${name}” is longer than ${minutes} minutes.`);

export const inWords = (error) => (error instanceof Trouble ? error.message : `Something went wrong: ${error.message}`);
