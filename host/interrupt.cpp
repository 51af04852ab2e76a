// SPDX-License-Identifier: Apache-2.0
#include "host/interrupt.h"

#include <signal.h>
#include <stdlib.h>

#include "host/error.h"

namespace krel::host {
namespace {

volatile sig_atomic_t g_signal = 0;

void remember(int signal_number) { g_signal = signal_number; }

void handle(int signal_number, void (*handler)(int), int flags = 0) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    sigaction(signal_number, &action, nullptr);
}

}  // namespace

void catch_signals() {
    for (const int s : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction inherited = {};
        sigaction(s, nullptr, &inherited);
        // nohup and background jobs stay as they are
        if (inherited.sa_handler != SIG_IGN) handle(s, remember, static_cast<int>(SA_RESETHAND));
    }
    for (const int s : {SIGPIPE, SIGXFSZ}) handle(s, SIG_IGN);
}

void throw_if_interrupted() {
    if (g_signal != 0) throw Interrupted{g_signal};
}

void die_of(const Interrupted& cause) {
    handle(cause.signal, SIG_DFL);
    raise(cause.signal);
    _Exit(kExitSignal + cause.signal);
}

}  // namespace krel::host
