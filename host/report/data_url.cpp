// SPDX-License-Identifier: Apache-2.0
#include <stdint.h>

#include "host/report/encoders.h"

namespace krel::host {
namespace {

constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Up to three bytes as four characters.
void append_group(std::string& text, std::string_view bytes) {
    uint32_t group = 0;
    for (size_t i = 0; i < 3; ++i) {
        group = group << 8 | (i < bytes.size() ? static_cast<uint8_t>(bytes[i]) : 0U);
    }
    for (size_t i = 0; i < 4; ++i) {
        text += i <= bytes.size() ? kDigits[group >> (18 - 6 * i) & 63] : '=';
    }
}

}  // namespace

std::string data_url(std::string_view media_type, std::string_view bytes) {
    std::string text = "data:" + std::string(media_type) + ";base64,";
    text.reserve(text.size() + bytes.size() / 3 * 4 + 4);
    for (size_t i = 0; i < bytes.size(); i += 3) append_group(text, bytes.substr(i, 3));
    return text;
}

}  // namespace krel::host
