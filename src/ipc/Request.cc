// Field checks shared by the socket's request handlers.
#include "ipc/Request.h"

#include <cctype>

namespace Ipc {

std::string stringField(const Json& request, const char* name, bool required) {
  auto it = request.find(name);
  if (it == request.end()) {
    if (required) refuse("badRequest", std::string("missing \"") + name + "\"");
    return {};
  }
  if (!it->is_string()) refuse("badRequest", std::string("\"") + name + "\" must be a string");
  return it->get<std::string>();
}

bool boolField(const Json& request, const char* name, bool fallback) {
  auto it = request.find(name);
  if (it == request.end()) return fallback;
  if (!it->is_boolean()) refuse("badRequest", std::string("\"") + name + "\" must be true or false");
  return it->get<bool>();
}

std::string nameChecked(const std::string& name, const char* what) {
  const bool slashAllowed = std::string_view(what) == "interface";
  bool ok = !name.empty() && name.size() <= kMaxNameLength && (slashAllowed || name.find('/') == std::string::npos);
  for (unsigned char c : name) ok = ok && std::isprint(c) && !std::isspace(c);
  // The name is shown back only when it is harmless to show.
  if (!ok) refuse("invalid", std::string("bad ") + what + " name (1 to " + std::to_string(kMaxNameLength) +
                                 " printable characters, no spaces" + (slashAllowed ? ")" : " or /)"));
  return name;
}

Lldp::Oui ouiOf(const Json& j) {
  if (j.is_number_unsigned() && j.get<uint64_t>() <= 0xffffff) return Lldp::Oui(static_cast<uint32_t>(j.get<uint64_t>()));
  if (!j.is_string()) refuse("invalid", "\"oui\" must be three bytes, as \"00-12-BB\"");
  std::string hex;
  for (char c : j.get<std::string>()) {
    if (c == '-' || c == ':' || c == '.') continue;
    if (!std::isxdigit(static_cast<unsigned char>(c)) || hex.size() == 6) {
      refuse("invalid", "\"oui\" must be three bytes, as \"00-12-BB\"");
    }
    hex += c;
  }
  if (hex.size() != 6) refuse("invalid", "\"oui\" must be three bytes, as \"00-12-BB\"");
  return Lldp::Oui(static_cast<uint32_t>(std::stoul(hex, nullptr, 16)));
}

std::string bytesOfHex(const std::string& text) {
  std::string out;
  int high = -1;
  for (char c : text) {
    if (c == ':' || c == '-' || c == ' ') continue;
    if (!std::isxdigit(static_cast<unsigned char>(c))) refuse("invalid", "\"value\" must be hexadecimal bytes");
    const int nibble = std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : (std::tolower(c) - 'a' + 10);
    if (high < 0) {
      high = nibble;
    } else {
      out += static_cast<char>(high << 4 | nibble);
      high = -1;
    }
  }
  if (high >= 0) refuse("invalid", "\"value\" has an odd number of hexadecimal digits");
  return out;
}

}  // namespace Ipc
