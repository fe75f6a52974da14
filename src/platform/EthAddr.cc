// EthAddr parsing and printing.
#include "platform/EthAddr.h"

#include <cstring>

namespace Konet {
namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

EthAddr::EthAddr(const uint8_t* bytes) { std::memcpy(bytes_.data(), bytes, 6); }

std::optional<EthAddr> EthAddr::parse(std::string_view text) {
  std::string digits;
  char separator = 0;
  for (char c : text) {
    if (hexDigit(c) >= 0) {
      digits.push_back(c);
      continue;
    }
    if (c != ':' && c != '-' && c != '.') return std::nullopt;
    if (separator && c != separator) return std::nullopt;
    separator = c;
  }
  if (digits.size() != 12) return std::nullopt;
  // Separators must sit between whole groups: pairs for ':' and '-', quads for '.'.
  const size_t group = separator == '.' ? 4 : 2;
  if (separator) {
    size_t run = 0;
    for (char c : text) {
      if (c == separator) {
        if (run != group) return std::nullopt;
        run = 0;
      } else {
        ++run;
      }
    }
    if (run != group) return std::nullopt;
  }
  EthAddr addr;
  for (size_t i = 0; i < 6; ++i) {
    addr.bytes_[i] = static_cast<uint8_t>(hexDigit(digits[2 * i]) * 16 + hexDigit(digits[2 * i + 1]));
  }
  return addr;
}

bool EthAddr::isZero() const {
  for (uint8_t b : bytes_) {
    if (b) return false;
  }
  return true;
}

std::string EthAddr::toString(char separator) const {
  static const char* const kHex = "0123456789abcdef";
  std::string out;
  for (size_t i = 0; i < 6; ++i) {
    if (i && separator) out.push_back(separator);
    out.push_back(kHex[bytes_[i] >> 4]);
    out.push_back(kHex[bytes_[i] & 0xf]);
  }
  return out;
}

std::ostream& operator<<(std::ostream& os, const EthAddr& addr) { return os << addr.toString(); }

}  // namespace Konet
