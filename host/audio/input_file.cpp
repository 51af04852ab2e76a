// SPDX-License-Identifier: Apache-2.0
#include "host/audio/input_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <string>

#include "host/audio/decoder.h"
#include "host/audio/scratch_file.h"
#include "host/error.h"
#include "host/interrupt.h"

namespace krel::host {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuse(const fs::path& path, const std::string& why) {
    throw Error("cannot read " + in_quotes(path) + ": " + why);
}

/// All that `from` gives until its end.
int spool(const fs::path& name, int from) {
    const int copy = open_scratch_file();
    char block[1 << 16];
    while (true) {
        const ssize_t got = ::read(from, block, sizeof(block));
        throw_if_interrupted();
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) refuse(name, strerror(errno));
        if (got == 0) return copy;
        if (!write_all(copy, block, got)) {
            refuse(name, std::string("no room for a copy in $TMPDIR: ") + strerror(errno));
        }
    }
}

int spool(const fs::path& path) {
    const bool standard = path == "-";
    const int from = standard ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (from < 0) refuse(path, strerror(errno));
    const int copy = spool(path, from);
    if (!standard) close(from);
    return copy;
}

/// Recordings of phones and browsers, which libsndfile does not know.
bool ffmpeg_may_know(const fs::path& path) {
    static constexpr const char* kEndings[] = {".m4a", ".m4b", ".aac", ".mp4", ".mov",  ".3gp",
                                               ".3g2", ".amr", ".awb", ".wma", ".webm", ".mka"};
    std::string ending = path.extension().string();
    std::ranges::transform(ending, ending.begin(), [](unsigned char c) { return std::tolower(c); });
    return std::ranges::find(kEndings, ending) != std::end(kEndings);
}

}  // namespace

InputFile::InputFile(fs::path path, std::optional<RawFormat> raw)
    : path_(std::move(path)), raw_(raw) {
    std::error_code ignored;
    if (is_directory(path_, ignored)) refuse(path_, "it is a folder");
    if (path_ == "-" || is_fifo(path_, ignored) || is_character_file(path_, ignored)) {
        copy_ = spool(path_);
    } else if (access(path_.c_str(), R_OK) != 0) {
        refuse(path_, strerror(errno));
    }
    SF_INFO info = {};
    if (raw_ || !ffmpeg_may_know(path_) || try_open(info)) return;
    copy_ = decode_with_ffmpeg(path_);
    decoded_ = true;
}

InputFile::~InputFile() {
    if (copy_ >= 0) close(copy_);
}

SndfileHandle InputFile::try_open(SF_INFO& info) const {
    info = {};
    if (raw_) {
        info = {0, raw_->rate_hz, raw_->channels, SF_FORMAT_RAW | raw_->encoding, 0, 0};
    }
    if (copy_ < 0) return SndfileHandle(sf_open(path_.c_str(), SFM_READ, &info));
    lseek(copy_, 0, SEEK_SET);
    return SndfileHandle(sf_open_fd(fcntl(copy_, F_DUPFD_CLOEXEC, 0), SFM_READ, &info, SF_TRUE));
}

SndfileHandle InputFile::open(SF_INFO& info) const {
    SndfileHandle file = try_open(info);
    if (file) return file;
    const int error = sf_error(nullptr);
    const bool unknown = error == SF_ERR_UNRECOGNISED_FORMAT || error == SF_ERR_SYSTEM;
    refuse(path_, unknown ? "no known audio format" : sf_error_number(error));
}

}  // namespace krel::host
