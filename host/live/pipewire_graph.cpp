// SPDX-License-Identifier: Apache-2.0
#include "host/live/pipewire_graph.h"

#include <spa/utils/json.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

namespace krel::host::live {
namespace {

/// A property, in one line. Some are what a device calls itself: no terminal shall obey it.
std::string text(const spa_dict* properties, const char* key) {
    const char* value = properties == nullptr ? nullptr : spa_dict_lookup(properties, key);
    std::string line = value == nullptr ? "" : value;
    std::ranges::replace_if(
            line, [](unsigned char c) { return c < ' ' || c == 0x7f; }, ' ');
    return line;
}

uint32_t number(const spa_dict* properties, const char* key) {
    return static_cast<uint32_t>(strtoul(text(properties, key).c_str(), nullptr, 10));
}

GraphNode node(uint32_t id, const spa_dict* properties) {
    return {.id = id,
            .serial = text(properties, PW_KEY_OBJECT_SERIAL),
            .name = text(properties, PW_KEY_NODE_NAME),
            .description = text(properties, PW_KEY_NODE_DESCRIPTION),
            .media_class = text(properties, PW_KEY_MEDIA_CLASS),
            .priority = static_cast<int>(number(properties, PW_KEY_PRIORITY_SESSION))};
}

/// The name in {"name":"..."}.
std::string name_in(const char* json) {
    if (json == nullptr) return "";
    spa_json outer = {};
    spa_json object = {};
    spa_json_init(&outer, json, strlen(json));
    if (spa_json_enter_object(&outer, &object) <= 0) return "";
    char key[64];
    char value[1024];
    while (spa_json_get_string(&object, key, sizeof key) > 0) {
        if (spa_json_get_string(&object, value, sizeof value) <= 0) break;
        if (strcmp(key, "name") == 0) return value;
    }
    return "";
}

}  // namespace

const pw_registry_events PipewireGraph::kRegistryEvents = {
        .version = PW_VERSION_REGISTRY_EVENTS,
        .global = on_global,
        .global_remove = on_global_remove,
};

const pw_metadata_events PipewireGraph::kMetadataEvents = {
        .version = PW_VERSION_METADATA_EVENTS,
        .property = on_property,
};

PipewireGraph::PipewireGraph(pw_core* core)
    : registry_(pw_core_get_registry(core, PW_VERSION_REGISTRY, 0)) {
    pw_registry_add_listener(registry_, &registry_hook_, &kRegistryEvents, this);
}

PipewireGraph::~PipewireGraph() {
    forget_defaults();
    spa_hook_remove(&registry_hook_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
}

void PipewireGraph::on_global(void* self, uint32_t id, uint32_t /*permissions*/, const char* type,
                              uint32_t /*version*/, const spa_dict* properties) {
    auto& me = *static_cast<PipewireGraph*>(self);
    if (strcmp(type, PW_TYPE_INTERFACE_Node) == 0) me.nodes_[id] = node(id, properties);
    if (strcmp(type, PW_TYPE_INTERFACE_Port) == 0) me.add_port(id, properties);
    if (strcmp(type, PW_TYPE_INTERFACE_Metadata) == 0 &&
        text(properties, PW_KEY_METADATA_NAME) == "default") {
        me.bind_defaults(id);
    }
}

void PipewireGraph::on_global_remove(void* self, uint32_t id) {
    auto& me = *static_cast<PipewireGraph*>(self);
    me.nodes_.erase(id);
    me.ports_.erase(id);
    if (id == me.defaults_id_) me.forget_defaults();
}

void PipewireGraph::add_port(uint32_t id, const spa_dict* properties) {
    if (text(properties, PW_KEY_FORMAT_DSP).find("audio") == std::string::npos) return;
    ports_[id] = {.id = id,
                  .node = number(properties, PW_KEY_NODE_ID),
                  .number = number(properties, PW_KEY_PORT_ID),
                  .output = text(properties, PW_KEY_PORT_DIRECTION) == "out"};
}

void PipewireGraph::bind_defaults(uint32_t id) {
    forget_defaults();
    defaults_ = static_cast<pw_metadata*>(
            pw_registry_bind(registry_, id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
    if (defaults_ == nullptr) return;
    defaults_id_ = id;
    pw_metadata_add_listener(defaults_, &metadata_hook_, &kMetadataEvents, this);
}

/// The session manager keeps them, and may end.
void PipewireGraph::forget_defaults() {
    if (defaults_ == nullptr) return;
    spa_hook_remove(&metadata_hook_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(defaults_));
    defaults_ = nullptr;
}

int PipewireGraph::on_property(void* self, uint32_t /*subject*/, const char* key,
                               const char* /*type*/, const char* value) {
    auto& me = *static_cast<PipewireGraph*>(self);
    if (key == nullptr) return 0;
    if (strcmp(key, "default.audio.source") == 0) me.default_source_ = name_in(value);
    if (strcmp(key, "default.audio.sink") == 0) me.default_sink_ = name_in(value);
    return 0;
}

std::vector<uint32_t> PipewireGraph::ports(uint32_t node, bool output) const {
    std::vector<const GraphPort*> found;
    for (const auto& [id, port] : ports_) {
        if (port.node == node && port.output == output) found.push_back(&port);
    }
    std::ranges::sort(found, {}, &GraphPort::number);
    std::vector<uint32_t> ids;
    ids.reserve(found.size());
    for (const GraphPort* port : found) ids.push_back(port->id);
    return ids;
}

}  // namespace krel::host::live
