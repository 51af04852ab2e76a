// Counts and fails heap allocations of the code under test. Every test program is linked with the allocator's entry
// points wrapped; outside a gate's life they pass straight through. One gate at a time, on one thread.
#ifndef KREL_TESTS_SUPPORT_ALLOC_GATE_H
#define KREL_TESTS_SUPPORT_ALLOC_GATE_H

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
    /// Calls of free with something to free.
    [[nodiscard]] int frees() const;
    /// Whether the failing allocation has been reached.
    [[nodiscard]] bool failed() const;
};

/// Runs scenario() again and again, failing allocation 1, then 2, ... until a run asks for no more than that. Returns the
/// number of failures injected. What must hold after each failure is asserted inside the scenario.
template <typename Scenario>
int fail_each_allocation(Scenario scenario) {
    for (int n = 1;; ++n) {
        bool reached = false;
        {
            AllocGate gate(n);
            scenario();
            reached = gate.failed();
        }
        if (!reached) return n - 1;
    }
}

}  // namespace krel_test

#endif
