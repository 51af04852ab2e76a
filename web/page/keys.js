// SPDX-License-Identifier: Apache-2.0
// Keys that work on the whole page, unless somebody turns them off.

export const VOICE_KEYS = "0123456789qwertyu";

/** Whether the element takes this key for itself. */
function wants(element, key) {
    if (element.matches("input[type=range], input[type=text]")) return true;
    return key === " " && element.matches("button, summary, input[type=checkbox]");
}

/** `actions`: a function for every key; of the voices, `voice` with the number. */
export function listenToKeys(enabled, actions) {
    document.addEventListener("keydown", (event) => {
        if (event.ctrlKey || event.metaKey || event.altKey || event.repeat || !enabled()) return;
        const key = event.key.toLowerCase();
        if (wants(event.target, key)) return;
        const voice = VOICE_KEYS.indexOf(key);
        const action = actions[key] ?? (voice >= 0 && key.length === 1 ? () => actions.voice(voice) : null);
        if (!action) return;
        event.preventDefault();
        action();
    });
}
