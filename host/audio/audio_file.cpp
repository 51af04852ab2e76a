// SPDX-License-Identifier: Apache-2.0
#include "host/audio/audio_file.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "host/audio/output_formats.h"
#include "host/audio/sample_format.h"
#include "host/audio/temporary_file.h"
#include "host/error.h"

namespace krel::host {
namespace {

// The largest piece handed to libsndfile: some encoders take stack space in proportion.
constexpr size_t kPieceFrames = 4096;

constexpr int kTags[] = {SF_STR_TITLE,   SF_STR_COPYRIGHT,   SF_STR_ARTIST,
                         SF_STR_COMMENT, SF_STR_DATE,        SF_STR_ALBUM,
                         SF_STR_LICENSE, SF_STR_TRACKNUMBER, SF_STR_GENRE};

// What writers into a pipe put into the length fields of a WAV file, rounded down.
constexpr long long kOpenEnd = 0x7ffff000;

/// libsndfile reads a cut file to its real end, and leaves a line such as "data : 540000 (should be
/// 360000)" in its log.
bool log_names_missing_bytes(SNDFILE* file) {
    std::string log(1 << 14, '\0');
    sf_command(file, SFC_GET_LOG_INFO, log.data(), static_cast<int>(log.size()));
    for (size_t at = log.find("(should be "); at != std::string::npos;
         at = log.find("(should be ", at + 1)) {
        const size_t colon = log.rfind(':', at);
        if (colon == std::string::npos) continue;
        const long long promised = strtoll(&log[colon + 1], nullptr, 10);
        const long long there = strtoll(&log[at + strlen("(should be ")], nullptr, 10);
        if (promised > there && promised < kOpenEnd) return true;
    }
    return false;
}

}  // namespace

AudioReader::AudioReader(const InputFile& input)
    : name_(in_quotes(input.path())), file_(input.open(info_)) {
    if (input.decoded()) info_.format &= ~SF_FORMAT_SUBMASK;
    if (info_.frames <= 0) throw Error("cannot process " + name_ + ": it holds no audio");
}

Tags AudioReader::tags() const {
    Tags tags;
    for (const int tag : kTags) {
        if (const char* text = sf_get_string(file_.get(), tag)) tags.emplace_back(tag, text);
    }
    return tags;
}

size_t AudioReader::read(double* to, size_t frames) {
    const sf_count_t got = sf_readf_double(file_.get(), to, static_cast<sf_count_t>(frames));
    done_ += std::max<sf_count_t>(got, 0);
    if (sf_error(file_.get()) != SF_ERR_NO_ERROR) {
        damaged_ = true;
        if (done_ == 0) throw Error("cannot read " + name_ + ": " + sf_strerror(file_.get()));
    }
    return static_cast<size_t>(std::max<sf_count_t>(got, 0));
}

bool AudioReader::truncated() const {
    return damaged_ || done_ < info_.frames || log_names_missing_bytes(file_.get());
}

/// libsndfile's output, on a file of our own: it may write from sf_close(), whose result does not
/// tell.
struct AudioWriter::Sink {
    explicit Sink(const std::filesystem::path& target) : file(target) {}
    TemporaryFile file;

    static TemporaryFile& of(void* sink) { return static_cast<Sink*>(sink)->file; }
    static SF_VIRTUAL_IO functions() {
        return {
                .get_filelen = [](void* s) -> sf_count_t { return of(s).size(); },
                .seek = [](sf_count_t to, int from, void* s) -> sf_count_t {
                    return of(s).seek(to, from);
                },
                .read = [](void* data, sf_count_t n, void* s) -> sf_count_t {
                    return of(s).read(data, n);
                },
                .write = [](const void* data, sf_count_t n, void* s) -> sf_count_t {
                    return of(s).write(data, n);
                },
                .tell = [](void* s) -> sf_count_t { return of(s).seek(0, SEEK_CUR); },
        };
    }
};

AudioWriter::AudioWriter(const std::filesystem::path& target, int rate_hz, int channels,
                         int input_subtype, const std::string& type, const Tags& tags)
    : target_(target) {
    info_.samplerate = rate_hz;
    info_.channels = channels;
    choose_format(output_type(target, type), input_subtype, info_);
    if (info_.samplerate != rate_hz) resampler_.emplace(channels, rate_hz, info_.samplerate);
    open(tags);
}

void AudioWriter::open(const Tags& tags) {
    sink_ = std::make_unique<Sink>(target_);
    SF_VIRTUAL_IO functions = Sink::functions();
    file_.reset(sf_open_virtual(&functions, SFM_WRITE, &info_, sink_.get()));
    if (!file_) fail(sf_strerror(nullptr));
    // The chunk holds the time of day, and two renderings would never be the same file.
    sf_command(file_.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    // A container without tags refuses them.
    for (const auto& [tag, text] : tags) sf_set_string(file_.get(), tag, text.c_str());
}

AudioWriter::~AudioWriter() = default;

void AudioWriter::write(const double* from, size_t frames) {
    if (!resampler_) return write_pieces(from, frames);
    resampled_.clear();
    resampler_->process(from, frames, false, resampled_);
    write_pieces(resampled_.data(), resampled_.size() / static_cast<size_t>(info_.channels));
}

void AudioWriter::write_pieces(const double* from, size_t frames) {
    const auto channels = static_cast<size_t>(info_.channels);
    for (size_t done = 0; done < frames;) {
        const size_t piece = std::min(kPieceFrames, frames - done);
        const double* samples = from + done * channels;
        if (integer_bits(info_.format) != 0) {
            write_integers(samples, piece);
        } else {
            check_written(sf_writef_double(file_.get(), samples, static_cast<sf_count_t>(piece)),
                          piece);
        }
        done += piece;
    }
    if (sink_->file.size() > largest_file(info_.format)) {
        fail("the file would exceed the 4 GiB of its format; use .w64, .caf or .flac");
    }
}

// libsndfile takes the highest bits of an int, so that rounding is ours alone.
void AudioWriter::write_integers(const double* from, size_t frames) {
    const int bits = integer_bits(info_.format);
    integers_.resize(frames * static_cast<size_t>(info_.channels));
    std::transform(from, from + integers_.size(), integers_.begin(), [=](double x) {
        return static_cast<int>(static_cast<uint32_t>(quantise(x, bits - 1, bits)) << (32 - bits));
    });
    check_written(sf_writef_int(file_.get(), integers_.data(), static_cast<sf_count_t>(frames)),
                  frames);
}

void AudioWriter::check_written(sf_count_t written, size_t frames) {
    if (sink_->file.failed()) fail(sink_->file.error_text());
    if (written != static_cast<sf_count_t>(frames)) fail(sf_strerror(file_.get()));
}

void AudioWriter::finish() {
    if (resampler_) {
        resampled_.clear();
        resampler_->process(nullptr, 0, true, resampled_);
        write_pieces(resampled_.data(), resampled_.size() / static_cast<size_t>(info_.channels));
    }
    file_.reset();
    if (!sink_->file.flush() || sink_->file.failed()) fail(sink_->file.error_text());
}

void AudioWriter::commit() {
    if (!sink_->file.commit()) fail(sink_->file.error_text());
}

std::string AudioWriter::format_text() const {
    const std::string text = host::format_text(info_.format);
    return resampler_ ? text + " at " + std::to_string(info_.samplerate) + " Hz" : text;
}

void AudioWriter::fail(const std::string& why) const {
    throw Error("cannot write " + in_quotes(target_) + ": " + why);
}

}  // namespace krel::host
