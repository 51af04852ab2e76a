// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <vector>

#include "host/commands/commands.h"
#include "host/effect/cpu_clock.h"
#include "host/effect/effect_host.h"
#include "host/error.h"
#include "host/presets.h"

namespace krel::host {
namespace {

constexpr int kLowestRate = 8000;
constexpr int kHighestRate = 192000;
constexpr size_t kBlockFrames = 480;
constexpr int kWarmUpBlocks = 20;
constexpr double kSeconds = 0.25;  // of sound through each voice

struct Arguments {
    int rate_hz = 48000;
    bool json = false;
    std::filesystem::path library;
};

/// Noise with a voice's level: every part of every chain has something to do.
std::vector<float> noise_block() {
    std::minstd_rand random(1);
    std::uniform_real_distribution<float> sample(-0.2f, 0.2f);
    std::vector<float> block(2 * kBlockFrames);
    for (float& x : block) x = sample(random);
    return block;
}

/// The share of one core that the voice takes in real time, on this machine and now.
double measure_cost(const std::filesystem::path& library, size_t preset, int rate_hz) {
    EffectHost effect(library);
    effect.configure(static_cast<uint32_t>(rate_hz), SampleFormat::kFloat, false);
    effect.set_preset(static_cast<int32_t>(preset));
    effect.enable();
    const std::vector<float> noise = noise_block();
    const int blocks = static_cast<int>(kSeconds * rate_hz / kBlockFrames) + 1;
    double spent = 0.0;
    for (int i = -kWarmUpBlocks; i < blocks; ++i) {
        std::vector<float> block = noise;
        const double start = cpu_seconds();
        effect.process(block.data(), block.data(), kBlockFrames);
        if (i >= 0) spent += cpu_seconds() - start;
    }
    return spent * rate_hz / (blocks * static_cast<double>(kBlockFrames));
}

void print_line(const Arguments& a, size_t preset, double cost) {
    const Preset& p = presets()[preset];
    const double delay_ms = 1000.0 * latency_samples(preset, a.rate_hz) / a.rate_hz;
    if (a.json) {
        const nlohmann::ordered_json line = {{"preset", preset},
                                             {"voice", p.name},
                                             {"rate_hz", a.rate_hz},
                                             {"delay_ms", delay_ms},
                                             {"delay_moves", delay_moves(preset)},
                                             {"cost_percent", 100.0 * cost},
                                             {"description", p.description}};
        printf("%s\n", line.dump().c_str());
        return;
    }
    printf("%3zu  %-7s %s%4.0f ms %6.2f %%  %s\n", preset, p.name, delay_moves(preset) ? "~" : " ",
           delay_ms, 100.0 * cost, p.description);
    fflush(stdout);
}

void run(Arguments a) {
    if (a.library.empty()) a.library = default_library();
    show_log(false);
    if (!a.json)
        printf("%3s  %-7s %8s %8s  %s\n", "no.", "name", "delay", "cost", "what one hears");
    for (size_t i = 0; i < presets().size(); ++i)
        print_line(a, i, measure_cost(a.library, i, a.rate_hz));
}

}  // namespace

void add_presets_command(CLI::App& app) {
    CLI::App* command =
            app.add_subcommand("presets", "List the voices, their delay and their cost");
    const auto a = std::make_shared<Arguments>();
    command->add_option("--rate", a->rate_hz, "Sample rate of delay and cost (default: 48000)")
            ->check(CLI::Range(kLowestRate, kHighestRate).description(""))
            ->type_name("HZ");
    command->add_flag("--json", a->json, "One JSON object a line");
    command->add_option("--library", a->library, "Effect library to load")->type_name("FILE");
    command->footer(
            "Delay is from the effect's input to its output; with a ~ it moves with the voice. "
            "Cost is the share of one "
            "core that the voice takes in real time, measured on this machine just now.");
    command->callback([a] { run(*a); });
}

}  // namespace krel::host
