// What the code under test asks of the platform besides memory: files, locks and the log, seen through the linker's
// --wrap. (The library imports no function that could sleep or open a file in another way: scripts/check_exports.py.)
#ifndef KREL_TESTS_EFFECT_PLATFORM_CALLS_H
#define KREL_TESTS_EFFECT_PLATFORM_CALLS_H

#include <string>
#include <vector>

namespace krel_test {

struct PlatformCalls {
    std::string dump_folder;          // stands for /data/vendor/audio_dump
    std::vector<std::string> opened;  // dump files, by their names on a device
    bool counting = false;            // everything below; log lines then go no further
    int files = 0;                    // fopen, fwrite
    int vcp_locks = 0;                // of mVcpLock
    int other_locks = 0;
    std::vector<std::string> log;  // formats, not texts
};
inline PlatformCalls platform_calls;

}  // namespace krel_test

#endif
