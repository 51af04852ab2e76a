// SPDX-License-Identifier: Apache-2.0
// A file that appears under its name only once it is complete; or, for the name "-", standard
// output that gets all at once then.
#ifndef KREL_HOST_AUDIO_TEMPORARY_FILE_H
#define KREL_HOST_AUDIO_TEMPORARY_FILE_H

#include <stdint.h>

#include <filesystem>
#include <string>
#include <vector>

namespace krel::host {

/// By its names, also where a shell has pointed it at a file.
bool is_standard_output(const std::filesystem::path& target);

class TemporaryFile {
  public:
    /// Opens a file in the folder of `target`: without a name, so that nothing stays behind however
    /// the process ends, or hidden where the system has no such files. A symbolic link is followed
    /// to what it names; permissions of a file that is there are kept. Throws Error when that is
    /// not possible, or when the target is no file or not writable.
    explicit TemporaryFile(const std::filesystem::path& target);
    /// Removes the file unless commit() succeeded.
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    // As the system calls, for libsndfile; the first failure is remembered.
    int64_t write(const void* data, int64_t bytes);
    int64_t read(void* data, int64_t bytes);
    int64_t seek(int64_t to, int whence);
    /// Bytes in the file.
    [[nodiscard]] int64_t size() const { return size_; }

    /// Hands everything to the system. False when that failed.
    bool flush();
    [[nodiscard]] bool failed() const { return error_ != 0; }
    [[nodiscard]] std::string error_text() const;

    /// Closes the file and gives it the target's name, in one step, or copies it to standard
    /// output. False when that, or any write before, failed.
    [[nodiscard]] bool commit();

  private:
    template <typename T>
    T remember(T result);
    void open_beside_target();
    void close_file();

    std::filesystem::path target_;
    std::filesystem::path path_;  // beside it
    int fd_ = -1;
    bool named_ = false;  // something of ours is at path_
    bool standard_output_ = false;
    int error_ = 0;
    std::vector<char> waiting_;  // to be written at the file's position
    int64_t position_ = 0;       // behind what waits
    int64_t size_ = 0;
};

}  // namespace krel::host

#endif
