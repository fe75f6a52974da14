// Interface name parsing for switch-style and Linux names.
#include "platform/IntfId.h"

#include <algorithm>
#include <charconv>
#include <unordered_map>
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

std::unordered_map<std::string, IntfId::Numbering>& platformTable() {
  static std::unordered_map<std::string, IntfId::Numbering> table;
  return table;
}

// Brings every number inside the band of its kind.
void clampToBand(IntfId::Numbering& n) {
  using K = IntfId::Kind;
  switch (n.kind) {
    case K::ethernet:
      n.module = std::min(n.module, IntfId::kMaxModule);
      n.port = std::min(n.port, IntfId::kMaxEthernetPort);
      n.lane = std::min(n.lane, IntfId::kMaxLane);
      break;
    case K::management:
      n.module = std::min(n.module, IntfId::kMaxModule);
      n.port = std::min(n.port, IntfId::kMaxManagementPort);
      break;
    case K::loopback: n.number = std::min(n.number, IntfId::kMaxLoopback); break;
    case K::portChannel: n.number = std::min(n.number, IntfId::kMaxPortChannel); break;
    case K::vlan: n.number = std::min(n.number, IntfId::kMaxVlan); break;
    default: break;
  }
}

// Compares a run of digits as a number; equal values fall through to the next run.
std::strong_ordering compareDigits(std::string_view a, std::string_view b) {
  auto strip = [](std::string_view s) {
    const size_t nz = s.find_first_not_of('0');
    return nz == std::string_view::npos ? std::string_view() : s.substr(nz);
  };
  const std::string_view x = strip(a), y = strip(b);
  if (x.size() != y.size()) return x.size() <=> y.size();
  const int c = x.compare(y);
  return c < 0 ? std::strong_ordering::less : c > 0 ? std::strong_ordering::greater : std::strong_ordering::equal;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

bool IntfId::inBand(const Numbering& n) {
  Numbering c = n;
  clampToBand(c);
  return c == n;
}

const IntfId::Numbering& IntfId::numbering() const {
  if (name_.empty()) return parsed_;
  const auto& table = platformTable();
  if (table.empty()) return parsed_;
  const auto it = table.find(name_);
  return it == table.end() ? parsed_ : it->second;
}

void IntfPlatformTable::intfIs(const std::string& name, IntfId::Numbering numbering) {
  clampToBand(numbering);
  platformTable()[name] = numbering;
}

void IntfPlatformTable::intfDel(const std::string& name) { platformTable().erase(name); }
void IntfPlatformTable::clear() { platformTable().clear(); }
size_t IntfPlatformTable::size() { return platformTable().size(); }

const IntfId::Numbering* IntfPlatformTable::find(const std::string& name) {
  const auto& table = platformTable();
  const auto it = table.find(name);
  return it == table.end() ? nullptr : &it->second;
}

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
    if (!startsWith(n, p.text) || !parseNumbered(n.substr(p.text.size()), p.kind)) continue;
    // A switch-style name says exactly where the port is: its numbers are kept as they are
    // (the priority bands assert them), unlike a freely chosen Linux name's.
    parsed_.unconnected = p.unconnected;
    return;
  }
  if (parseLinux()) {
    // Linux names are chosen freely: eth200 is still an Ethernet port, numbered at the band's edge.
    clampToBand(parsed_);
    return;
  }
  parsed_ = Numbering{Kind::other};
}

bool IntfId::parseNumbered(std::string_view rest, Kind kind) {
  if (kind == Kind::portChannel || kind == Kind::vlan || kind == Kind::loopback) {
    if (!wholeNumber(rest, parsed_.number)) return false;
    if (kind == Kind::vlan && parsed_.number > kMaxVlan) return false;  // Vlan5000 names no VLAN
    parsed_.kind = kind;
    return true;
  }
  std::vector<uint32_t> nums;
  if (!takeSlashNumbers(rest, nums)) return false;
  const size_t limit = kind == Kind::management ? 2 : 3;
  if (nums.size() > limit) return false;
  if (nums.size() == 1) {
    parsed_.port = nums[0];
  } else {
    parsed_.module = nums[0];
    parsed_.port = nums[1];
    if (nums.size() == 3) parsed_.lane = nums[2];
  }
  parsed_.kind = kind;
  return true;
}

bool IntfId::parseLinux() {
  std::string_view n = name_;
  if (n == "lo") {
    parsed_.kind = Kind::loopback;
    return true;
  }
  // A VLAN sub-interface: <parent>.<vid>
  if (size_t dot = n.rfind('.'); dot != std::string_view::npos && dot > 0) {
    if (!wholeNumber(n.substr(dot + 1), parsed_.number) || parsed_.number > kMaxVlan) return false;
    parsed_.kind = Kind::vlan;
    return true;
  }
  uint32_t v = 0;
  for (std::string_view p : {"bond", "team"}) {
    if (startsWith(n, p) && wholeNumber(n.substr(p.size()), v)) {
      parsed_.kind = Kind::portChannel;
      parsed_.number = v;
      return true;
    }
  }
  if (startsWith(n, "vlan") && wholeNumber(n.substr(4), v) && v <= kMaxVlan) {
    parsed_.kind = Kind::vlan;
    parsed_.number = v;
    return true;
  }
  if (startsWith(n, "mgmt") && wholeNumber(n.substr(4), v)) {
    parsed_.kind = Kind::management;
    parsed_.port = v;
    return true;
  }
  for (std::string_view p : {"eth", "eno", "ens"}) {
    if (startsWith(n, p) && wholeNumber(n.substr(p.size()), v)) {
      parsed_.kind = Kind::ethernet;
      parsed_.port = v;
      return true;
    }
  }
  if (startsWith(n, "swp")) {
    std::string_view rest = n.substr(3);
    if (!takeNumber(rest, parsed_.port)) return false;
    if (!rest.empty() && !(rest.front() == 's' && wholeNumber(rest.substr(1), parsed_.lane))) return false;
    parsed_.kind = Kind::ethernet;
    return true;
  }
  if (startsWith(n, "enp")) {
    std::string_view rest = n.substr(3);
    if (!takeNumber(rest, parsed_.module) || rest.empty() || rest.front() != 's') return false;
    rest.remove_prefix(1);
    if (!takeNumber(rest, parsed_.port)) return false;
    if (!rest.empty() && !(rest.front() == 'f' && wholeNumber(rest.substr(1), parsed_.lane))) return false;
    parsed_.kind = Kind::ethernet;
    return true;
  }
  return false;
}

std::strong_ordering IntfId::operator<=>(const IntfId& o) const {
  const std::string_view a = name_, b = o.name_;
  size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (isDigit(a[i]) && isDigit(b[j])) {
      size_t ie = i, je = j;
      while (ie < a.size() && isDigit(a[ie])) ++ie;
      while (je < b.size() && isDigit(b[je])) ++je;
      if (auto c = compareDigits(a.substr(i, ie - i), b.substr(j, je - j)); c != 0) return c;
      i = ie;
      j = je;
      continue;
    }
    if (a[i] != b[j]) return static_cast<unsigned char>(a[i]) <=> static_cast<unsigned char>(b[j]);
    ++i;
    ++j;
  }
  if (i < a.size() || j < b.size()) return (a.size() - i) <=> (b.size() - j);
  // Equal but for leading zeros (eth01, eth1): the plain text decides, so only equal names tie.
  return a.compare(b) <=> 0;
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
