// SPDX-License-Identifier: Apache-2.0
#include "tests/conformance/session.h"

#include <sndfile.h>
#include <stdlib.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <sstream>
#include <utility>

namespace krel_test {
namespace {

constexpr size_t kRecordBytes = 65536;

template <typename... Parts>
std::string text(const Parts&... parts) {
    std::ostringstream out;
    out.precision(17);
    (out << ... << parts);
    return out.str();
}

/// Calls use(vector) when the thing is a buffer.
template <typename Use>
void with_numbers(Session::Thing& thing, Use use) {
    const auto visit = [&](auto& held) {
        if constexpr (requires { held.data()[0] + 1; }) use(held);
    };
    std::visit(visit, thing);
}

template <typename T>
T saturated(int64_t x) {
    if constexpr (std::is_floating_point_v<T>) return static_cast<T>(x) / T{0x1p23};
    using Limits = std::numeric_limits<int64_t>;
    const int64_t most = Limits::max() >> (64 - 8 * sizeof(T));
    return static_cast<T>(std::clamp(x, -most - 1, most));
}

std::span<const int16_t> sound(const std::filesystem::path& path) {
    static Table<std::vector<int16_t>> sounds;
    auto& samples = sounds[path];
    SF_INFO info = {};
    SNDFILE* file = samples.empty() ? sf_open(path.c_str(), SFM_READ, &info) : nullptr;
    if (file == nullptr) return samples;
    samples.resize(static_cast<size_t>(info.frames));
    samples.resize(static_cast<size_t>(sf_read_short(file, samples.data(), info.frames)));
    sf_close(file);
    return samples;
}

/// FILE OFFSET COUNT [MUL [SHIFT]], list X... or reverse OTHER.
template <typename T>
std::vector<T> samples(Session& s, Words w) {
    std::vector<T> out;
    if (w[0] == "list") {
        for (const auto& word : w.subspan(1)) out.push_back(static_cast<T>(s.number(word)));
        out.shrink_to_fit();
        return out;
    }
    if (w[0] == "reverse") {
        const auto& other = std::get<std::vector<T>>(s.things[w[1]]);
        return {other.rbegin(), other.rend()};
    }
    out.resize(s.word(w, 2));
    if (w[0] == "zeros") return out;
    const auto in = sound(s.folder / (w[0] + ".flac"));
    const size_t offset = s.word(w, 1);
    const int64_t mul = w.size() > 3 ? std::stoll(w[3]) : std::is_same_v<T, float> ? 256 : 1;
    if (offset + out.size() > in.size()) return s.fail("no sound of that length"), out;
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = saturated<T>(in[offset + i] * mul >> s.word(w, 4));
    return out;
}

template <typename T>
void buffer(Session& s, Words w) {
    auto left = samples<T>(s, w.subspan(2));
    if (w[0][0] != '2') return void(s.things[w[1]] = std::move(left));
    std::vector<T> both;
    // Cases with packed samples use blocks of 16-bit ones, the last of which ends short.
    both.reserve(2 * left.size() + (s.packed ? left.size() : 0));
    for (size_t i = 0; i < left.size(); ++i)
        both.insert(both.end(), {left[i], left[left.size() - 1 - i]});
    s.things[w[1]] = std::move(both);
}

void words(Session& s, Words w) {
    Session::Record record(kRecordBytes);
    for (size_t i = 2; i < w.size(); ++i)
        reinterpret_cast<uint32_t*>(record.data())[i - 2] = s.word(w, i);
    s.things[w[1]] = std::move(record);
}

void each(Session& s, Words w) {
    Result last;
    for_blocks(w[1], s.word(w, 2), [&](size_t at, size_t length) {
        s.block_at = at;
        s.block_length = length;
        last = s.call(w.subspan(3));
        if (w[0] == "map" && last.value) s.output.push_back(*last.value);
    });
    s.block_at = s.block_length = 0;
    if (w[0] == "each" && last.value) s.values.push_back(*last.value);
}

void put_out(Session& s, Words w) {
    auto& list = w[0] == "out" ? s.output : s.values;
    with_numbers(s.things[w[1]], [&](auto& all) { append(list, all); });
}

void pick(Session& s, Words w) {
    for (size_t i = 0; i < s.output.size(); i += s.word(w, 1)) s.values.push_back(s.output[i]);
    s.output.clear();
}

template <typename Use>
void for_fields(Session& s, Words w, Use use) {
    const auto fields = kTypes.find(w[2]);
    if (fields == kTypes.end()) return s.fail("no such type");
    for (const Field& field : fields->second)
        std::visit([&](auto numbers) { use(field, numbers); }, field.of(s.address(w[1])));
}

void state(Session& s, Words w) {
    for_fields(s, w, [&](auto&, auto numbers) { append(s.values, numbers); });
}

void array(Session& s, Words w) {
    for_fields(s, w, [&](auto&, auto numbers) {
        for (size_t i = 0; i < s.word(w, 3); i += s.word(w, 4, 1))
            s.values.push_back(static_cast<double>(numbers.data()[i]));
    });
}

void set(Session& s, Words w) {
    for_fields(s, w, [&]<typename T>(const Field& field, std::span<T> numbers) {
        if (w[3] == field.name) numbers[0] = static_cast<T>(s.number(w[4]));
    });
}

void pump(Session& s, Words w) {
    for_blocks(w[3], s.word(w, 4), [&](size_t at, size_t length) {
        const std::string n = std::to_string(length);
        const std::string most = w.size() > 5 ? w[5] : n;
        std::vector<int16_t> read(std::stoul(most));
        s.things["read"] = static_cast<void*>(read.data());
        const auto call = [&](std::vector<std::string> words) { return s.call(words).value; };
        s.block_at = at;
        call({"pitchWriteShortToStream", w[1], w[2], n});
        read.resize(size_t(*call({"pitchReadShortFromStream", w[1], "read", most})));
        append(s.output, read);
        s.block_at = 0;
    });
}

/// FNV-1a over little-endian doubles; -0 counts as 0.
uint64_t digest_of(std::span<const double> numbers) {
    uint64_t hash = 0xcbf29ce484222325;
    for (const double x : numbers) {
        const auto bits = std::bit_cast<uint64_t>(x == 0.0 ? 0.0 : x);
        for (int shift = 0; shift < 64; shift += 8)
            hash = (hash ^ (bits >> shift & 0xFF)) * 0x100000001b3;
    }
    return hash;
}

void digest(Session& s, Words w) {
    const auto output = std::exchange(s.output, {});
    if (output.size() != s.word(w, 2)) s.fail(text(output.size(), " numbers, not ", w[2]));
    size_t at = 0;
    while (at < output.size() && output[at] == 0.0) ++at;
    for (size_t i = 3; i < w.size() && at < output.size(); ++i, ++at) {
        if (output[at] != s.number(w[i])) s.fail(text("number ", at, " is ", output[at]));
    }
    const uint64_t is = digest_of(output);
    if (is != std::stoull(w[1], nullptr, 16))
        s.fail(text("the digest is ", std::hex, is, "; from number ", std::dec, at, " on"));
}

void near(Session& s, Words w) {
    const auto in = sound(s.folder / (w[1] + ".flac"));
    const size_t offset = s.word(w, 2);
    const size_t count = s.word(w, 3);
    const size_t stride = s.word(w, 4);
    const auto output = std::exchange(s.output, {});
    if (output.size() != count * stride || offset + count > in.size())
        return s.fail(text(output.size(), " numbers, not ", count * stride));
    const auto expected = [&](size_t i) { return in[offset + i / stride] * s.number(w[5]); };
    double signal = 0.0;
    double noise = 0.0;
    for (size_t i = 0; i < output.size(); ++i) signal += expected(i) * expected(i);
    const double allowed = signal * std::pow(10.0, -s.number(w[6]) / 10.0);
    const double peak = 5.0 * std::sqrt(allowed / static_cast<double>(output.size()));
    size_t first = output.size() - 1;  // number that is further off than the allowed noise's peaks
    for (size_t i = 0; i < output.size(); ++i) {
        const double off = std::fabs(output[i] - expected(i));
        noise += off * off;
        if (off > peak) first = std::min(first, i);
    }
    if (noise <= allowed) return;
    s.fail(text(10.0 * std::log10(signal / noise), " dB, not ", w[6], "; number ", first, " is ",
                output[first], ", not ", expected(first)));
}

void values(Session& s, Words w) {
    const auto is = std::exchange(s.values, {});
    double greatest = 0.0;
    for (const auto& word : w.subspan(2)) greatest = std::max(greatest, std::fabs(s.number(word)));
    for (size_t i = 0; i < is.size() && i + 2 < w.size(); ++i) {
        if (!(std::fabs(is[i] - s.number(w[i + 2])) <= s.number(w[1]) * greatest))
            s.fail(text("value ", i, " is ", is[i], ", not ", w[i + 2]));
    }
    if (is.size() != w.size() - 2) s.fail(text(is.size(), " values, not ", w.size() - 2));
}

// clang-format off
const Table<Step> kSteps = {
    {"i16", buffer<int16_t>}, {"i32", buffer<int32_t>}, {"f32", buffer<float>},
    {"2i16", buffer<int16_t>}, {"2i32", buffer<int32_t>}, {"2f32", buffer<float>},
    {"words", words}, {"each", each}, {"map", each}, {"out", put_out}, {"show", put_out}, {"pick", pick},
    {"quiet", [](Session& s, Words w) { s.call(w.subspan(1)); }},
    {"forget", [](Session& s, Words) { s.values.clear(); }},
    {"state", state}, {"array", array}, {"set", set}, {"pump", pump},
    {"rand", [](Session& s, Words w) { g_random = {s.word(w, 1)}; }},
    {"draws", [](Session& s, Words) { s.values.push_back(g_random.draws); }},
    {"digest", digest}, {"near", near}, {"values", values},
};
// clang-format on

}  // namespace

void for_blocks(const std::string& pattern, size_t count,
                const std::function<void(size_t, size_t)>& block) {
    std::vector<size_t> lengths;
    for (std::istringstream in(pattern); in.good(); in.ignore()) in >> lengths.emplace_back();
    size_t at = 0;
    for (size_t turn = 0; turn == 0 || at < count; ++turn) {
        const size_t n = std::min(lengths[turn % lengths.size()], count - at);
        block(at, n);
        at += n;
    }
}

void Session::step(Words w) {
    for (const auto* table : {&kSteps, &kEffectSteps}) {
        if (const auto known = table->find(w[0]); known != table->end())
            return known->second(*this, w);
    }
    const Result result = call(w);
    if (result.value) values.push_back(*result.value);
}

Result Session::call(Words w) {
    const bool named = w.size() > 2 && w[1] == "=";
    const Words call = named ? w.subspan(2) : w;
    const auto function = kFunctions.find(call[0]);
    if (function == kFunctions.end()) return fail("no such step or function"), Result{};
    const Result result = function->second(*this, call.subspan(1));
    if (named) things[w[0]] = result.pointer;
    return result;
}

/// 1.5, 0x10, *x (an element of a buffer), N (the block's length), N*2, N/2.
double Session::number(const std::string& word) {
    if (word[0] == '*') return std::get<std::vector<int32_t>>(things[word.substr(1)])[block_at];
    if (word[0] != 'N') return strtod(word.c_str(), nullptr);
    const size_t k = word.size() > 2 ? std::stoul(word.substr(2)) : 1;
    return static_cast<double>(word[1] == '/' ? block_length / k : block_length * k);
}

/// A buffer from the block on; a record of its own for a name that stands for nothing yet.
void* Session::address(const std::string& word) {
    if (word == "null") return nullptr;
    Thing& thing = things.try_emplace(word, Record(kRecordBytes, std::byte{0xA5})).first->second;
    if (void** pointer = std::get_if<void*>(&thing)) return *pointer;
    if (Record* record = std::get_if<Record>(&thing)) return record->data();
    void* at = nullptr;
    with_numbers(thing, [&](auto& buffer) { at = buffer.data() + block_at; });
    return at;
}

}  // namespace krel_test
