// SPDX-License-Identifier: Apache-2.0
#include "host/audio/temporary_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/audio/scratch_file.h"
#include "host/error.h"

namespace krel::host {
namespace {

namespace fs = std::filesystem;

constexpr int kMostLinks = 40;
constexpr size_t kMostWaiting = 1 << 18;  // bytes

[[noreturn]] void refuse(const fs::path& target, const std::string& why) {
    throw Error("cannot write " + in_quotes(target) + ": " + why);
}

/// What a chain of symbolic links names, whether that exists or not.
fs::path follow_links(const fs::path& target) {
    std::error_code error;
    fs::path file = target;
    for (int link = 0; link < kMostLinks && is_symlink(file, error); ++link) {
        file = file.parent_path() / read_symlink(file, error);
        if (error) refuse(target, error.message());
    }
    return file;
}

fs::path file_behind(const fs::path& target) {
    fs::path file = follow_links(target);
    std::error_code error;
    const bool there = exists(file, error);
    if (error) refuse(target, error.message());
    if (there && !is_regular_file(file, error)) {
        refuse(target, is_directory(file, error) ? "it is a folder" : "it is not a file");
    }
    if (there && access(file.c_str(), W_OK) != 0) refuse(target, strerror(errno));
    if (const auto folder = file.parent_path(); !folder.empty() && !exists(folder, error)) {
        refuse(target, "there is no folder " + in_quotes(folder));
    }
    return file;
}

constexpr char kOpenFiles[] = "/proc/self/fd/";

/// A file without a name, which vanishes with the process; -1 where the system knows none.
int open_nameless(const fs::path& folder) {
    if (access(kOpenFiles, X_OK) != 0) return -1;
    return open(folder.empty() ? "." : folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
}

int give_name(int fd, const fs::path& path) {
    const std::string file = kOpenFiles + std::to_string(fd);
    return linkat(AT_FDCWD, file.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW);
}

fs::path hidden_name(const fs::path& target) {
    fs::path name(".");
    name += target.filename();
    name += ".";
    name += std::to_string(getpid());
    name += ".part";
    return target.parent_path() / name;
}

}  // namespace

bool is_standard_output(const fs::path& target) {
    return target == "-" || target == "/dev/stdout" || target == "/dev/fd/1";
}

TemporaryFile::TemporaryFile(const fs::path& target)
    : target_(target), standard_output_(is_standard_output(target)) {
    if (standard_output_) {
        fd_ = open_scratch_file();
    } else {
        open_beside_target();
    }
}

void TemporaryFile::open_beside_target() {
    const fs::path asked = std::exchange(target_, file_behind(target_));
    path_ = hidden_name(target_);
    fd_ = open_nameless(target_.parent_path());
    if (fd_ < 0) {
        fd_ = open(path_.c_str(), O_CREAT | O_TRUNC | O_RDWR | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (fd_ < 0) refuse(asked, strerror(errno));
        named_ = true;
    }
    struct stat old = {};
    if (stat(target_.c_str(), &old) == 0) remember(fchmod(fd_, old.st_mode & 07777));
}

TemporaryFile::~TemporaryFile() {
    close_file();
    if (named_) unlink(path_.c_str());
}

template <typename T>
T TemporaryFile::remember(T result) {
    if (result < 0 && error_ == 0) error_ = errno;
    return result;
}

int64_t TemporaryFile::write(const void* data, int64_t bytes) {
    const char* from = static_cast<const char*>(data);
    waiting_.insert(waiting_.end(), from, from + bytes);
    position_ += bytes;
    size_ = std::max(size_, position_);
    return waiting_.size() < kMostWaiting || flush() ? bytes : -1;
}

bool TemporaryFile::flush() {
    const bool good = write_all(fd_, waiting_.data(), static_cast<int64_t>(waiting_.size()));
    waiting_.clear();
    return remember(good ? 0 : -1) == 0;
}

int64_t TemporaryFile::read(void* data, int64_t bytes) {
    if (!flush()) return -1;
    const ssize_t got = remember(::read(fd_, data, static_cast<size_t>(bytes)));
    position_ += std::max<ssize_t>(got, 0);
    return got;
}

int64_t TemporaryFile::seek(int64_t to, int whence) {
    if (whence == SEEK_CUR && to == 0) return position_;
    if (!flush()) return -1;
    return position_ = remember(lseek(fd_, to, whence));
}

std::string TemporaryFile::error_text() const { return strerror(error_); }

bool TemporaryFile::commit() {
    if (!flush()) return false;
    if (standard_output_) {
        if (!failed()) remember(copy_all(fd_, STDOUT_FILENO) ? 0 : -1);
        close_file();
        return !failed();
    }
    if (!failed() && !named_) {
        unlink(path_.c_str());
        named_ = remember(give_name(fd_, path_)) == 0;
    }
    close_file();
    if (!failed() && remember(rename(path_.c_str(), target_.c_str())) == 0) named_ = false;
    return !failed();
}

void TemporaryFile::close_file() {
    if (fd_ >= 0) remember(close(fd_));
    fd_ = -1;
}

}  // namespace krel::host
