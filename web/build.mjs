#!/usr/bin/env node
// SPDX-License-Identifier: Apache-2.0
// Makes the page and the package from the build of preset wasm: web/build.mjs BUILD VERSION OUT
//
//   OUT/krelvcp.html    all of the page in one file, which asks for nothing else
//   OUT/krelvcp/        an npm package: JavaScript, types, audio worklet, module

import { createHash } from "node:crypto";
import { cpSync, mkdirSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { dirname, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";
import { gzipSync } from "node:zlib";

const [build, version, out] = process.argv.slice(2);
const module = join(build, "krelvcp.wasm");
const web = dirname(fileURLToPath(import.meta.url));
const read = (path) => readFileSync(join(web, path), "utf8");

const IMPORT = /^import [^;]*? from "(\.[^"]+)";\n/gm;

/** The file and all that it imports, those first, as one script: in one scope, so no name may stand in two files. */
function bundle(entry, { exported = false } = {}) {
    const scripts = new Map();
    const add = (path) => {
        if (scripts.has(path)) return;
        scripts.set(path, "");
        const text = read(path);
        for (const [, name] of text.matchAll(IMPORT)) add(join(dirname(path), name));
        scripts.delete(path);
        const plain = text.replace(IMPORT, "");
        scripts.set(path, exported && path === entry ? plain : plain.replace(/^export /gm, ""));
    };
    add(entry);
    return [...scripts.values()].join("\n");
}

/** What the page reads as text: nothing in it may end the element. */
function data(id, text) {
    if (text.includes("</script")) throw new Error(`${id} would end its element`);
    return `<script type="text/plain" id="${id}">${text}</script>`;
}

/** The licences of what the module contains, its own apart. */
function notices() {
    const parts = {
        Ne10: join(build, "_deps/ne10/LICENSE"),
        SpeexDSP: join(build, "_deps/speexdsp/speexdsp-1.2.1/COPYING"),
        SIMDe: "/usr/share/doc/libsimde-dev/copyright",
        "wasi-libc": "/usr/share/doc/wasi-libc/copyright",
    };
    const texts = Object.entries(parts).map(([name, path]) => `${name}\n\n${readFileSync(path, "utf8").trim()}\n`);
    return texts.join(`\n${"-".repeat(80)}\n\n`);
}

const escaped = (text) => text.replaceAll("&", "&amp;").replaceAll("<", "&lt;");

const hash = (text) => `'sha256-${createHash("sha256").update(text).digest("base64")}'`;

/** The text with each of the pieces in its place. */
function replaced(text, pieces) {
    for (const [piece, value] of Object.entries(pieces)) {
        if (text.split(piece).length !== 2) throw new Error(`the page should have "${piece}" once`);
        text = text.replace(piece, () => value);
    }
    return text;
}

function page() {
    const script = `\n${bundle("page/app.js")}`;
    const style = `\n${read("page/page.css")}`;
    const embedded = [
        data("module", gzipSync(readFileSync(module), { level: 9 }).toString("base64")),
        data("example-sound", readFileSync(join(web, "../assets/voice.flac")).toString("base64")),
        data("worker", bundle("page/worker.js")),
        data("worklet", bundle("src/worklet.js")),
        data("recorder", bundle("page/recorder.js")),
    ];
    const policy = [
        "default-src 'none'",
        `script-src ${hash(script)} data: 'wasm-unsafe-eval'`,
        `style-src ${hash(style)}`,
        "worker-src data:",
        "img-src data:",
        "base-uri 'none'",
        "form-action 'none'",
    ].join("; ");
    return replaced(read("page/index.html"), {
        "<!-- policy -->": `<meta http-equiv="Content-Security-Policy" content="${policy}" />`,
        '<link rel="stylesheet" href="page.css" />': `<style>${style}</style>`,
        "<!-- licences -->": escaped(notices()),
        "<!-- data -->": embedded.join("\n"),
        '<script type="module" src="app.js"></script>': `<script type="module">${script}</script>`,
    });
}

function writePackage(folder) {
    mkdirSync(folder, { recursive: true });
    const { name, description, license, type, exports, types, files } = JSON.parse(read("package.json"));
    const facts = { name, version, description, license, type, exports, types, files };
    writeFileSync(join(folder, "package.json"), `${JSON.stringify(facts, null, 4)}\n`);
    writeFileSync(join(folder, "krelvcp.js"), bundle("src/krelvcp.js", { exported: true }));
    writeFileSync(join(folder, "krelvcp-worklet.js"), bundle("src/worklet.js"));
    writeFileSync(join(folder, "krelvcp.wasm"), readFileSync(module)); // which the linker made executable
    cpSync(join(web, "src/krelvcp.d.ts"), join(folder, "krelvcp.d.ts"));
    cpSync(join(web, "../docs/WEB.md"), join(folder, "README.md"));
    cpSync(join(web, "../LICENSE"), join(folder, "LICENSE"));
    writeFileSync(join(folder, "LICENSE.parts"), notices());
}

rmSync(out, { recursive: true, force: true });
writePackage(join(resolve(out), "krelvcp"));
writeFileSync(join(out, "krelvcp.html"), page());
