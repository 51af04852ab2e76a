// SPDX-License-Identifier: Apache-2.0
// A node in PipeWire's graph, between the microphone and a virtual microphone, "Krel voice".
//
// The node itself has ports at the graph's own rate and period, nothing in between. Programs list
// and choose microphones only; so a null device stands behind it that has the look of one.
#include <pipewire/filter.h>
#include <pipewire/pipewire.h>
#include <spa/param/latency-utils.h>
#include <spa/pod/builder.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>

#include "host/live/backend.h"
#include "host/live/pipewire_graph.h"
#include "host/live/pipewire_links.h"

namespace krel::host::live {
namespace {

using std::chrono::steady_clock;

constexpr char kMicrophoneName[] = "krel-voice";
constexpr char kFilterName[] = "krel-voice-filter";
constexpr char kShownName[] = "Krel voice";
constexpr char kPeriod[] = "256/48000";  // what we ask for; the graph decides
constexpr std::chrono::seconds kAnswerTime{5};
constexpr int kPollMs = 50;
constexpr char kRemoved[] = "another program has removed the voice from PipeWire";

template <auto destroy>
struct Destroy {
    void operator()(auto* object) const { destroy(object); }
};
using MainLoop = std::unique_ptr<pw_main_loop, Destroy<pw_main_loop_destroy>>;
using Context = std::unique_ptr<pw_context, Destroy<pw_context_destroy>>;
using Filter = std::unique_ptr<pw_filter, Destroy<pw_filter_destroy>>;

bool holds(const std::string& text, const std::string& part) {
    const auto same = [](unsigned char a, unsigned char b) { return tolower(a) == tolower(b); };
    return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

bool is_ours(const GraphNode& node) {
    return node.name == kMicrophoneName || node.name == kFilterName;
}

bool is_microphone(const GraphNode& node) {
    return node.media_class.starts_with("Audio/Source") || node.media_class == "Audio/Duplex";
}

std::string shown_name(const GraphNode& node) {
    return node.description.empty() ? node.name : node.description;
}

class PipewireBackend final : public Backend {
  public:
    PipewireBackend(const BackendOptions& options, Processor& processor)
        : options_(options), processor_(processor), monitor_(options.monitor) {}
    ~PipewireBackend() override;
    PipewireBackend(const PipewireBackend&) = delete;
    PipewireBackend& operator=(const PipewireBackend&) = delete;

    /// Why not, or nothing.
    std::string open();

    [[nodiscard]] int fd() const override { return pw_loop_get_fd(loop()); }
    void dispatch() override;
    [[nodiscard]] const GraphState& state() const override { return state_; }
    void set_monitor(bool on) override;
    void set_voice_delay(uint32_t frames) override;

  private:
    static void on_process(void* self, spa_io_position* position);
    static void on_state(void* self, pw_filter_state old, pw_filter_state state, const char* error);
    static void on_param(void* self, void* port, uint32_t id, const spa_pod* param);
    static void on_done(void* self, uint32_t id, int sequence);
    static void on_error(void* self, uint32_t id, int sequence, int result, const char* message);
    static void on_removed(void* self);
    static const pw_filter_events kFilterEvents;
    static const pw_proxy_events kMicrophoneEvents;
    static const pw_core_events kCoreEvents;

    [[nodiscard]] pw_loop* loop() const { return pw_main_loop_get_loop(loop_.get()); }
    std::string connect();
    bool make_filter();
    void* add_port(pw_direction direction, const char* name);
    bool make_microphone();
    [[nodiscard]] bool iterate(int wait_ms) const;
    template <typename Done>
    bool wait_for(Done done);
    bool round_trip();
    [[nodiscard]] bool is_connected() const;

    [[nodiscard]] const GraphNode* named(const std::string& name) const;
    [[nodiscard]] const GraphNode* wanted_microphone() const;
    [[nodiscard]] const GraphNode* best_microphone() const;
    [[nodiscard]] const GraphNode* find_named(auto property) const;
    [[nodiscard]] std::string no_microphone() const;
    void tell_latencies();
    void tell_latency(void* port, spa_direction direction);
    void update_links();
    void update_state();

    const BackendOptions options_;
    Processor& processor_;
    GraphState state_;
    bool monitor_;
    bool entered_ = false;
    int synced_ = -1;
    uint32_t voice_delay_ = 0;
    spa_latency_info latency_[2] = {SPA_LATENCY_INFO(SPA_DIRECTION_INPUT),
                                    SPA_LATENCY_INFO(SPA_DIRECTION_OUTPUT)};  // by direction

    MainLoop loop_;
    Context context_;
    pw_core* core_ = nullptr;  // the context's
    spa_hook core_hook_ = {};
    std::unique_ptr<PipewireGraph> graph_;
    std::unique_ptr<PipewireLinks> links_;
    pw_proxy* microphone_ = nullptr;
    spa_hook microphone_hook_ = {};
    Filter filter_;
    spa_hook filter_hook_ = {};
    void* in_ = nullptr;
    void* out_ = nullptr;

    // From the audio thread.
    std::atomic<int> rate_hz_{0};
    std::atomic<uint32_t> period_{0};
};

const pw_filter_events PipewireBackend::kFilterEvents = {
        .version = PW_VERSION_FILTER_EVENTS,
        .state_changed = on_state,
        .param_changed = on_param,
        .process = on_process,
};

const pw_proxy_events PipewireBackend::kMicrophoneEvents = {
        .version = PW_VERSION_PROXY_EVENTS,
        .removed = on_removed,
};

const pw_core_events PipewireBackend::kCoreEvents = {
        .version = PW_VERSION_CORE_EVENTS,
        .done = on_done,
        .error = on_error,
};

// ---- coming and going ---------------------------------------------------------------------------

std::string PipewireBackend::open() {
    if (getenv("PIPEWIRE_DEBUG") == nullptr) setenv("PIPEWIRE_DEBUG", "0", 0);
    pw_init(nullptr, nullptr);
    if (std::string error = connect(); !error.empty()) return error;
    if (wanted_microphone() == nullptr) return no_microphone();
    if (!make_filter() || !make_microphone()) return "PipeWire does not take the voice";
    state_.offered = std::string("the microphone '") + kShownName + "'";
    if (wait_for([this] { return is_connected(); })) return "";
    if (!state_.lost.empty()) return state_.lost;
    return "PipeWire does not connect the voice: no session manager runs";
}

std::string PipewireBackend::connect() {
    loop_.reset(pw_main_loop_new(nullptr));
    if (!loop_) return "out of memory";
    pw_loop_enter(loop());
    entered_ = true;
    auto* properties = pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr);
    context_.reset(pw_context_new(loop(), properties, 0));
    if (!context_) return std::string("PipeWire cannot be used: ") + strerror(errno);
    core_ = pw_context_connect(context_.get(), nullptr, 0);
    if (core_ == nullptr) return "no PipeWire daemon is running";
    pw_core_add_listener(core_, &core_hook_, &kCoreEvents, this);
    graph_ = std::make_unique<PipewireGraph>(core_);
    links_ = std::make_unique<PipewireLinks>(core_);
    // Twice: the first answer names the defaults' place, the second has what it holds.
    return round_trip() && round_trip() ? "" : "the PipeWire daemon does not answer";
}

PipewireBackend::~PipewireBackend() {
    filter_.reset();
    links_.reset();
    if (microphone_ != nullptr) {
        spa_hook_remove(&microphone_hook_);
        pw_proxy_destroy(microphone_);
    }
    graph_.reset();
    if (core_ != nullptr) {
        spa_hook_remove(&core_hook_);
        pw_core_disconnect(core_);
    }
    context_.reset();
    if (entered_) pw_loop_leave(loop());
    loop_.reset();
    pw_deinit();
}

bool PipewireBackend::make_filter() {
    auto* properties = pw_properties_new(PW_KEY_NODE_NAME, kFilterName, PW_KEY_NODE_DESCRIPTION,
                                         "Krel voice (effect)", PW_KEY_MEDIA_TYPE, "Audio",
                                         PW_KEY_MEDIA_CATEGORY, "Filter", PW_KEY_MEDIA_ROLE, "DSP",
                                         PW_KEY_NODE_LATENCY, kPeriod, nullptr);
    filter_.reset(pw_filter_new(core_, kFilterName, properties));
    if (!filter_) return false;
    pw_filter_add_listener(filter_.get(), &filter_hook_, &kFilterEvents, this);
    constexpr auto kFlags =
            static_cast<pw_filter_flags>(PW_FILTER_FLAG_RT_PROCESS | PW_FILTER_FLAG_CUSTOM_LATENCY);
    in_ = add_port(PW_DIRECTION_INPUT, "in");
    out_ = add_port(PW_DIRECTION_OUTPUT, "out");
    return in_ != nullptr && out_ != nullptr &&
           pw_filter_connect(filter_.get(), kFlags, nullptr, 0) == 0;
}

void* PipewireBackend::add_port(pw_direction direction, const char* name) {
    auto* properties = pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio",
                                         PW_KEY_PORT_NAME, name, nullptr);
    return pw_filter_add_port(filter_.get(), direction, PW_FILTER_PORT_FLAG_MAP_BUFFERS,
                              sizeof(void*), properties, nullptr, 0);
}

/// With the lowest priority: it must not become the default by itself, for then our own input, and
/// everybody's, would be moved to it.
bool PipewireBackend::make_microphone() {
    const spa_dict_item items[] = {{"factory.name", "support.null-audio-sink"},
                                   {PW_KEY_NODE_NAME, kMicrophoneName},
                                   {PW_KEY_NODE_DESCRIPTION, kShownName},
                                   {PW_KEY_MEDIA_CLASS, "Audio/Source/Virtual"},
                                   {PW_KEY_NODE_VIRTUAL, "true"},
                                   {PW_KEY_PRIORITY_SESSION, "1"},
                                   {"audio.position", "[ MONO ]"}};
    const spa_dict properties = {.flags = 0, .n_items = std::size(items), .items = items};
    microphone_ = static_cast<pw_proxy*>(pw_core_create_object(
            core_, "adapter", PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &properties, 0));
    if (microphone_ == nullptr) return false;
    pw_proxy_add_listener(microphone_, &microphone_hook_, &kMicrophoneEvents, this);
    return true;
}

/// False when a signal came.
bool PipewireBackend::iterate(int wait_ms) const {
    return pw_loop_iterate(loop(), wait_ms) != -EINTR;
}

/// Runs the loop until something holds; false when it does not in time, or when a signal comes.
template <typename Done>
bool PipewireBackend::wait_for(Done done) {
    const auto end = steady_clock::now() + kAnswerTime;
    while (!done()) {
        if (!state_.lost.empty() || steady_clock::now() > end) return false;
        if (!iterate(kPollMs)) return false;
        if (filter_) dispatch();
    }
    return true;
}

/// To a microphone, and to what other programs choose, whose ports come from the session manager.
bool PipewireBackend::is_connected() const {
    return !state_.microphone.empty() && period_ > 0 &&
           !graph_->ports(pw_proxy_get_bound_id(microphone_), false).empty();
}

bool PipewireBackend::round_trip() {
    const int sequence = pw_core_sync(core_, PW_ID_CORE, 0);
    return wait_for([&] { return synced_ == sequence; });
}

// ---- events, on this thread ---------------------------------------------------------------------

void PipewireBackend::on_done(void* self, uint32_t id, int sequence) {
    if (id == PW_ID_CORE) static_cast<PipewireBackend*>(self)->synced_ = sequence;
}

void PipewireBackend::on_error(void* self, uint32_t id, int /*sequence*/, int result,
                               const char* message) {
    if (id == PW_ID_CORE && result == -EPIPE)
        static_cast<PipewireBackend*>(self)->state_.lost = std::string(kServerGone) + message;
}

void PipewireBackend::on_state(void* self, pw_filter_state /*old*/, pw_filter_state state,
                               const char* error) {
    auto& me = *static_cast<PipewireBackend*>(self);
    const bool ended = state == PW_FILTER_STATE_ERROR || state == PW_FILTER_STATE_UNCONNECTED;
    if (ended && me.state_.lost.empty()) me.state_.lost = error == nullptr ? kRemoved : error;
}

void PipewireBackend::on_removed(void* self) {
    auto& me = *static_cast<PipewireBackend*>(self);
    if (me.state_.lost.empty()) me.state_.lost = kRemoved;
}

void PipewireBackend::on_param(void* self, void* port, uint32_t id, const spa_pod* param) {
    auto& me = *static_cast<PipewireBackend*>(self);
    spa_latency_info info;
    if (port == nullptr || id != SPA_PARAM_Latency || param == nullptr) return;
    if (spa_latency_parse(param, &info) < 0) return;
    // What comes in was captured so long ago; what goes out is played so much later.
    const bool from_outside = (port == me.in_) == (info.direction == SPA_DIRECTION_OUTPUT);
    if (!from_outside || spa_latency_info_compare(&me.latency_[info.direction], &info) == 0) return;
    me.latency_[info.direction] = info;
    me.tell_latencies();
}

// ---- the audio thread ---------------------------------------------------------------------------

void PipewireBackend::on_process(void* self, spa_io_position* position) {
    auto& me = *static_cast<PipewireBackend*>(self);
    const auto frames = static_cast<uint32_t>(position->clock.duration);
    const auto rate_hz = static_cast<int>(position->clock.rate.denom);
    me.rate_hz_.store(rate_hz, std::memory_order_relaxed);
    me.period_.store(frames, std::memory_order_relaxed);
    const auto* in = static_cast<const float*>(pw_filter_get_dsp_buffer(me.in_, frames));
    auto* out = static_cast<float*>(pw_filter_get_dsp_buffer(me.out_, frames));
    if (out != nullptr) me.processor_.process(in, out, frames, rate_hz);
}

// ---- who is connected ---------------------------------------------------------------------------

const GraphNode* PipewireBackend::find_named(auto property) const {
    for (const auto& [id, node] : graph_->nodes()) {
        if (!is_ours(node) && property(node)) return &node;
    }
    return nullptr;
}

const GraphNode* PipewireBackend::named(const std::string& name) const {
    if (name.empty()) return nullptr;
    return find_named([&](const GraphNode& n) { return n.name == name; });
}

const GraphNode* PipewireBackend::best_microphone() const {
    const GraphNode* best = nullptr;
    for (const auto& [id, node] : graph_->nodes()) {
        if (is_ours(node) || !is_microphone(node)) continue;
        if (best == nullptr || node.priority > best->priority) best = &node;
    }
    return best;
}

/// Null: it is not there.
const GraphNode* PipewireBackend::wanted_microphone() const {
    const std::string& wanted = options_.microphone;
    if (wanted.empty()) {
        const GraphNode* usual = named(graph_->default_source());
        return usual != nullptr && is_microphone(*usual) ? usual : best_microphone();
    }
    const GraphNode* exact = find_named([&](const GraphNode& n) {
        return n.name == wanted || n.description == wanted || n.serial == wanted;
    });
    if (exact != nullptr) return exact;
    return find_named([&](const GraphNode& n) {
        return is_microphone(n) && (holds(n.name, wanted) || holds(n.description, wanted));
    });
}

std::string PipewireBackend::no_microphone() const {
    std::string known;
    for (const auto& [id, node] : graph_->nodes()) {
        if (is_microphone(node) && !is_ours(node))
            known += (known.empty() ? "" : ", ") + shown_name(node);
    }
    if (options_.microphone.empty()) return "there is no microphone";
    return "there is no microphone '" + options_.microphone +
           (known.empty() ? "', and no other" : "': there are " + known);
}

void PipewireBackend::update_links() {
    const uint32_t filter = pw_filter_get_node_id(filter_.get());
    const auto in = graph_->ports(filter, false);
    const auto out = graph_->ports(filter, true);
    state_.microphone = state_.monitor = "";
    if (in.empty() || out.empty()) return;
    std::set<PortPair> wanted;
    const uint32_t ours = pw_proxy_get_bound_id(microphone_);
    for (const uint32_t port : graph_->ports(ours, false)) wanted.insert({out[0], port});
    const GraphNode* microphone = wanted_microphone();
    // The voice has one channel: of several the first.
    const auto heard = graph_->ports(microphone == nullptr ? SPA_ID_INVALID : microphone->id, true);
    if (!heard.empty()) wanted.insert({heard[0], in[0]});
    const GraphNode* sink = monitor_ ? named(graph_->default_sink()) : nullptr;
    const auto played = graph_->ports(sink == nullptr ? SPA_ID_INVALID : sink->id, false);
    for (const uint32_t port : played) wanted.insert({out[0], port});
    links_->keep(wanted);
    if (!heard.empty() && links_->has({heard[0], in[0]}))
        state_.microphone = shown_name(*microphone);
    if (!played.empty() && links_->has({out[0], played[0]})) state_.monitor = shown_name(*sink);
}

void PipewireBackend::update_state() {
    state_.rate_hz = rate_hz_.load(std::memory_order_relaxed);
    state_.period_frames = period_.load(std::memory_order_relaxed);
    state_.delay_frames = 0.0;
    for (const spa_latency_info& l : latency_) {
        state_.delay_frames += static_cast<double>(l.max_quantum) * state_.period_frames +
                               static_cast<double>(l.max_rate) +
                               1e-9 * static_cast<double>(l.max_ns) * state_.rate_hz;
    }
}

void PipewireBackend::dispatch() {
    (void)iterate(0);
    if (!state_.lost.empty()) return;
    update_links();
    update_state();
}

void PipewireBackend::set_monitor(bool on) {
    monitor_ = on;
    dispatch();
}

void PipewireBackend::set_voice_delay(uint32_t frames) {
    if (frames == voice_delay_) return;
    voice_delay_ = frames;
    tell_latencies();
}

/// What goes out was captured earlier by the voice's delay; what comes in is played so much later.
void PipewireBackend::tell_latencies() {
    tell_latency(out_, SPA_DIRECTION_OUTPUT);
    tell_latency(in_, SPA_DIRECTION_INPUT);
}

void PipewireBackend::tell_latency(void* port, spa_direction direction) {
    spa_latency_info info = latency_[direction];
    info.min_rate += voice_delay_;
    info.max_rate += voice_delay_;
    uint8_t buffer[512];
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, sizeof buffer);
    const spa_pod* params[] = {spa_latency_build(&builder, SPA_PARAM_Latency, &info)};
    pw_filter_update_params(filter_.get(), port, params, 1);
}

}  // namespace

KREL_LIVE_BACKEND Backend* krel_open_live_backend(const BackendOptions& options,
                                                  Processor& processor, std::string& error) {
    auto backend = std::make_unique<PipewireBackend>(options, processor);
    error = backend->open();
    return error.empty() ? backend.release() : nullptr;
}

}  // namespace krel::host::live
