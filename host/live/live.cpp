// SPDX-License-Identifier: Apache-2.0
#include "host/live/live.h"

#include <poll.h>

#include <memory>

#include "host/commands/arguments.h"
#include "host/error.h"
#include "host/interrupt.h"
#include "host/live/controls.h"
#include "host/live/display.h"
#include "host/live/live_voice.h"
#include "host/live/open_backend.h"
#include "host/presets.h"

namespace krel::host::live {
namespace {

using Kind = Request::Kind;

constexpr int kTickMs = 100;

constexpr char kKeys[] =
        "keys: n p or arrows: another voice, 0 to 16: that voice, space: bypass, m: monitor, q: "
        "quit";

/// 8 and 9 are as 7.
bool is_repeated(size_t preset) {
    return presets()[preset].chain == Chain::kNone && preset != kPlainPreset;
}

/// The voice `step` further on, round and round.
size_t neighbour(size_t preset, size_t step) {
    do {
        preset = (preset + step) % presets().size();
    } while (is_repeated(preset));
    return preset;
}

class LiveSession {
  public:
    explicit LiveSession(const LiveOptions& options)
        : voice_(static_cast<int>(options.preset)),
          monitor_(options.graph.monitor),
          backend_(open_backend(options.backend, options.graph, voice_)),
          display_(controls_.on_terminal()) {}

    void run();

  private:
    void greet();
    void wait();
    void answer(const Request& request);
    void choose(size_t preset);
    void follow_graph();
    void tell_graph();
    void tell_voice();
    Status status();

    LiveVoice voice_;
    bool monitor_;
    bool ended_ = false;
    std::unique_ptr<Backend> backend_;  // calls voice_ until it is gone
    GraphState told_;
    Controls controls_;
    Display display_;
};

Status LiveSession::status() {
    const GraphState& graph = backend_->state();
    const double rate = std::max(graph.rate_hz, 1);
    return {.voice = presets()[static_cast<size_t>(voice_.number())].name,
            .levels = voice_.take_levels(),
            .voice_ms = 1e3 * voice_.delay() / rate,
            .graph_ms = 1e3 * graph.delay_frames / rate,
            .bypass = voice_.bypassed(),
            .monitor = monitor_};
}

void LiveSession::greet() {
    follow_graph();
    tell_voice();
    display_.event("choose " + backend_->state().offered + " in any program");
    if (controls_.on_terminal()) display_.event(kKeys);
}

void LiveSession::tell_voice() {
    const Status s = status();
    display_.event("voice: " + s.voice + ", " + delay_text(s));
}

void LiveSession::follow_graph() {
    backend_->dispatch();
    const GraphState& graph = backend_->state();
    if (!graph.lost.empty()) throw Error(graph.lost);
    if (graph.rate_hz > 0) voice_.follow(graph.rate_hz);
    backend_->set_voice_delay(static_cast<uint32_t>(voice_.delay()));
    tell_graph();
    told_ = graph;
}

void LiveSession::tell_graph() {
    const GraphState& graph = backend_->state();
    if (graph.rate_hz != told_.rate_hz || graph.period_frames != told_.period_frames) {
        display_.event("graph: " + std::to_string(graph.rate_hz) + " Hz, periods of " +
                       std::to_string(graph.period_frames) + " frames");
    }
    if (graph.microphone != told_.microphone) {
        display_.event("microphone: " + (graph.microphone.empty() ? "gone, silence until it is back"
                                                                  : graph.microphone));
    }
    if (graph.monitor != told_.monitor) {
        display_.event("monitor: " + (!graph.monitor.empty() ? graph.monitor
                                      : monitor_ ? "gone, until there is something to play on"
                                                 : "off"));
    }
}

void LiveSession::choose(size_t preset) {
    voice_.choose(static_cast<int>(preset));
    tell_voice();
}

void LiveSession::answer(const Request& request) {
    const auto now = static_cast<size_t>(voice_.number());
    switch (request.kind) {
        case Kind::kVoice:
            try {
                choose(parse_preset(request.voice));
            } catch (const UsageError& e) {
                display_.event(e.what());
            }
            break;
        case Kind::kNext:
            choose(neighbour(now, 1));
            break;
        case Kind::kPrevious:
            choose(neighbour(now, presets().size() - 1));
            break;
        case Kind::kBypass:
            voice_.bypass(!voice_.bypassed());
            display_.event(voice_.bypassed() ? "bypass: on" : "bypass: off");
            break;
        case Kind::kMonitor:
            monitor_ = !monitor_;
            backend_->set_monitor(monitor_);
            if (monitor_ && backend_->state().monitor.empty())
                display_.event("monitor: there is nothing to play on yet");
            break;
        case Kind::kStatus:
            display_.event("status: " + status_text(status()));
            break;
        case Kind::kQuit:
            ended_ = true;
            break;
    }
}

/// For something to happen, or a tick.
void LiveSession::wait() {
    pollfd waited[] = {{.fd = backend_->fd(), .events = POLLIN, .revents = 0},
                       {.fd = controls_.fd(), .events = POLLIN, .revents = 0}};
    poll(waited, std::size(waited), kTickMs);
    throw_if_interrupted();
    if (waited[1].revents == 0) return;
    for (const Request& request : controls_.read()) answer(request);
}

void LiveSession::run() {
    greet();
    while (!ended_) {
        wait();
        follow_graph();
        display_.status(status());
    }
    display_.event("ended");
}

}  // namespace

void run_live(const LiveOptions& options) {
    LiveSession session(options);
    session.run();
}

}  // namespace krel::host::live
