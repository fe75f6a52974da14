// Parsing of the metrics endpoint's listen address.
#include "metrics/ListenAddress.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstring>

namespace Metrics {

namespace {

bool portOf(std::string_view text, uint16_t& port) {
  unsigned value = 0;
  const auto r = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || r.ec != std::errc() || r.ptr != text.data() + text.size() || value > 65535) return false;
  port = static_cast<uint16_t>(value);
  return true;
}

}  // namespace

uint16_t ListenAddress::port() const {
  if (family() == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in&>(addr).sin_port);
  return ntohs(reinterpret_cast<const sockaddr_in6&>(addr).sin6_port);
}

std::string ListenAddress::text() const {
  char host[INET6_ADDRSTRLEN] = "";
  if (family() == AF_INET) {
    ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in&>(addr).sin_addr, host, sizeof host);
    return std::string(host) + ":" + std::to_string(port());
  }
  ::inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6&>(addr).sin6_addr, host, sizeof host);
  return "[" + std::string(host) + "]:" + std::to_string(port());
}

std::optional<ListenAddress> listenAddressOf(std::string_view text, std::string& why) {
  std::string_view host = text;
  uint16_t port = kDefaultPort;
  if (!text.empty() && text.front() == '[') {
    const size_t close = text.find(']');
    if (close == std::string_view::npos) {
      why = "'" + std::string(text) + "' has no ']' after the IPv6 address";
      return std::nullopt;
    }
    host = text.substr(1, close - 1);
    std::string_view rest = text.substr(close + 1);
    if (!rest.empty()) {
      if (rest.front() != ':' || !portOf(rest.substr(1), port)) {
        why = "'" + std::string(text) + "' is not [ADDRESS]:PORT";
        return std::nullopt;
      }
    }
  } else if (text.find_first_not_of("0123456789") == std::string_view::npos) {
    // A port alone: every address.
    if (!portOf(text, port)) {
      why = "'" + std::string(text) + "' is not a port 0-65535";
      return std::nullopt;
    }
    host = "::";
  } else if (const size_t colon = text.rfind(':'); colon != std::string_view::npos && text.find(':') == colon) {
    host = text.substr(0, colon);
    if (!portOf(text.substr(colon + 1), port)) {
      why = "'" + std::string(text) + "' has no port 0-65535 after the ':'";
      return std::nullopt;
    }
  }

  ListenAddress out;
  const std::string hostText(host);
  sockaddr_in v4{};
  sockaddr_in6 v6{};
  if (::inet_pton(AF_INET, hostText.c_str(), &v4.sin_addr) == 1) {
    v4.sin_family = AF_INET;
    v4.sin_port = htons(port);
    std::memcpy(&out.addr, &v4, sizeof v4);
    out.length = sizeof v4;
    return out;
  }
  if (::inet_pton(AF_INET6, hostText.c_str(), &v6.sin6_addr) == 1) {
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(port);
    std::memcpy(&out.addr, &v6, sizeof v6);
    out.length = sizeof v6;
    out.dualStack = IN6_IS_ADDR_UNSPECIFIED(&v6.sin6_addr);
    return out;
  }
  why = "'" + std::string(text) + "' is not a numeric IPv4 or IPv6 address with an optional port (as 127.0.0.1:" +
        std::to_string(kDefaultPort) + " or [::1]:" + std::to_string(kDefaultPort) + ")";
  return std::nullopt;
}

}  // namespace Metrics
