// Konet::IntfId: an interface name with its kind and module/port/lane numbers.
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

  IntfId() = default;
  IntfId(std::string_view name);
  IntfId(const char* name) : IntfId(std::string_view(name)) {}
  IntfId(const std::string& name) : IntfId(std::string_view(name)) {}

  const std::string& name() const { return name_; }
  std::string stringValue() const { return name_; }
  bool empty() const { return name_.empty(); }
  Kind kind() const { return kind_; }

  bool isEthernet() const { return kind_ == Kind::ethernet; }
  bool isUnconnectedEthernet() const { return kind_ == Kind::ethernet && unconnected_; }
  bool isManagement() const { return kind_ == Kind::management; }
  bool isPortChannel() const { return kind_ == Kind::portChannel; }
  bool isVlan() const { return kind_ == Kind::vlan; }
  bool isLoopback() const { return kind_ == Kind::loopback; }

  // Ethernet and management interfaces.
  uint32_t module() const { return module_; }
  uint32_t port() const { return port_; }
  uint32_t lane() const { return lane_; }
  // Port-channel, VLAN and loopback number.
  uint32_t number() const { return number_; }

  bool operator==(const IntfId& o) const { return name_ == o.name_; }
  // Kind first, then numbers, then name: Ethernet2 sorts before Ethernet10.
  std::strong_ordering operator<=>(const IntfId& o) const;

 private:
  void parse();
  bool parseNumbered(std::string_view rest, Kind kind);
  bool parseLinux();

  std::string name_;
  Kind kind_ = Kind::none;
  bool unconnected_ = false;
  uint32_t module_ = 0;
  uint32_t port_ = 0;
  uint32_t lane_ = 0;
  uint32_t number_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IntfId& id);
const char* kindName(IntfId::Kind kind);

}  // namespace Konet

template <>
struct std::hash<Konet::IntfId> {
  size_t operator()(const Konet::IntfId& id) const { return std::hash<std::string>()(id.name()); }
};
