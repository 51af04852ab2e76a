// SPDX-License-Identifier: Apache-2.0
// What a caller writes compiles, and what the types do not allow does not.
import { loadKrelvcp, type Voice } from "../src/krelvcp.js";

export async function change(context: AudioContext, source: AudioNode): Promise<readonly Voice[]> {
    const krelvcp = await loadKrelvcp(new URL("krelvcp.wasm", document.baseURI));
    const node = await krelvcp.createNode(context, { voice: 3, bypass: false });
    node.addEventListener("voiceheard", () => console.log(node.heard, node.latency));
    node.voice = 5;
    source.connect(node).connect(context.destination);
    // @ts-expect-error: only the engine knows
    node.heard = 5;
    const engine = await krelvcp.createEngine(context.sampleRate, 2);
    engine.process(krelvcp.render(new Float32Array(128), 48000, 16));
    engine.bypass = true;
    // @ts-expect-error: voices are numbers
    engine.prepare("girl");
    return krelvcp.voices;
}
