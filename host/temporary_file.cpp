#include "host/temporary_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/error.h"

namespace krel::host {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuse(const fs::path& target, const std::string& why) {
    throw Error("cannot write " + in_quotes(target) + ": " + why);
}

fs::path file_behind(const fs::path& target) {
    std::error_code ignored;
    if (exists(target, ignored) && !is_regular_file(target, ignored)) {
        refuse(target, is_directory(target, ignored) ? "it is a folder" : "it is not a file");
    }
    if (const auto folder = target.parent_path(); !folder.empty() && !exists(folder, ignored)) {
        refuse(target, "there is no folder " + in_quotes(folder));
    }
    return is_symlink(target, ignored) ? weakly_canonical(target, ignored) : target;
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

TemporaryFile::TemporaryFile(const fs::path& target)
    : target_(file_behind(target)), path_(hidden_name(target_)) {
    fd_ = open(path_.c_str(), O_CREAT | O_TRUNC | O_RDWR | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd_ < 0) refuse(target, strerror(errno));
}

TemporaryFile::~TemporaryFile() {
    close_file();
    if (!path_.empty()) unlink(path_.c_str());
}

template <typename T>
T TemporaryFile::remember(T result) {
    if (result < 0 && error_ == 0) error_ = errno;
    return result;
}

int64_t TemporaryFile::write(const void* data, int64_t bytes) {
    int64_t done = 0;
    while (done < bytes) {
        const ssize_t n = ::write(fd_, static_cast<const char*>(data) + done,
                                  static_cast<size_t>(bytes - done));
        if (n < 0 && errno == EINTR) continue;
        if (remember(n) < 0) break;
        done += n;
    }
    return done;
}

int64_t TemporaryFile::read(void* data, int64_t bytes) {
    return remember(::read(fd_, data, static_cast<size_t>(bytes)));
}

int64_t TemporaryFile::seek(int64_t to, int whence) { return remember(lseek(fd_, to, whence)); }

int64_t TemporaryFile::size() {
    struct stat status = {};
    return remember(fstat(fd_, &status)) < 0 ? 0 : status.st_size;
}

std::string TemporaryFile::error_text() const { return strerror(error_); }

bool TemporaryFile::commit() {
    close_file();
    if (!failed() && remember(rename(path_.c_str(), target_.c_str())) == 0) path_.clear();
    return !failed();
}

void TemporaryFile::close_file() {
    if (fd_ >= 0) remember(close(fd_));
    fd_ = -1;
}

}  // namespace krel::host
