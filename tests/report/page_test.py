# SPDX-License-Identifier: Apache-2.0
"""Runs `krelvcp compare` and looks into the page: the figures are the recording's, and a failure leaves no page."""

import base64
import tempfile
import unittest
import wave
from pathlib import Path

from pages import compare, data, write_tone

SILENT = dict.fromkeys(("peak", "rms", "loudness"))


class Page(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.page = self.folder / "page.html"

    def takes(self, *arguments):
        done = compare(*arguments, "-o", self.page)
        self.assertEqual(done.returncode, 0, done.stderr)
        return [recording["takes"] for recording in data(self.page)["recordings"]]

    def test_figures_are_those_of_the_sounds(self):
        # A tone's loudness is its RMS, less 0.69 dB, weighted: 0.7 dB up at 1 kHz.
        tones = ((48000, 1.0, 1000, None, -9.0), (44100, 1.5, 440, 440, None), (8000, 1.5, 97.3, 97.3, None),
                 (96000, 1.0, 300, 300, None))
        for i, (rate, seconds, hz, *_) in enumerate(tones):
            write_tone(self.folder / f"{i}.wav", rate, seconds, hz)
        pages = self.takes(*(self.folder / f"{i}.wav" for i in range(len(tones))), "--preset", "5,2")
        for (rate, seconds, _, pitch, loudness), (original, high, echo) in zip(tones, pages, strict=True):
            with self.subTest(rate=rate):
                self.assertEqual([take["number"] for take in (original, high, echo)], [None, 5, 2])
                self.assertEqual((original["seconds"], high["seconds"]), (seconds, seconds))
                self.assertGreater(echo["seconds"], seconds)
                self.assertEqual((original["peak"], original["rms"]), (-6.0, -9.0))
                self.assertAlmostEqual(echo["delay"], 607 / rate, delta=1e-4)
                self.assertGreater(high["cost"], 0)
                if loudness:
                    self.assertAlmostEqual(original["loudness"], loudness, delta=0.1)
                if pitch:
                    self.assertAlmostEqual(original["pitch"], pitch, delta=0.002 * pitch)
                    self.assertAlmostEqual(high["pitch"], 1.14 * pitch, delta=0.02 * pitch)

    def test_anything_that_can_be_rendered_makes_a_page(self):
        write_tone(self.folder / "silence.wav", 48000, 0.5, 0)
        write_tone(self.folder / "one.wav", 22050, 1 / 22050, 1)
        write_tone(self.folder / "<!--<script>é&.wav", 11025, 0.5, 200)
        (silent, plain), *rest = self.takes(*sorted(self.folder.glob("*.wav"), reverse=True), "--preset", "7")
        self.assertLessEqual(SILENT.items(), silent.items())
        self.assertEqual((silent["pitch"], plain["pitch"]), (0, 0))
        for take in (silent, plain, *(take for takes in rest for take in takes)):
            self.assertEqual(base64.b64decode(take["audio"].split(",")[1])[:4], b"OggS")
            self.assertEqual(base64.b64decode(take["spectrogram"].split(",")[1])[1:4], b"PNG")
        self.assertEqual(data(self.page)["recordings"][2]["name"], "<!--<script>é&.wav")

    def test_a_failure_is_one_line_and_leaves_no_page(self):
        tone = self.folder / "tone.wav"
        write_tone(tone, 8000, 0.2, 200)
        long = self.folder / "long.wav"
        with wave.open(str(long), "wb") as f:
            f.setparams((1, 1, 8000, 0, "NONE", ""))
            f.writeframes(bytes(8000 * 601))
        for code, reason, arguments in (
                (1, "missing.wav", (tone, self.folder / "missing.wav", "-o", self.page)),
                (1, "10 minutes", (long, "--preset", 7, "-o", self.page)),
                (1, "nowhere", (tone, "-o", self.folder / "nowhere" / "page.html")),
                (2, "99", (tone, "--preset", 99, "-o", self.page)),
                (2, "--output", (tone,))):
            with self.subTest(reason=reason):
                done = compare(*arguments)
                self.assertEqual(done.returncode, code)
                self.assertRegex(done.stderr, rf"\Akrelvcp: .*{reason}.*\n\Z")
                self.assertEqual({path.suffix for path in self.folder.iterdir()}, {".wav"})


if __name__ == "__main__":
    unittest.main()
