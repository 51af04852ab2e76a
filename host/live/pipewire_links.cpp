// SPDX-License-Identifier: Apache-2.0
#include "host/live/pipewire_links.h"

#include <string>

namespace krel::host::live {

const pw_proxy_events PipewireLinks::kEvents = {
        .version = PW_VERSION_PROXY_EVENTS,
        .removed = on_removed,
};

PipewireLinks::Link::~Link() {
    if (proxy == nullptr) return;
    spa_hook_remove(&hook);
    pw_proxy_destroy(proxy);
}

void PipewireLinks::on_removed(void* link) {
    auto& me = *static_cast<Link*>(link);
    spa_hook_remove(&me.hook);
    pw_proxy_destroy(me.proxy);
    me.proxy = nullptr;
}

std::unique_ptr<PipewireLinks::Link> PipewireLinks::make(const PortPair& ports) {
    auto link = std::make_unique<Link>();
    const std::string from = std::to_string(ports.first);
    const std::string to = std::to_string(ports.second);
    const spa_dict_item items[] = {{PW_KEY_LINK_OUTPUT_PORT, from.c_str()},
                                   {PW_KEY_LINK_INPUT_PORT, to.c_str()}};
    const spa_dict properties = {.flags = 0, .n_items = std::size(items), .items = items};
    link->proxy = static_cast<pw_proxy*>(pw_core_create_object(
            core_, "link-factory", PW_TYPE_INTERFACE_Link, PW_VERSION_LINK, &properties, 0));
    if (link->proxy != nullptr)
        pw_proxy_add_listener(link->proxy, &link->hook, &kEvents, link.get());
    return link;
}

void PipewireLinks::keep(const std::set<PortPair>& wanted) {
    std::erase_if(links_, [&](const auto& link) { return !wanted.contains(link.first); });
    for (const PortPair& ports : wanted) {
        if (!links_.contains(ports)) links_[ports] = make(ports);
    }
}

bool PipewireLinks::has(const PortPair& ports) const {
    const auto found = links_.find(ports);
    return found != links_.end() && found->second->proxy != nullptr;
}

}  // namespace krel::host::live
