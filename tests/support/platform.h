// SPDX-License-Identifier: Apache-2.0
// What the code under test asks of the platform: memory, files, locks, the log. Every test program
// is linked with these entry points wrapped. What the C and C++ run-time libraries allocate for the
// test itself does not pass here.
#ifndef KREL_TESTS_SUPPORT_PLATFORM_H
#define KREL_TESTS_SUPPORT_PLATFORM_H

#include <gtest/gtest.h>
#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

namespace krel_test {

/// Counts calls while it lives, and refuses memory. One at a time, on one thread.
struct Gate {
    /// fail_at: the allocation, counted from 1, that returns null; 0 for none. `from_there_on`
    /// fails all later ones too.
    explicit Gate(int fail_at = 0, bool from_there_on = false);
    ~Gate();

    static Gate* open();
    [[nodiscard]] bool failed() const { return fail_at > 0 && allocations >= fail_at; }

    const int fail_at;
    const bool from_there_on;
    int allocations = 0;    // malloc and its relatives, with the next
    int reallocations = 0;  // of blocks that were there
    int frees = 0;
    size_t largest = 0;  // request, bytes
    int files = 0;       // fopen, fwrite
    std::vector<std::pair<std::string, std::string>>
            dumps;      // names and contents of files on the device, one for each write
    int vcp_locks = 0;  // of mVcpLock
    int other_locks = 0;
};

/// What the code under test holds now, on all threads.
struct Live {
    int64_t blocks, bytes;
    bool operator==(const Live&) const = default;
};
Live live();

/// Runs scenario() again and again, failing allocation 1, then 2, ... until a run asks for no more
/// than that. Returns the number of failures. No run may leave anything behind; the scenario
/// asserts what else must hold.
template <typename Scenario>
int fail_each_allocation(Scenario scenario) {
    for (int n = 1;; ++n) {
        const Live before = live();
        Gate gate(n);
        scenario();
        EXPECT_TRUE(live() == before) << "leaked after allocation " << n << " failed";
        if (!gate.failed()) return n - 1;
    }
}

/// Collects log lines, "level tag: text", level 3 for debug, 5 for warnings, 6 for errors. One at a
/// time, on one thread.
struct LogCapture {
    LogCapture();
    ~LogCapture();

    std::vector<std::string> lines;
};

/// Whether the file system knows files without a name.
inline bool g_has_nameless_files = true;

}  // namespace krel_test

#endif
