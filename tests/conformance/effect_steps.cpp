// SPDX-License-Identifier: Apache-2.0
// The steps that use the effect library as the platform does.
#include <sstream>

#include "tests/conformance/session.h"

namespace krel_test {
namespace {

void create(Session& s, Words) {
    s.effect.emplace();
    auto* handle = s.effect->handle();
    s.things["effect"] = static_cast<void*>(handle);
    append(s.values, {1.0 * s.effect->result_of_creation(),
                      (*handle)->process_reverse != nullptr ? 1.0 : 0.0});
}

void library(Session& s, Words) {
    for (const std::string name : {AELI.name, AELI.implementor}) append(s.output, name);
    const bool ours = AELI.create_effect == EffectCreate && AELI.release_effect == EffectRelease &&
                      AELI.get_descriptor == EffectGetDescriptor;
    append(s.values, {1.0 * AELI.tag, 1.0 * AELI.version, ours ? 1.0 : 0.0});
}

void descriptor(Session& s, Words w) {
    effect_descriptor_t d = {};
    auto* handle = s.effect ? s.effect->handle() : nullptr;
    s.values.push_back(w[1] == "ours"       ? AELI.get_descriptor(&kUuid, &d)
                       : w[1] == "instance" ? (*handle)->get_descriptor(handle, &d)
                                            : EffectQueryEffect(s.word(w, 1), &d));
    append(s.output, std::span(reinterpret_cast<const uint8_t*>(&d), sizeof d));
}

void config(Session& s, Words w) {
    const Config in = {s.word(w, 2), s.word(w, 1), s.word(w, 4, AUDIO_CHANNEL_OUT_STEREO)};
    const Config out = {s.word(w, 7, in.format), s.word(w, 5, in.rate_hz), s.word(w, 6, in.mask),
                        s.word(w, 3)};
    s.packed = in.format == AUDIO_FORMAT_PCM_24_BIT_PACKED;
    append(s.values, s.effect->configure(in, out, s.word(w, 8, EFFECT_BUFFER_ACCESS_READ)));
}

/// on (code 3), off (4), preset N (5), cmd CODE SIZE DATA REPLYSIZE
void command(Session& s, Words w) {
    const uint32_t code = w[0] == "on"       ? 3
                          : w[0] == "off"    ? 4
                          : w[0] == "preset" ? 5
                                             : s.word(w, 1);
    const bool raw = w[0] == "cmd";
    std::vector<uint32_t> data;
    std::istringstream in(raw ? w[3] : w.size() > 1 ? "0,4,4,0," + w[1] : "null");
    for (std::string word; std::getline(in, word, ',') && word != "null";)
        data.push_back(to_word(s.number(word)));
    const size_t bytes = 4 * data.size();
    append(s.values, s.effect->command(code, raw ? s.word(w, 2) : static_cast<uint32_t>(bytes),
                                       data.data(), bytes, raw ? w[4] : "4"));
}

void process(Session& s, Words w) {
    auto* handle = s.effect->handle();
    int32_t result = 0;
    for_blocks(w[1], s.word(w, 2), [&](size_t at, size_t frames) {
        s.block_at = 2 * at;
        const auto buffer = [&](const std::string& name, size_t length) {
            return audio_buffer_t{length, {s.things.contains(name) ? s.address(name) : nullptr}};
        };
        audio_buffer_t in = buffer(w[3], frames);
        audio_buffer_t out = buffer(w[4], s.word(w, 5, to_word(frames)));
        result = (*handle)->process(handle, w[3] == "null" ? nullptr : &in,
                                    w[4] == "null" ? nullptr : &out);
    });
    s.block_at = 0;
    s.values.push_back(result);
}

}  // namespace

// clang-format off
const Table<Step> kEffectSteps = {
    {"effect", create}, {"release", [](Session& s, Words) { s.values.push_back(s.effect->release()); }},
    {"library", library}, {"descriptor", descriptor}, {"config", config}, {"process", process},
    {"on", command}, {"off", command}, {"preset", command}, {"cmd", command},
};
// clang-format on

}  // namespace krel_test
