// SPDX-License-Identifier: Apache-2.0
#include "host/audio/scratch_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "host/error.h"

namespace krel::host {

int open_scratch_file() {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    int fd = error ? -1 : open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0 && !error) {  // a file system without nameless files
        std::string name = (folder / "krelvcp-XXXXXX").string();
        fd = mkostemp(name.data(), O_CLOEXEC);
        if (fd >= 0) unlink(name.c_str());
    }
    if (fd >= 0) return fd;
    throw Error("cannot make a temporary file in " + in_quotes(folder) + ": " +
                (error ? error.message() : strerror(errno)) + " (set TMPDIR to another folder)");
}

bool write_all(int fd, const void* data, int64_t bytes) {
    const char* next = static_cast<const char*>(data);
    while (bytes > 0) {
        const ssize_t n = write(fd, next, static_cast<size_t>(bytes));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        next += n;
        bytes -= n;
    }
    return true;
}

bool copy_all(int from, int to) {
    char block[1 << 16];
    for (int64_t at = 0;;) {
        const ssize_t got = pread(from, block, sizeof(block), at);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return got == 0;
        if (!write_all(to, block, got)) return false;
        at += got;
    }
}

}  // namespace krel::host
