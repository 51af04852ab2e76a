#include "host/audio_file.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/error.h"
#include "host/output_formats.h"
#include "host/sample_format.h"
#include "host/temporary_file.h"

namespace krel::host {
namespace {

// The largest piece handed to libsndfile: some encoders take stack space in proportion.
constexpr size_t kPieceFrames = 4096;

SNDFILE* open_input(const std::filesystem::path& path, SF_INFO* info) {
    std::error_code ignored;
    if (is_directory(path, ignored))
        throw Error("cannot read " + in_quotes(path) + ": it is a folder");
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, info);
    if (file != nullptr) return file;
    const bool readable = access(path.c_str(), R_OK) == 0;
    throw Error("cannot read " + in_quotes(path) + ": " +
                (readable ? "no known audio format" : strerror(errno)));
}

}  // namespace

AudioReader::AudioReader(const std::filesystem::path& path)
    : name_(in_quotes(path)), file_(open_input(path, &info_)) {
    if (info_.channels > 2) {
        throw Error("cannot process " + name_ + ": it has " + std::to_string(info_.channels) +
                    " channels, the effect takes one or two");
    }
    if (info_.frames <= 0) throw Error("cannot process " + name_ + ": it holds no audio");
}

size_t AudioReader::read(double* to, size_t frames) {
    const sf_count_t got = sf_readf_double(file_.get(), to, static_cast<sf_count_t>(frames));
    if (const int error = sf_error(file_.get()); error != SF_ERR_NO_ERROR) {
        throw Error("cannot read " + name_ + ": " + sf_error_number(error));
    }
    return static_cast<size_t>(std::max<sf_count_t>(got, 0));
}

/// libsndfile's output, on a file of our own: it may write from sf_close(), whose result does not tell.
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
                         int input_subtype)
    : target_(target) {
    info_.samplerate = rate_hz;
    info_.channels = channels;
    info_.format = output_format(target, input_subtype, info_);
    sink_ = std::make_unique<Sink>(target);
    SF_VIRTUAL_IO functions = Sink::functions();
    file_.reset(sf_open_virtual(&functions, SFM_WRITE, &info_, sink_.get()));
    if (!file_) fail(sf_strerror(nullptr));
    // The chunk holds the time of day, and two renderings would never be the same file.
    sf_command(file_.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
}

AudioWriter::~AudioWriter() = default;

void AudioWriter::write(const double* from, size_t frames) {
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

void AudioWriter::commit() {
    file_.reset();
    if (!sink_->file.commit()) fail(sink_->file.error_text());
}

std::string AudioWriter::format_text() const { return host::format_text(info_.format); }

void AudioWriter::fail(const std::string& why) const {
    throw Error("cannot write " + in_quotes(target_) + ": " + why);
}

}  // namespace krel::host
