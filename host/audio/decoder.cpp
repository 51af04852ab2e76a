// SPDX-License-Identifier: Apache-2.0
#include "host/audio/decoder.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "host/audio/scratch_file.h"
#include "host/error.h"
#include "host/interrupt.h"

namespace krel::host {
namespace {

namespace fs = std::filesystem;

/// In single quotes, for a shell.
std::string shell_quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string conversion_command(const fs::path& path) {
    return "ffmpeg -i " + shell_quoted(path.string()) + " " +
           shell_quoted(fs::path(path).replace_extension(".wav").string());
}

struct Files {
    int samples = open_scratch_file();
    int complaints = open_scratch_file();
    ~Files() {
        close(complaints);
        if (samples >= 0) close(samples);
    }
};

/// 0, or the system's code for why the program could not be started.
int start(std::vector<std::string> words, const Files& files, pid_t& child) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, files.samples, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, files.complaints, STDERR_FILENO);
    const int error =
            posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

/// What a spawned process ends with whose program turned out not to start only after the spawn.
constexpr int kNotStarted = 127;

/// The code that the process exits with; -1 when a signal ended it.
int wait_for(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) kill(child, SIGTERM);
    throw_if_interrupted();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string first_line(int fd) {
    std::string text(512, '\0');
    const ssize_t got = pread(fd, text.data(), text.size(), 0);
    text.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
    return text.substr(0, text.find('\n'));
}

}  // namespace

int decode_with_ffmpeg(const fs::path& path) {
    Files files;
    pid_t child = 0;
    // Standard output by its file's name: ffmpeg seeks in it and completes the header.
    const int error = start(
            {"ffmpeg", "-nostdin", "-v", "error", "-y", "-i", "file:" + path.string(), "-map",
             "0:a:0", "-c:a", "pcm_f32le", "-f", "wav", "-rf64", "auto", "file:/proc/self/fd/1"},
            files, child);
    const int code = error == 0 ? wait_for(child) : -1;
    if (error == ENOENT || code == kNotStarted) {
        throw Error("cannot read " + in_quotes(path) +
                    " without ffmpeg (apt install ffmpeg); or convert it elsewhere: " +
                    conversion_command(path));
    }
    if (code != 0) {
        throw Error("cannot read " + in_quotes(path) + ": ffmpeg: " + first_line(files.complaints));
    }
    return std::exchange(files.samples, -1);
}

}  // namespace krel::host
