// SPDX-License-Identifier: Apache-2.0
// The plug-in's name and ports, for the code and for its description.
#ifndef KREL_LV2_PORTS_H
#define KREL_LV2_PORTS_H

namespace krel {

inline constexpr char kPluginUri[] = "urn:krel:voice";

enum Port { kIn, kOut, kVoice, kEnabled, kLatency, kFreeWheeling, kPorts };

inline constexpr int kDefaultVoice = 11;

}  // namespace krel

#endif
