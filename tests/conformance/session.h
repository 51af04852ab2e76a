// SPDX-License-Identifier: Apache-2.0
// One case of the conformance vectors at work: its buffers, records and instance, its output and
// values. tests/vectors/README.md says what a case consists of and what every step does.
#ifndef KREL_TESTS_CONFORMANCE_SESSION_H
#define KREL_TESTS_CONFORMANCE_SESSION_H

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <variant>

#include "tests/support/instance.h"

namespace krel_test {

using Words = std::span<const std::string>;

struct Result {
    std::optional<double> value;  // none: void
    void* pointer = nullptr;
};

inline uint32_t to_word(auto number) { return static_cast<uint32_t>(static_cast<int64_t>(number)); }

struct Session {
    using Record = std::vector<std::byte>;
    using Thing = std::variant<void*, Record, std::vector<int16_t>, std::vector<int32_t>,
                               std::vector<float>>;

    void step(Words words);
    Result call(Words words);
    /// Keeps the first failure. The steps after it are run too: they release what the case has
    /// made.
    void fail(const std::string& what) {
        if (failure.empty()) failure = what;
    }
    double number(const std::string& word);
    void* address(const std::string& word);
    uint32_t word(Words w, size_t i, uint32_t otherwise = 0) {
        return i < w.size() ? to_word(number(w[i])) : otherwise;
    }

    std::filesystem::path folder;  // of the sounds
    std::map<std::string, Thing> things;
    std::vector<double> output, values;
    std::string failure;
    size_t block_at = 0, block_length = 0;  // of the block that `each` has come to, in elements
    std::optional<Instance> effect;
    bool packed = false;  // the effect takes three bytes for a sample
};

template <typename Numbers = std::initializer_list<double>>
void append(std::vector<double>& list, const Numbers& numbers) {
    list.insert(list.end(), std::begin(numbers), std::end(numbers));
}

/// Calls block(at, length) for lengths from the pattern until `count` is used up; at least once.
void for_blocks(const std::string& pattern, size_t count,
                const std::function<void(size_t, size_t)>& block);

/// Numbers in memory: a member of a record; for a pointer, what it points to.
using Cells = std::variant<std::span<int16_t>, std::span<int32_t>, std::span<int64_t>,
                           std::span<float>, std::span<double>>;
struct Field {
    const char* name;
    Cells (*of)(void* record);
};
template <typename T>
using Table = std::map<std::string, T>;
using Step = std::function<void(Session&, Words)>;
using Function = std::function<Result(Session&, Words arguments)>;
extern const Table<Step> kEffectSteps;
extern const Table<Function> kFunctions;
extern const Table<std::vector<Field>> kTypes;

/// The C library's rand(), replaced by a known sequence.
struct Random {
    uint32_t state = 0;
    int draws = 0;
};
inline Random g_random;

}  // namespace krel_test

#endif
