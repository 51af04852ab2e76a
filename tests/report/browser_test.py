#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Opens pages of `krelvcp compare` in a browser: everything loads, sounds as long as it should, and obeys the keyboard.

SCREENSHOTS=FOLDER keeps pictures of the page, to look at.
"""

import os
import tempfile
import unittest
from pathlib import Path

from browser import Browser
from pages import compare, write_tone

VOICE = Path(__file__).parents[2] / "assets" / "voice.flac"
SPACE, LEFT, RIGHT, HOME = " ", "\ue012", "\ue014", "\ue011"
PLAYING = "return [...document.querySelectorAll('audio')].filter((audio) => !audio.paused).length"

# Of every sound: its length as its player says it, that of what comes out of the decoder, and when that becomes loud.
SOUNDS = """
const rate = 48000;
const decoder = new OfflineAudioContext(1, 1, rate);
return Promise.all([...document.querySelectorAll('audio')].map(async (audio) => {
    while (audio.readyState === 0 && !audio.error) await new Promise((resolve) => setTimeout(resolve, 10));
    const bytes = Uint8Array.from(atob(audio.src.split(',')[1]), (c) => c.charCodeAt(0));
    const decoded = await decoder.decodeAudioData(bytes.buffer);
    const onset = decoded.getChannelData(0).findIndex((sample) => Math.abs(sample) > 0.25);
    return [audio.duration, decoded.length / rate, onset / rate];
}))"""

# The picture's strongest row, as a frequency: rows are spaced evenly on the mel scale up to the axis' end.
STRONGEST_HZ = """
const picture = document.querySelectorAll('.board:not([hidden]) .spectrum img')[arguments[0]];
return picture.decode().then(() => {
    const canvas = document.createElement('canvas');
    [canvas.width, canvas.height] = [picture.naturalWidth, picture.naturalHeight];
    const context = canvas.getContext('2d');
    context.drawImage(picture, 0, 0);
    const column = context.getImageData(canvas.width / 2, 0, 1, canvas.height).data;
    const ink = (y) => column[4 * y + 3] * (256 - column[4 * y + 1]);
    const rows = [...Array(canvas.height).keys()];
    const most = Math.max(...rows.map(ink));
    const strongest = rows.filter((y) => ink(y) === most);
    const middle = 1 - (strongest[0] + strongest.at(-1) + 1) / 2 / canvas.height;
    return 700 * Math.expm1(middle * Math.log1p(boards[state.board].recording.topHz / 700));
})"""


class Report(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)

    def tearDown(self):
        self.assertEqual(self.browser.complaints(), [])

    def open(self, *arguments):
        page = self.folder / "report.html"
        compare(*arguments, "-o", page).check_returncode()
        self.browser.open(page)

    def place(self):
        return self.browser.run("return current().audio.currentTime")

    def until(self, condition):
        """Waits for a condition on the page."""
        found = self.browser.run(f"""
            const end = performance.now() + 10000;
            return new Promise((resolve) => {{
                const look = () => ({condition}) || performance.now() > end ? resolve({condition}) : setTimeout(look, 5);
                look();
            }})""")
        self.assertTrue(found, condition)

    def test_everything_is_on_the_page_and_in_its_place(self):
        onset = 0.4
        tones = (("<b>&\"'é.wav", 44100, 2.5, 440), ("low.wav", 8000, 1.7, 150), ("96k.wav", 96000, 1.2, 300))
        for name, *tone in tones:
            write_tone(self.folder / name, *tone, onset)
        self.open(*(self.folder / name for name, *_ in tones), "--preset", "3,7")
        sounds = iter(self.browser.run(SOUNDS))
        for i, (name, _, seconds, hz) in enumerate(tones):
            self.browser.run("document.querySelectorAll('.recordings button')[arguments[0]].click()", i)
            self.assertEqual(self.browser.run("return document.querySelector('h1').textContent"), name)
            for take, ratio, blur in ((0, 1, 0.001), (1, 0.78, 0.05), (2, 1, 0.005)):
                with self.subTest(name=name, take=take):
                    shown, decoded, loud = next(sounds)
                    self.assertAlmostEqual(shown, seconds, delta=0.01)  # the player counts the decoder's run-in
                    self.assertAlmostEqual(decoded, seconds, delta=0.001)
                    self.assertAlmostEqual(loud, onset, delta=blur)
                    self.assertAlmostEqual(self.browser.run(STRONGEST_HZ, take), hz * ratio, delta=20)
        outside = "return [...document.querySelectorAll('[src], [href]')].filter((e) => !/^data:/.test(e.src ?? e.href))"
        self.assertEqual(self.browser.run(outside), [])

    def test_switching_keeps_the_place_and_the_keyboard_works(self):
        self.open(VOICE, "--preset", "1,2,11,16")
        self.browser.run(SOUNDS)
        cases = (
            # keys, voice then chosen, place then
            (RIGHT, "1 buzz", 0), (".", "1 buzz", 1), (".", "1 buzz", 2), ("11", "11 girl", 2), ("o", "Original", 2),
            ("o", "11 girl", 2), (LEFT, "2 echo", 2), (",", "2 echo", 1), ("16", "16 cave", 1), (RIGHT, "Original", 1),
            (LEFT, "16 cave", 1), ("5", "16 cave", 1), (HOME, "16 cave", 0), ("2", "2 echo", 0))
        for keys, voice, place in cases:
            with self.subTest(keys=keys):
                self.browser.press(*keys)
                self.assertEqual(self.browser.run("return document.getElementById('now').textContent"), voice)
                self.assertAlmostEqual(self.place(), place, delta=1e-3)
                self.browser.run("digits.time = -Infinity")

        self.browser.press(SPACE)
        self.until("current().audio.currentTime > 0.3")
        before, after = self.browser.run("""
            const before = current().audio.currentTime;
            step(1);
            return [before, current().audio.currentTime]""")
        self.assertAlmostEqual(after, before, delta=0.01)
        self.until(f"current().audio.currentTime > {after + 0.3}")
        self.assertEqual(self.browser.run(PLAYING), 1)
        self.browser.press(SPACE)
        self.assertEqual(self.browser.run(PLAYING), 0)

        self.browser.press("l")
        heard = self.browser.run("""
            return board().players.map(({ take }, i) => {
                choose(i);
                return 10 ** (take.loudness / 20) * current().audio.volume;
            })""")
        self.assertLess(max(heard) / min(heard), 1.02)
        self.browser.press("r")
        self.browser.run("moveTo(1e9)")
        self.browser.run("current().audio.play()")
        self.until("!current().audio.paused && current().audio.currentTime > 0.1 && current().audio.currentTime < 2")
        self.browser.press(SPACE)

    def test_fits_every_screen(self):
        keep = os.environ.get("SCREENSHOTS")
        self.open(VOICE)
        self.browser.press("1", "1", ".", ".")
        grounds = set()
        for name, width, height, scheme in (("light", 1440, 1000, "light"), ("dark", 1440, 1000, "dark"),
                                            ("tablet", 820, 1100, "light"), ("phone", 360, 780, "light"),
                                            ("phone-dark", 360, 780, "dark")):
            self.browser.show_as(width, height, scheme)
            self.assertLessEqual(self.browser.run("return document.scrollingElement.scrollWidth"), width)
            grounds.add(self.browser.run("return getComputedStyle(document.body).backgroundColor"))
            for part in ("head", "card") if keep else ():
                self.browser.run("current().card.scrollIntoView({block: 'center', behavior: 'instant'})" if part == "card"
                                 else "scrollTo({top: 0, behavior: 'instant'})")
                self.browser.screenshot(Path(keep) / f"{name}-{part}.png")
        self.assertEqual(len(grounds), 2)


if __name__ == "__main__":
    unittest.main()
