// SPDX-License-Identifier: Apache-2.0
import js from "@eslint/js";
import globals from "globals";

const worklet = { AudioWorkletProcessor: "readonly", registerProcessor: "readonly", sampleRate: "readonly" };

export default [
    js.configs.recommended,
    {
        languageOptions: { globals: { ...globals.browser, ...globals.worker } },
        rules: {
            curly: ["error", "multi-line"],
            eqeqeq: "error",
            "max-lines-per-function": ["error", 40],
            "no-shadow": "error",
            "no-var": "error",
            "prefer-const": "error",
        },
    },
    { files: ["src/worklet.js", "page/recorder.js"], languageOptions: { globals: worklet } },
    { files: ["build.mjs", "bench/**", "tests/**"], languageOptions: { globals: globals.node } },
];
