// SPDX-License-Identifier: Apache-2.0
#include "host/render/render.h"

#include <algorithm>
#include <cmath>

#include "host/audio/audio_file.h"
#include "host/audio/loudness.h"
#include "host/error.h"
#include "host/presets.h"
#include "host/render/session.h"

namespace krel::host {
namespace {

constexpr double kHighestTruePeak = -1.0;  // dBTP: what lossy codecs and converters take

double from_db(double db) { return std::pow(10.0, db / 20.0); }

std::string one_decimal(double value) {
    char text[32];
    snprintf(text, sizeof(text), "%.1f", value);
    return text;
}

std::unique_ptr<AudioWriter> open_output(const InputFile& in, const std::filesystem::path& out,
                                         const RenderOptions& options) {
    const AudioReader form(in);
    const int rate_hz = options.rate_hz == 0 ? form.rate_hz() : options.rate_hz;
    return std::make_unique<AudioWriter>(out, rate_hz, std::min(form.channels(), 2), form.subtype(),
                                         options.type, form.tags());
}

/// The gain in dB that takes the measured output to the loudness asked for; less where its peaks
/// would not fit.
double loudness_gain(double wanted, const RenderResult& measured,
                     std::vector<std::string>& warnings) {
    if (!std::isfinite(measured.lufs)) {
        warnings.push_back("the result is silent or shorter than 0.4 s: it has no loudness to set");
        return 0.0;
    }
    const double gain = wanted - measured.lufs;
    const double room = kHighestTruePeak - measured.true_peak;
    if (gain <= room) return gain;
    warnings.push_back("the result gets " + one_decimal(measured.lufs + room) +
                       " LUFS instead of " + one_decimal(wanted) + ": its true peak then is " +
                       one_decimal(kHighestTruePeak) + " dBTP");
    return room;
}

void warn_of_levels(const std::string& which, RenderResult& r) {
    if (r.flat_tops > 0.0) {
        char share[32];
        snprintf(share, sizeof(share), "%.2g %%", std::max(100.0 * r.flat_tops, 0.001));
        r.warnings.push_back(which + ": " + share +
                             " of the samples are flattened inside the voice; --gain " +
                             one_decimal(r.safe_gain_db) + " or auto avoids that");
    }
    const double peak = r.input.peak_dbfs() + r.gain_db;
    if (r.gain_db > 0.0 && peak > 0.0) {
        r.warnings.push_back(which + ": the gain lifts the input " + one_decimal(peak) +
                             " dB beyond full scale");
    }
}

}  // namespace

RenderResult run_voice(const InputFile& in, const RenderOptions& options, const Progress& progress,
                       const Samples& samples) {
    VoiceSource source(in, {options.channel, options.rate_hz, from_db(options.gain_db)});
    const auto channels = static_cast<size_t>(source.channels());
    RenderResult r;
    LoudnessMeter loudness(source.rate_hz(), source.channels());
    std::vector<double> block;
    Session session(options, source, [&](const double* stereo, size_t frames) {
        block.clear();
        for (size_t i = 0; i < frames; ++i) {
            for (size_t c = 0; c < channels; ++c)
                block.push_back(from_db(options.output_gain_db) * stereo[2 * i + c]);
        }
        r.output.add(block.data(), block.size());
        loudness.add(block.data(), frames);
        if (samples) samples(block.data(), frames);
    });
    session.run(progress);
    r.rate_hz = source.rate_hz();
    r.channels = source.channels();
    r.input_channels = source.file().channels();
    r.input_seconds = source.input_seconds();
    r.output_seconds = static_cast<double>(session.output_frames()) / r.rate_hz;
    r.effect_seconds = session.effect_seconds();
    r.gain_db = options.gain_db;
    r.input = source.level();
    r.lufs = loudness.lufs();
    r.true_peak = loudness.true_peak();
    r.flat_tops = session.flat_tops();
    r.safe_gain_db = session.safe_gain_db() + options.gain_db;
    r.warnings = source.warnings();
    return r;
}

RenderResult render(const InputFile& in, const std::filesystem::path& out,
                    const RenderOptions& asked, const Progress& progress, const Report& report) {
    RenderOptions options = asked;
    const auto writer = open_output(in, out, asked);
    const double passes = 1.0 + (asked.auto_gain ? 1.0 : 0.0) + (asked.loudness ? 1.0 : 0.0);
    double pass = 0.0;
    const Progress shown = [&](double share) { progress((pass + std::min(share, 1.0)) / passes); };
    std::vector<std::string> warnings;
    if (asked.auto_gain) {
        options.gain_db = 0.0;
        options.gain_db = run_voice(in, options, shown, {}).safe_gain_db;
        ++pass;
    }
    if (asked.loudness) {
        const RenderResult measured = run_voice(in, options, shown, {});
        options.output_gain_db = loudness_gain(*asked.loudness, measured, warnings);
        ++pass;
    }
    RenderResult result = run_voice(in, options, shown, [&](const double* samples, size_t frames) {
        writer->write(samples, frames);
    });
    result.output_format = writer->format_text();
    warn_of_levels(in_quotes(in.path()) + " as " + presets()[options.preset].name, result);
    result.warnings.insert(result.warnings.end(), warnings.begin(), warnings.end());
    writer->finish();
    if (report) report(result);
    writer->commit();
    return result;
}

}  // namespace krel::host
