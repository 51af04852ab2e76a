// SPDX-License-Identifier: Apache-2.0
// Short names for what the page does with its document.

export const find = (id) => document.getElementById(id);

export function element(name, properties = {}, ...children) {
    const made = Object.assign(document.createElement(name), properties);
    made.append(...children);
    return made;
}

/** What the build has put into the page under a name, as text. */
export const embedded = (id) => find(id).textContent.trim();

export const bytesOf = (base64) => Uint8Array.from(atob(base64), (c) => c.charCodeAt(0));

/** An address for a script of the page. A page from disk may load no other kind. */
export const scriptUrl = (id) => `data:text/javascript;charset=utf-8,${encodeURIComponent(embedded(id))}`;

export const clock = (seconds) => `${Math.floor(seconds / 60)}:${String(Math.floor(seconds % 60)).padStart(2, "0")}`;
