// SPDX-License-Identifier: MIT
//
// Base64 with the standard alphabet and padding.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// Appends the `4 * ceil(size / 3)` characters of `size` bytes to `text`.
void AppendBase64(const unsigned char* data, std::size_t size, std::string* text);

// Replaces `data` by the bytes that `text` stands for. False when a character is not of the
// alphabet, or the padding is missing, misplaced or covers bits that are set.
bool DecodeBase64(std::string_view text, std::vector<unsigned char>* data);

}  // namespace corvane
