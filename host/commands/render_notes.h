// SPDX-License-Identifier: Apache-2.0
// What the help and the manual say about rendering; see help.h for the texts' form.
#ifndef KREL_HOST_COMMANDS_RENDER_NOTES_H
#define KREL_HOST_COMMANDS_RENDER_NOTES_H

namespace krel::host {

inline constexpr char kFilesText[] =
        "Audio files to read, then the one to write, whose ending names its type: .wav .flac .ogg "
        ".opus .mp3 .aiff .caf "
        ".au .w64 .raw. For several results OUT is a folder ('out/') or a pattern with {in}, "
        "{number} and {name}. - is "
        "standard input or output";
inline constexpr char kRawText[] =
        "The inputs are samples without a header: s8, u8, s16le, s16be, s24le, s24be, s32le, "
        "s32be, f32le, f32be, f64le, "
        "ulaw or alaw; for instance s16le:8000:1";
inline constexpr char kChannelText[] =
        "What the voice is made from: all channels mixed (default), or one. A device takes the "
        "left one";
inline constexpr char kGainText[] =
        "Amplify the input before the voice. auto lowers it as far as the voice needs to stay free "
        "of flat tops. Default: "
        "0, as on a device";
inline constexpr char kLoudnessText[] =
        "Bring the result to this loudness, for instance -16; less where its true peak would "
        "exceed -1 dBTP";
inline constexpr char kTailText[] =
        "Make the result exactly this much longer than the input; 0 cuts echoes and rooms off";
inline constexpr char kRateText[] =
        "Sample rate to work at and to write, where it is not to be the input's";
inline constexpr char kSwitchText[] =
        "Change the voice at the first block from that time of the input on; may be repeated";
inline constexpr char kAccumulateText[] =
        "Let the effect add its voice to the original, delayed to match, instead of replacing it";
inline constexpr char kRawTimingText[] =
        "Keep what the effect emits from its first block on: the fade-in, the delay, and the "
        "flushed end after it";
inline constexpr char kLibraryText[] =
        "Effect library to load (default: the one beside this program, or installed with it)";

inline constexpr char kRenderNotes[] =
        "Files:\n"
        "Reads what libsndfile reads, from files and pipes, and through ffmpeg, where it is "
        "installed, also .m4a .aac .mp4 "
        ".webm .amr .3gp and the like. The result has the rate of the input, its sample format "
        "where the file type has "
        "it (16 bits for compressed and 8-bit input), and its tags; .opus and .mp3 are resampled "
        "to a rate that they take. "
        "Mono stays mono; all else becomes stereo with the voice on both sides. A pipe gets the "
        "result when it is complete; "
        "until then it is kept in $TMPDIR.\n"
        "\n"
        "Time:\n"
        "The effect settles on silence before the audio begins, and its delay is cut off at the "
        "start: voice and original "
        "line up. They do so exactly but for deep, girl, bright, woman and child, whose delay "
        "moves with the voice, by up "
        "to some 0.1 s. The result is as long as the input. Those five go on until the last of the "
        "input is out; echo, hall "
        "and cave until they are 60 dB below their peak, for at most 10 s. With --switch the delay "
        "that is cut off at the "
        "start stays that of the first voice.\n"
        "\n"
        "Level:\n"
        "Loud speech saturates inside lower, low, high and higher, sometimes inside robot and "
        "buzz; what the compressor makes of it "
        "has flat tops without "
        "being clipped. A warning counts them and names the gain that avoids them. A sample is "
        "rounded (to nearest, ties to "
        "even, clamped) only where it goes into a narrower format: 16-bit audio reaches and leaves "
        "every buffer format "
        "exactly.";

}  // namespace krel::host

#endif
