// SPDX-License-Identifier: Apache-2.0
// A client of a JACK server: a port for the microphone, a port for the voice.
#include <errno.h>
#include <jack/jack.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "host/live/backend.h"

namespace krel::host::live {
namespace {

constexpr char kClientName[] = "krel-voice";

struct FreeNames {
    void operator()(const char** names) const { jack_free(names); }
};
using Names = std::unique_ptr<const char*, FreeNames>;

class JackBackend final : public Backend {
  public:
    JackBackend(const BackendOptions& options, Processor& processor)
        : options_(options),
          processor_(processor),
          event_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}
    ~JackBackend() override;
    JackBackend(const JackBackend&) = delete;
    JackBackend& operator=(const JackBackend&) = delete;

    /// Why not, or nothing.
    std::string open();

    [[nodiscard]] int fd() const override { return event_; }
    void dispatch() override;
    [[nodiscard]] const GraphState& state() const override { return state_; }
    void set_monitor(bool on) override;
    void set_voice_delay(uint32_t frames) override;

  private:
    static int process(jack_nframes_t frames, void* self);
    static void set_latencies(jack_latency_callback_mode_t mode, void* self);
    static void on_shutdown(jack_status_t code, const char* reason, void* self);

    void set_callbacks();
    void wake() const;
    [[nodiscard]] std::vector<std::string> ports(const char* pattern, unsigned long flags) const;
    [[nodiscard]] std::string find_microphone() const;
    [[nodiscard]] bool connect(const std::string& from, const std::string& to) const;
    void connect_microphone();
    [[nodiscard]] std::string connection() const;
    [[nodiscard]] uint32_t latency(jack_port_t* port, jack_latency_callback_mode_t mode) const;

