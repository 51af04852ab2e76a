// SPDX-License-Identifier: Apache-2.0
// What a PipeWire daemon has: nodes and their audio ports, and which of them are the default ones.
#ifndef KREL_HOST_LIVE_PIPEWIRE_GRAPH_H
#define KREL_HOST_LIVE_PIPEWIRE_GRAPH_H

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <map>
#include <string>
#include <vector>

namespace krel::host::live {

struct GraphNode {
    uint32_t id;
    std::string serial;
    std::string name;         // unique, for machines
    std::string description;  // for people
    std::string media_class;
    int priority;  // among its kind, as the session manager sees it
};

struct GraphPort {
    uint32_t id;
    uint32_t node;
    uint32_t number;  // within its node and direction
    bool output;
};

/// Follows the daemon's registry while its loop is run. One thread.
class PipewireGraph {
  public:
    explicit PipewireGraph(pw_core* core);
    ~PipewireGraph();
    PipewireGraph(const PipewireGraph&) = delete;
    PipewireGraph& operator=(const PipewireGraph&) = delete;

    [[nodiscard]] const std::map<uint32_t, GraphNode>& nodes() const { return nodes_; }
    /// Where applications' sound is recorded and played unless they say otherwise: a node's name.
    [[nodiscard]] const std::string& default_source() const { return default_source_; }
    [[nodiscard]] const std::string& default_sink() const { return default_sink_; }

    /// In their order. A sink's outputs are what it plays.
    [[nodiscard]] std::vector<uint32_t> ports(uint32_t node, bool output) const;
    [[nodiscard]] bool has_port(uint32_t id) const { return ports_.contains(id); }

  private:
    static void on_global(void* self, uint32_t id, uint32_t permissions, const char* type,
                          uint32_t version, const spa_dict* properties);
    static void on_global_remove(void* self, uint32_t id);
    static int on_property(void* self, uint32_t subject, const char* key, const char* type,
                           const char* value);

    void add_port(uint32_t id, const spa_dict* properties);
    void bind_defaults(uint32_t id);
    void forget_defaults();

    static const pw_registry_events kRegistryEvents;
    static const pw_metadata_events kMetadataEvents;

    pw_registry* registry_;
    pw_metadata* defaults_ = nullptr;
    uint32_t defaults_id_ = 0;
    spa_hook registry_hook_ = {};
    spa_hook metadata_hook_ = {};
    std::map<uint32_t, GraphNode> nodes_;
    std::map<uint32_t, GraphPort> ports_;
    std::string default_source_;
    std::string default_sink_;
};

}  // namespace krel::host::live

#endif
