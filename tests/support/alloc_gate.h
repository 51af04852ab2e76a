// Counts and fails heap allocations of the code under test. Every test program is linked with the allocator's entry
// points wrapped; outside a gate's life they only keep account of what is live. One gate at a time, on one thread. What
// the C and C++ run-time libraries allocate for the test itself (containers, files) does not pass here.
#ifndef KREL_TESTS_SUPPORT_ALLOC_GATE_H
#define KREL_TESTS_SUPPORT_ALLOC_GATE_H

#include <gtest/gtest.h>
#include <stddef.h>
#include <stdint.h>

namespace krel_test {

class AllocGate {
  public:
    /// fail_at: the allocation, counted from 1, that returns null; 0 for none. `from_there_on` fails all later ones too.
    explicit AllocGate(int fail_at = 0, bool from_there_on = false);
    ~AllocGate();
    AllocGate(const AllocGate&) = delete;
    AllocGate& operator=(const AllocGate&) = delete;

    /// Calls of malloc, calloc, realloc and the aligned variants since the gate opened.
    [[nodiscard]] int allocations() const;
    /// Those of them that resized a block that was there.
    [[nodiscard]] int reallocations() const;
    /// Calls of free with something to free.
    [[nodiscard]] int frees() const;
    /// Bytes of the largest request.
    [[nodiscard]] size_t largest() const;
    /// Whether the failing allocation has been reached.
    [[nodiscard]] bool failed() const;
};

/// What the code under test holds now, on all threads.
struct Live {
    int64_t blocks;
    int64_t bytes;
    bool operator==(const Live&) const = default;
};
Live live();
inline void PrintTo(const Live& l, std::ostream* os) {
    *os << l.bytes << " bytes in " << l.blocks << " blocks";
}

/// Runs scenario() again and again, failing allocation 1, then 2, ... (or all from there on) until a run asks for no more
/// than that. Returns the number of failures injected. No run may leave anything behind; what else must hold after each
/// failure is asserted inside the scenario.
template <typename Scenario>
int fail_each_allocation(Scenario scenario, bool from_there_on = false) {
    for (int n = 1;; ++n) {
        const Live before = live();
        bool reached = false;
        {
            AllocGate gate(n, from_there_on);
            scenario();
            reached = gate.failed();
        }
        EXPECT_EQ(live(), before) << "leaked after allocation " << n << " failed";
        if (!reached) return n - 1;
    }
}

}  // namespace krel_test

#endif
