// Konet::IntfId: an interface name with its kind and module/port/lane numbers.
//
// The platform decides an interface's kind when it knows the interface (IntfPlatformTable: on
// Linux the kernel's link type, so a veth named "uplink" is an Ethernet port); the name decides
// it otherwise, as below. Identity and order are the name's alone (natural order: Ethernet2
// before Ethernet10), so keys stay put whatever the kind. Numbers always stay inside the bands
// of the management-address priorities: an out-of-band switch-style name is kind `other`, an
// out-of-band Linux-style name is clamped.
//
// Names understood (anything else is kind `other`):
//
//   name                      kind          module  port  lane  number
//   Ethernet7                 ethernet      0       7     0
//   Ethernet3/1               ethernet      3       1     0
//   Ethernet3/1/2             ethernet      3       1     2
//   UnconnectedEthernet4      ethernet (unconnected), numbered like Ethernet
//   Management1               management    0       1
//   Management1/2             management    1       2
//   Port-Channel5             portChannel                       5
//   Vlan10                    vlan                              10
//   Loopback0                 loopback                          0
//   eth0, eno1, ens3          ethernet      0       N     0
//   enp3s0, enp3s0f1          ethernet      bus     slot  function
//   swp1, swp1s2              ethernet      0       1     0 / 2
//   mgmt0                     management    0       0
//   bond0, team0              portChannel                       0
//   vlan10, eth0.10           vlan                              10
//   lo                        loopback                          0
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

namespace Konet {

class IntfId {
 public:
  enum class Kind : uint8_t { none, ethernet, management, portChannel, vlan, loopback, other };

  // What is known of an interface: its kind and numbers.
  struct Numbering {
    Kind kind = Kind::none;
    bool unconnected = false;
    uint32_t module = 0;
    uint32_t port = 0;
    uint32_t lane = 0;
    uint32_t number = 0;
    bool operator==(const Numbering&) const = default;
  };
  // Band limits of the numbers (those of the management-address priority bands).
  static constexpr uint32_t kMaxModule = 128;
  static constexpr uint32_t kMaxEthernetPort = 128;
  static constexpr uint32_t kMaxLane = 31;
  static constexpr uint32_t kMaxManagementPort = 10;
  static constexpr uint32_t kMaxLoopback = 2100;
  static constexpr uint32_t kMaxPortChannel = 2000;
  static constexpr uint32_t kMaxVlan = 4094;

  IntfId() = default;
  IntfId(std::string_view name);
  IntfId(const char* name) : IntfId(std::string_view(name)) {}
  IntfId(const std::string& name) : IntfId(std::string_view(name)) {}

  const std::string& name() const { return name_; }
  std::string stringValue() const { return name_; }
  bool empty() const { return name_.empty(); }
  Kind kind() const { return numbering().kind; }

  bool isEthernet() const { return kind() == Kind::ethernet; }
  bool isUnconnectedEthernet() const { return isEthernet() && numbering().unconnected; }
  bool isManagement() const { return kind() == Kind::management; }
  bool isPortChannel() const { return kind() == Kind::portChannel; }
  bool isVlan() const { return kind() == Kind::vlan; }
  bool isLoopback() const { return kind() == Kind::loopback; }

  // Ethernet and management interfaces.
  uint32_t module() const { return numbering().module; }
  uint32_t port() const { return numbering().port; }
  uint32_t lane() const { return numbering().lane; }
  // Port-channel, VLAN and loopback number.
  uint32_t number() const { return numbering().number; }

  // The platform's numbering when it knows the interface, else the name's.
  const Numbering& numbering() const;
  // What the name alone says.
  const Numbering& nameNumbering() const { return parsed_; }
  // Whether the numbers lie inside the bands of their kind.
  static bool inBand(const Numbering& n);

  bool operator==(const IntfId& o) const { return name_ == o.name_; }
  // Natural order of the names: digit runs compare as numbers, so Ethernet2 < Ethernet10.
  std::strong_ordering operator<=>(const IntfId& o) const;

 private:
  void parse();
  bool parseNumbered(std::string_view rest, Kind kind);
  bool parseLinux();

  std::string name_;
  Numbering parsed_;
};

// The platform's knowledge of interfaces by name, consulted by IntfId::kind() and the numbers.
// Process-wide; written on the event thread by the platform's interface source.
class IntfPlatformTable {
 public:
  // Numbers outside their band are clamped into it.
  static void intfIs(const std::string& name, IntfId::Numbering numbering);
  static void intfDel(const std::string& name);
  static void clear();
  // Null when the platform does not know the name.
  static const IntfId::Numbering* find(const std::string& name);
  static size_t size();
};

std::ostream& operator<<(std::ostream& os, const IntfId& id);
const char* kindName(IntfId::Kind kind);

}  // namespace Konet

template <>
struct std::hash<Konet::IntfId> {
  size_t operator()(const Konet::IntfId& id) const { return std::hash<std::string>()(id.name()); }
};
