# SPDX-License-Identifier: Apache-2.0
"""Synthesises the carrier of the spectral vocoder: a sung vowel whose cycles sit where the vocoder's windows want them.

The vocoder takes nothing but the phases of N samples (N = 1024 or 2048) from sample 480 on, under a Hann window. What makes
its voice a robot instead of a hiss is that these phases belong to one short event near the middle of the window: then every
hop repeats a compact pulse with the voice's spectrum. Hence:

* the period is 512 samples and a cycle starts at 480 + 512 m, so that one starts in the middle of either window;
* the cycle in the middle of the longer window is the loudest. With neighbours at equal strength the bins half-way between
  two harmonics would cancel and their phases would be rounding noise;
* a cycle is a vowel: harmonics with the phases of glottal pulse and formants. The upper ones come later and later, which
  spreads the pulse over a few milliseconds and keeps the vocoder's output, which wraps at full scale, off its peaks;
* the strongest of it falls on the start of the cycle.

One angle added to all harmonics sets how far peaks and troughs differ, the level of the rest of the sound sets the RMS.
"""

import cmath
import math

LENGTH = 32768
FIRST, LAST = 3, 32293  # silent outside
PEAK, TROUGH, RMS = 0.5285, -0.4430, 0.1747

RATE_HZ = 48000.0  # nominal: the same samples serve every rate
PERIOD = 512
WINDOWS_START = 480
LONG_WINDOW = 2048
HARMONICS = 255
GLOTTAL_HZ = 300.0  # 12 dB per octave above, down to the breath
BREATH = 0.006
FORMANTS_HZ = (  # centre, width, gain at the centre; 1 far from it, so that no bin is left to rounding
    (530.0, 90.0, 8.0),
    (1840.0, 130.0, 8.0),
    (2480.0, 160.0, 8.0),
    (3500.0, 250.0, 6.0),
    (4500.0, 300.0, 5.0),
)
SPREAD_S, SPREAD_HZ = 0.006, 1500.0  # how much later the highest harmonics come; half of it at the given frequency
ANGLE_RANGE = (math.radians(120.0), math.radians(140.0))  # the asymmetry rises through the wanted one


def harmonic(number):
    """Complex amplitude of one harmonic, before the common angle."""
    hz = number * RATE_HZ / PERIOD
    response = complex(1.0 / (1.0 + (hz / GLOTTAL_HZ) ** 2) + BREATH)
    for centre, width, gain in FORMANTS_HZ:
        detune = centre**2 - hz**2
        response *= complex(detune, gain * width * hz) / complex(detune, width * hz)
    # The delay SPREAD_S hz / (hz + SPREAD_HZ), less half of SPREAD_S, integrated over frequency.
    turns = SPREAD_S * (0.5 * hz - SPREAD_HZ * math.log1p(hz / SPREAD_HZ))
    return response * cmath.exp(-2j * math.pi * turns)


def analytic_cycle():
    """One period as complex samples: the real part of these times exp(i angle) is the cycle at that angle."""
    turns = [cmath.exp(2j * math.pi * n / PERIOD) for n in range(PERIOD)]
    amplitudes = [harmonic(h) for h in range(1, HARMONICS + 1)]
    return [sum(a * turns[h * n % PERIOD] for h, a in enumerate(amplitudes, 1)) for n in range(PERIOD)]


def swell(n):
    """Loudest in the middle of the longer window. No whole number of waves fits it: every bin gets its share."""
    return 0.7 + 0.3 * math.cos(2.0 * math.pi * (n - WINDOWS_START - LONG_WINDOW / 2) / (1.25 * LONG_WINDOW))


def envelope(n, sustain):
    """Linear attack, the swell in the windows, then a glide to `sustain`, linear release."""
    if n < FIRST or n > LAST:
        return 0.0
    windows_end = WINDOWS_START + LONG_WINDOW
    glide = min(max((n - windows_end) / 1024, 0.0), 1.0)
    level = swell(min(n, windows_end)) * (1.0 - glide) + sustain * glide
    return level * min((n - FIRST + 1) / 400, 1.0, (LAST + 1 - n) / 1500)


def sound(cycle, angle, sustain, length=LENGTH):
    turn = cmath.exp(1j * angle)
    period = [(x * turn).real for x in cycle]
    return [envelope(n, sustain) * period[(n - WINDOWS_START) % PERIOD] for n in range(length)]


def bisect(function, low, high):
    """Where function changes sign between low and high; it is negative at low."""
    assert function(low) < 0.0 < function(high)
    for _ in range(50):
        middle = 0.5 * (low + high)
        if function(middle) < 0.0:
            low = middle
        else:
            high = middle
    return low


def carrier():
    cycle = analytic_cycle()
    windows = WINDOWS_START + LONG_WINDOW  # holds the loudest cycle

    def asymmetry(angle):
        samples = sound(cycle, angle, 0.4, windows)
        return max(samples) / -min(samples) - PEAK / -TROUGH

    angle = bisect(asymmetry, *ANGLE_RANGE)
    scale = PEAK / max(sound(cycle, angle, 0.4, windows))

    def loudness(sustain):
        power = sum((scale * x) ** 2 for x in sound(cycle, angle, sustain)) / LENGTH
        return math.sqrt(power) - RMS

    sustain = bisect(loudness, 0.4, 0.99)
    return [scale * x for x in sound(cycle, angle, sustain)]
