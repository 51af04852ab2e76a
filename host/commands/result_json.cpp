// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <nlohmann/json.hpp>

#include "host/commands/result_table.h"
#include "host/presets.h"

namespace krel::host {
namespace {

using nlohmann::ordered_json;

/// JSON has no infinity: silence is null.
ordered_json number(double value) {
    return std::isfinite(value) ? ordered_json(std::round(value * 1e4) / 1e4) : ordered_json();
}

ordered_json levels(const LevelMeter& meter) {
    return {{"peak_dbfs", number(meter.peak_dbfs())},
            {"rms_dbfs", number(meter.rms_dbfs())},
            {"clipped_samples", meter.clipped()}};
}

}  // namespace

std::string json_text(const Job& job, const RenderResult& r) {
    ordered_json input = {{"file", job.in.string()},
                          {"seconds", number(r.input_seconds)},
                          {"channels", r.input_channels}};
    input.update(levels(r.input));
    ordered_json output = {{"file", job.out.string()},
                           {"seconds", number(r.output_seconds)},
                           {"channels", r.channels},
                           {"rate_hz", r.rate_hz},
                           {"format", r.output_format},
                           {"lufs", number(r.lufs)},
                           {"true_peak_dbtp", number(r.true_peak)}};
    output.update(levels(r.output));
    const ordered_json all = {
            {"preset", job.preset},
            {"voice", presets()[job.preset].name},
            {"input", input},
            {"gain_db", number(r.gain_db)},
            {"flat_tops_percent", number(100.0 * r.flat_tops)},
            {"safe_gain_db", number(r.safe_gain_db)},
            {"delay_ms", number(1000.0 * latency_samples(job.preset, r.rate_hz) / r.rate_hz)},
            {"effect_seconds", number(r.effect_seconds)},
            {"times_real_time", number(r.speed())},
            {"output", output},
            {"warnings", r.warnings},
    };
    // A file's name may be no UTF-8.
    return all.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace krel::host
