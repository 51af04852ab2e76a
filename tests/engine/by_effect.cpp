// SPDX-License-Identifier: Apache-2.0
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include "tests/engine/voices.h"
#include "wrapper/voice_changer.h"

namespace krel_test {
namespace {

/// A function of the library, of the type that its header gives it.
template <typename Function>
Function* of_library(Function*, const char* name) {
    static void* const library = dlopen(KREL_EFFECT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    void* const symbol = library == nullptr ? nullptr : dlsym(library, name);
    if (symbol == nullptr) ADD_FAILURE() << dlerror();
    return reinterpret_cast<Function*>(symbol);
}
#define OF_LIBRARY(name) of_library(static_cast<decltype(&(name))>(nullptr), #name)

}  // namespace

Samples by_effect(int rate_hz, int number, Samples in) {
    const auto process = OF_LIBRARY(krel_voice_changer_process);
    srand(1);
    void* changer = OF_LIBRARY(krel_voice_changer_init)(1, static_cast<unsigned>(rate_hz),
                                                        KREL_FORMAT_S16, 0);
    OF_LIBRARY(krel_voice_changer_set_mode)(changer, number);
    Samples silence((number == 3 ? 256 : 254) * 128);
    process(changer, silence.data(), 2 * silence.size());
    process(changer, in.data(), 2 * in.size());
    OF_LIBRARY(krel_voice_changer_deinit)(changer);
    return in;
}

}  // namespace krel_test
