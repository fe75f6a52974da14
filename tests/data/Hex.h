// Hexadecimal fixtures into bytes: pairs of digits, anything else between them ignored, and a
// '#' starting a comment that runs to the end of its line.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace SampleFrames {

inline std::vector<uint8_t> hexBytes(std::string_view text) {
  std::vector<uint8_t> out;
  int high = -1;
  bool comment = false;
  for (char c : text) {
    if (c == '#' || c == '\n') comment = c == '#';
    if (comment) continue;
    const int v = c >= '0' && c <= '9' ? c - '0'
                  : c >= 'a' && c <= 'f' ? c - 'a' + 10
                  : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                         : -1;
    if (v < 0) continue;
    if (high < 0) {
      high = v;
      continue;
    }
    out.push_back(static_cast<uint8_t>(high * 16 + v));
    high = -1;
  }
  return out;
}

}  // namespace SampleFrames