    const BackendOptions options_;
    Processor& processor_;
    const int event_;
    GraphState state_;
    jack_client_t* client_ = nullptr;
    jack_port_t* in_ = nullptr;
    jack_port_t* out_ = nullptr;
    std::string connected_;  // the microphone that was connected when it appeared
    std::atomic<uint32_t> voice_delay_{0};
    std::atomic<bool> lost_{false};
    std::string why_lost_;  // before lost_ is set
};

JackBackend::~JackBackend() {
    if (client_ != nullptr) jack_client_close(client_);
    close(event_);
}

std::string JackBackend::open() {
    jack_set_error_function([](const char*) {});
    jack_set_info_function([](const char*) {});
    client_ = jack_client_open(kClientName, JackNoStartServer, nullptr);
    if (client_ == nullptr) return "no JACK server is running";
    in_ = jack_port_register(client_, "in", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
    out_ = jack_port_register(client_, "out", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
    if (in_ == nullptr || out_ == nullptr) return "the JACK server has no ports left";
    if (find_microphone().empty()) {
        return options_.microphone.empty()
                       ? "there is no microphone: the JACK server has no capture port"
                       : "there is no microphone '" + options_.microphone + "'";
    }
    state_.offered = std::string("the port ") + jack_port_name(out_);
    set_callbacks();
    if (jack_activate(client_) != 0) return "the JACK server does not take the client";
    set_monitor(options_.monitor);
    dispatch();
    return "";
}

void JackBackend::set_callbacks() {
    jack_set_process_callback(client_, process, this);
    jack_set_latency_callback(client_, set_latencies, this);
    jack_on_info_shutdown(client_, on_shutdown, this);
    jack_set_port_registration_callback(
            client_,
            [](jack_port_id_t, int, void* self) { static_cast<JackBackend*>(self)->wake(); }, this);
    jack_set_graph_order_callback(
            client_,
            [](void* self) {
                static_cast<JackBackend*>(self)->wake();
                return 0;
            },
            this);
}

void JackBackend::wake() const {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t done = write(event_, &one, sizeof one);
}

int JackBackend::process(jack_nframes_t frames, void* self) {
    auto& me = *static_cast<JackBackend*>(self);
    const auto* in = static_cast<const float*>(jack_port_get_buffer(me.in_, frames));
    auto* out = static_cast<float*>(jack_port_get_buffer(me.out_, frames));
    me.processor_.process(in, out, frames, static_cast<int>(jack_get_sample_rate(me.client_)));
    return 0;
}

/// What is captured comes out later by the voice's delay; what is played was captured so long ago.
void JackBackend::set_latencies(jack_latency_callback_mode_t mode, void* self) {
    auto& me = *static_cast<JackBackend*>(self);
    const bool capture = mode == JackCaptureLatency;
    jack_latency_range_t range;
    jack_port_get_latency_range(capture ? me.in_ : me.out_, mode, &range);
    range.min += me.voice_delay_.load(std::memory_order_relaxed);
    range.max += me.voice_delay_.load(std::memory_order_relaxed);
    jack_port_set_latency_range(capture ? me.out_ : me.in_, mode, &range);
    me.wake();
}

void JackBackend::on_shutdown(jack_status_t /*code*/, const char* reason, void* self) {
    auto& me = *static_cast<JackBackend*>(self);
    if (me.lost_.load()) return;
    me.why_lost_ = reason;
    me.lost_.store(true);
    me.wake();
}

std::vector<std::string> JackBackend::ports(const char* pattern, unsigned long flags) const {
    const Names names(jack_get_ports(client_, pattern, JACK_DEFAULT_AUDIO_TYPE, flags));
    std::vector<std::string> found;
    for (const char** name = names.get(); name != nullptr && *name != nullptr; ++name)
        found.emplace_back(*name);
    return found;
}

/// A port's name, or a client's, whose first port it is then; otherwise the first of the hardware.
std::string JackBackend::find_microphone() const {
    const std::string& wanted = options_.microphone;
    const unsigned long hardware = wanted.empty() ? JackPortIsPhysical : 0;
    for (const std::string& port : ports(nullptr, JackPortIsOutput | hardware)) {
        if (port == jack_port_name(out_)) continue;
        if (wanted.empty() || port == wanted || port.starts_with(wanted + ":")) return port;
    }
    return "";
}

/// False while one of them is not active yet.
bool JackBackend::connect(const std::string& from, const std::string& to) const {
    const int error = jack_connect(client_, from.c_str(), to.c_str());
    return error == 0 || error == EEXIST;
}

/// Once when it appears: who takes the connection away later wants it so.
void JackBackend::connect_microphone() {
    const std::string microphone = find_microphone();
    if (microphone == connected_) return;
    const bool there = !microphone.empty() && connect(microphone, jack_port_name(in_));
    connected_ = there ? microphone : "";
}

std::string JackBackend::connection() const {
    const Names heard(jack_port_get_all_connections(client_, in_));
    return heard ? heard.get()[0] : "";
}

uint32_t JackBackend::latency(jack_port_t* port, jack_latency_callback_mode_t mode) const {
    jack_latency_range_t range;
    jack_port_get_latency_range(port, mode, &range);
    return range.max;
}

void JackBackend::dispatch() {
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t done = read(event_, &count, sizeof count);
    if (lost_.load()) {
        state_.lost = kServerGone + (why_lost_.empty() ? "it has ended" : why_lost_);
        return;
    }
    connect_microphone();
    state_.microphone = connection();
    state_.rate_hz = static_cast<int>(jack_get_sample_rate(client_));
    state_.period_frames = jack_get_buffer_size(client_);
    state_.delay_frames = latency(in_, JackCaptureLatency) + latency(out_, JackPlaybackLatency);
}

void JackBackend::set_monitor(bool on) {
    state_.monitor = "";
    const auto playback = ports(nullptr, JackPortIsInput | JackPortIsPhysical);
    for (size_t i = 0; i < playback.size() && i < 2; ++i) {
        if (!on) {
            jack_disconnect(client_, jack_port_name(out_), playback[i].c_str());
            continue;
        }
        if (connect(jack_port_name(out_), playback[i])) state_.monitor = playback[0];
    }
}

void JackBackend::set_voice_delay(uint32_t frames) {
    if (voice_delay_.exchange(frames) != frames) jack_recompute_total_latencies(client_);
}

}  // namespace

KREL_LIVE_BACKEND Backend* krel_open_live_backend(const BackendOptions& options,
                                                  Processor& processor, std::string& error) {
    auto backend = std::make_unique<JackBackend>(options, processor);
    error = backend->open();
    return error.empty() ? backend.release() : nullptr;
}

}  // namespace krel::host::live
