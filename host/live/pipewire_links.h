// SPDX-License-Identifier: Apache-2.0
// Connections that a client of PipeWire makes between ports.
#ifndef KREL_HOST_LIVE_PIPEWIRE_LINKS_H
#define KREL_HOST_LIVE_PIPEWIRE_LINKS_H

#include <pipewire/pipewire.h>

#include <map>
#include <memory>
#include <set>
#include <utility>

namespace krel::host::live {

/// An output port and an input port, by their ids.
using PortPair = std::pair<uint32_t, uint32_t>;

class PipewireLinks {
  public:
    explicit PipewireLinks(pw_core* core) : core_(core) {}

    /// Makes what is missing and removes what is no longer wanted. A link that somebody else
    /// removed stays removed for as long as it is wanted.
    void keep(const std::set<PortPair>& wanted);
    [[nodiscard]] bool has(const PortPair& ports) const;

  private:
    struct Link {
        ~Link();
        pw_proxy* proxy = nullptr;  // null: removed by somebody else
        spa_hook hook = {};
    };
    static void on_removed(void* link);
    static const pw_proxy_events kEvents;

    std::unique_ptr<Link> make(const PortPair& ports);

    pw_core* core_;
    std::map<PortPair, std::unique_ptr<Link>> links_;
};

}  // namespace krel::host::live

#endif
