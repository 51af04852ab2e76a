// SPDX-License-Identifier: Apache-2.0
// Ctrl-C and friends: turned into an exception at the next block, so that unfinished files are
// removed on the way out.
#ifndef KREL_HOST_INTERRUPT_H
#define KREL_HOST_INTERRUPT_H

namespace krel::host {

struct Interrupted {
    int signal;
};

/// Catches SIGINT, SIGTERM and SIGHUP, each once: the next one ends the process at once, should it
/// hang in a read. Ignores SIGPIPE and SIGXFSZ, whose causes are reported as write errors instead.
void catch_signals();

/// Throws Interrupted if a caught signal has arrived.
void throw_if_interrupted();

/// Ends the process as the signal would have without us, so that a calling shell sees the usual
/// status.
[[noreturn]] void die_of(const Interrupted& cause);

}  // namespace krel::host

#endif
