// Where the metrics endpoint listens, as the operator writes it: "9808", "127.0.0.1:9808",
// "[::1]:9808", "0.0.0.0" or "[::]" (every address, IPv4 and IPv6). Numeric addresses only: the
// agent resolves no names.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Metrics {

// The port when the text names an address alone.
inline constexpr uint16_t kDefaultPort = 9808;

struct ListenAddress {
  sockaddr_storage addr{};
  socklen_t length = 0;
  // A wildcard IPv6 address also accepts IPv4 (dual stack).
  bool dualStack = false;

  int family() const { return addr.ss_family; }
  uint16_t port() const;
  // "127.0.0.1:9808", "[::1]:9808".
  std::string text() const;
};

// The address, or nothing with why set to a one-line reason.
std::optional<ListenAddress> listenAddressOf(std::string_view text, std::string& why);

}  // namespace Metrics
