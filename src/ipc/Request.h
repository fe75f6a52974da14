// Reading the fields of a socket request: every check throws a Refusal that becomes the error
// reply, so a handler checks everything first and only then writes.
#pragma once

#include <cstdint>
#include <string>

#include "ipc/StateTypes.h"
#include "records/LldpTypes.h"

namespace Ipc {

inline constexpr size_t kMaxNameLength = 64;

struct Refusal {
  std::string code;
  std::string message;
};

[[noreturn]] inline void refuse(std::string code, std::string message) {
  throw Refusal{std::move(code), std::move(message)};
}

// A string field; "" when it is absent and not required.
std::string stringField(const Json& request, const char* name, bool required = true);
// A boolean field; fallback when absent.
bool boolField(const Json& request, const char* name, bool fallback);
// A name the request gives: an interface (may hold '/', as Ethernet3/1) or a client name.
std::string nameChecked(const std::string& name, const char* what);
Lldp::Oui ouiOf(const Json& j);
// Hexadecimal bytes, with ':', '-' or ' ' between them or not.
std::string bytesOfHex(const std::string& text);

}  // namespace Ipc
