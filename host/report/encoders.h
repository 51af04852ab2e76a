// SPDX-License-Identifier: Apache-2.0
// What a page can hold: sounds as Ogg Opus, pictures as PNG, both as text.
#ifndef KREL_HOST_REPORT_ENCODERS_H
#define KREL_HOST_REPORT_ENCODERS_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/report/spectrogram.h"

namespace krel::host {

/// Mono samples, full scale +-1, as an Ogg Opus file of some 64 kbit/s. Rates that Opus does not
/// take are converted to the next higher that it takes, at most 48 kHz. Throws Error.
std::string encode_opus(std::span<const float> samples, int rate_hz);

/// As dark ink on transparent ground: nothing stays clear, the loudest is all but black.
/// Throws Error.
std::string encode_png(const Picture& picture);

/// A data: address for bytes of this media type.
std::string data_url(std::string_view media_type, std::string_view bytes);

}  // namespace krel::host

#endif
