// Interface name parsing for switch-style and Linux names.
#include "platform/IntfId.h"

#include <charconv>
#include <tuple>
#include <vector>

namespace Konet {
namespace {

bool startsWith(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

// Reads a run of decimal digits at the front of s; false when there is none or it overflows.
bool takeNumber(std::string_view& s, uint32_t& out) {
  size_t n = 0;
  while (n < s.size() && s[n] >= '0' && s[n] <= '9') ++n;
  if (n == 0 || n > 9) return false;
  std::from_chars(s.data(), s.data() + n, out);
  s.remove_prefix(n);
  return true;
}

// "3/1/2" into {3, 1, 2}; false on anything else.
bool takeSlashNumbers(std::string_view s, std::vector<uint32_t>& out) {
  while (true) {
    uint32_t v = 0;
    if (!takeNumber(s, v)) return false;
    out.push_back(v);
    if (s.empty()) return true;
    if (s.front() != '/') return false;
    s.remove_prefix(1);
  }
}

// "<number>" with nothing after it.
bool wholeNumber(std::string_view s, uint32_t& out) { return takeNumber(s, out) && s.empty(); }

}  // namespace

IntfId::IntfId(std::string_view name) : name_(name) { parse(); }

void IntfId::parse() {
  if (name_.empty()) return;
  const std::string_view n = name_;
  struct Prefix {
    std::string_view text;
    Kind kind;
    bool unconnected;
  };
  static const Prefix kPrefixes[] = {
      {"UnconnectedEthernet", Kind::ethernet, true}, {"Ethernet", Kind::ethernet, false},
      {"Management", Kind::management, false},       {"Port-Channel", Kind::portChannel, false},
      {"Vlan", Kind::vlan, false},                   {"Loopback", Kind::loopback, false},
  };
  for (const Prefix& p : kPrefixes) {
    if (startsWith(n, p.text) && parseNumbered(n.substr(p.text.size()), p.kind)) {
      unconnected_ = p.unconnected;
      return;
    }
  }
  if (parseLinux()) return;
  kind_ = Kind::other;
}

bool IntfId::parseNumbered(std::string_view rest, Kind kind) {
  if (kind == Kind::portChannel || kind == Kind::vlan || kind == Kind::loopback) {
    if (!wholeNumber(rest, number_)) return false;
    kind_ = kind;
    return true;
  }
  std::vector<uint32_t> nums;
  if (!takeSlashNumbers(rest, nums)) return false;
  const size_t limit = kind == Kind::management ? 2 : 3;
  if (nums.size() > limit) return false;
  if (nums.size() == 1) {
    port_ = nums[0];
  } else {
    module_ = nums[0];
    port_ = nums[1];
    if (nums.size() == 3) lane_ = nums[2];
  }
  kind_ = kind;
  return true;
}

bool IntfId::parseLinux() {
  std::string_view n = name_;
  if (n == "lo") {
    kind_ = Kind::loopback;
    return true;
  }
  // A VLAN sub-interface: <parent>.<vid>
  if (size_t dot = n.rfind('.'); dot != std::string_view::npos && dot > 0) {
    if (!wholeNumber(n.substr(dot + 1), number_)) return false;
    kind_ = Kind::vlan;
    return true;
  }
  uint32_t v = 0;
  for (std::string_view p : {"bond", "team"}) {
    if (startsWith(n, p) && wholeNumber(n.substr(p.size()), v)) {
      kind_ = Kind::portChannel;
      number_ = v;
      return true;
    }
  }
  if (startsWith(n, "vlan") && wholeNumber(n.substr(4), v)) {
    kind_ = Kind::vlan;
    number_ = v;
    return true;
  }
  if (startsWith(n, "mgmt") && wholeNumber(n.substr(4), v)) {
    kind_ = Kind::management;
    port_ = v;
    return true;
  }
  for (std::string_view p : {"eth", "eno", "ens"}) {
    if (startsWith(n, p) && wholeNumber(n.substr(p.size()), v)) {
      kind_ = Kind::ethernet;
      port_ = v;
      return true;
    }
  }
  if (startsWith(n, "swp")) {
    std::string_view rest = n.substr(3);
    if (!takeNumber(rest, port_)) return false;
    if (!rest.empty() && !(rest.front() == 's' && wholeNumber(rest.substr(1), lane_))) return false;
    kind_ = Kind::ethernet;
    return true;
  }
  if (startsWith(n, "enp")) {
    std::string_view rest = n.substr(3);
    if (!takeNumber(rest, module_) || rest.empty() || rest.front() != 's') return false;
    rest.remove_prefix(1);
    if (!takeNumber(rest, port_)) return false;
    if (!rest.empty() && !(rest.front() == 'f' && wholeNumber(rest.substr(1), lane_))) return false;
    kind_ = Kind::ethernet;
    return true;
  }
  return false;
}

std::strong_ordering IntfId::operator<=>(const IntfId& o) const {
  return std::tie(kind_, module_, port_, lane_, number_, name_) <=>
         std::tie(o.kind_, o.module_, o.port_, o.lane_, o.number_, o.name_);
}

std::ostream& operator<<(std::ostream& os, const IntfId& id) { return os << id.name(); }

const char* kindName(IntfId::Kind kind) {
  switch (kind) {
    case IntfId::Kind::none: return "none";
    case IntfId::Kind::ethernet: return "ethernet";
    case IntfId::Kind::management: return "management";
    case IntfId::Kind::portChannel: return "portChannel";
    case IntfId::Kind::vlan: return "vlan";
    case IntfId::Kind::loopback: return "loopback";
    case IntfId::Kind::other: return "other";
  }
  return "other";
}

}  // namespace Konet
