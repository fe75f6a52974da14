// Escaping of untrusted text: one pass over UTF-8, decoding just enough to tell valid sequences
// and the code points that steer a terminal from the rest.
#include "platform/Text.h"

#include <cstdint>

namespace Platform {
namespace {

constexpr char kHex[] = "0123456789abcdef";

// The length of the valid UTF-8 sequence at s[i] and its code point; 0 when invalid (overlong
// forms, surrogates, beyond U+10FFFF, cut short).
size_t utf8At(std::string_view s, size_t i, uint32_t& cp) {
  const auto b = [&](size_t k) { return static_cast<unsigned char>(s[i + k]); };
  const unsigned char c = b(0);
  size_t n = 0;
  uint32_t min = 0;
  if (c >= 0xc2 && c <= 0xdf) {
    n = 2, min = 0x80, cp = c & 0x1f;
  } else if ((c & 0xf0) == 0xe0) {
    n = 3, min = 0x800, cp = c & 0x0f;
  } else if (c >= 0xf0 && c <= 0xf4) {
    n = 4, min = 0x10000, cp = c & 0x07;
  } else {
    return 0;
  }
  if (s.size() - i < n) return 0;
  for (size_t k = 1; k < n; ++k) {
    if ((b(k) & 0xc0) != 0x80) return 0;
    cp = cp << 6 | (b(k) & 0x3f);
  }
  if (cp < min || cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff)) return 0;
  return n;
}

// Code points that are valid but act on the display rather than show something.
bool steers(uint32_t cp) {
  return (cp >= 0x80 && cp <= 0x9f) || cp == 0x2028 || cp == 0x2029 || cp == 0x200e || cp == 0x200f ||
         (cp >= 0x202a && cp <= 0x202e) || (cp >= 0x2066 && cp <= 0x2069);
}

void byteEscape(std::string& out, unsigned char c) {
  switch (c) {
    case '\n': out += "\\n"; return;
    case '\r': out += "\\r"; return;
    case '\t': out += "\\t"; return;
    default:
      out += "\\x";
      out += kHex[c >> 4];
      out += kHex[c & 15];
  }
}

void codePointEscape(std::string& out, uint32_t cp) {
  out += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) out += kHex[(cp >> shift) & 15];
}

// Where the first byte at or after from that must be escaped is; text.size() when none is.
size_t safeUntil(std::string_view text, size_t from) {
  for (size_t i = from; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c < 0x7f) {
      ++i;
      continue;
    }
    uint32_t cp = 0;
    const size_t n = c < 0x80 ? 0 : utf8At(text, i, cp);
    if (n == 0 || steers(cp)) return i;
    i += n;
  }
  return text.size();
}

}  // namespace

bool isPrintable(std::string_view text) { return safeUntil(text, 0) == text.size(); }

void appendPrintable(std::string& out, std::string_view text) {
  for (size_t at = 0; at < text.size();) {
    const size_t unsafe = safeUntil(text, at);
    out.append(text.substr(at, unsafe - at));
    if (unsafe == text.size()) return;
    uint32_t cp = 0;
    const auto c = static_cast<unsigned char>(text[unsafe]);
    const size_t n = c < 0x80 ? 0 : utf8At(text, unsafe, cp);
    if (n == 0) {
      byteEscape(out, c);
      at = unsafe + 1;
    } else {
      codePointEscape(out, cp);
      at = unsafe + n;
    }
  }
}

std::string printable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  appendPrintable(out, text);
  return out;
}

size_t displayWidth(std::string_view text) {
  size_t width = 0;
  for (unsigned char c : text) width += (c & 0xc0) != 0x80;
  return width;
}

}  // namespace Platform
