// Records filled by hand and the MIB view over them, with helpers that read it as a manager
// would: GET, GETNEXT and a walk of a subtree, all by numeric object identifier.
#pragma once

#include <gtest/gtest.h>

#include <utility>
#include <vector>
#include <string>

#include "snmp/LldpMib.h"

namespace Snmp {
inline void PrintTo(const Value& v, std::ostream* os) { *os << valueText(v); }
}  // namespace Snmp

namespace Snmp::Test {

inline Oid oid(const std::string& text) {
  const auto parsed = parseOid(text);
  EXPECT_TRUE(parsed) << text;
  return parsed.value_or(Oid{});
}

inline std::string bytes(std::initializer_list<int> b) {
  std::string s;
  for (int v : b) s.push_back(static_cast<char>(v));
  return s;
}

class MibFixture : public ::testing::Test {
 protected:
  MibFixture() {
    records_.config = Platform::make<Lldp::Config>();
    records_.localSystem = Platform::make<Lldp::LocalSystem>();
    records_.status = Platform::make<Lldp::Status>("1");
    records_.kernelNetInfo = Platform::make<KernelNetInfo::Status>("default");
  }

  // The view, made on first use so that a test may fill records first (either order works).
  LldpMib& mib() {
    if (!mib_) mib_ = std::make_unique<LldpMib>(records_);
    return *mib_;
  }

  // An LLDP port with its configuration, local port and status, and its kernel index.
  void portIs(const std::string& name, int32_t ifIndex) {
    const Konet::IntfId intf(name);
    records_.kernelNetInfo->deviceIs(name, KernelNetInfo::Device{ifIndex, {}});
    records_.config->portConfigIs(intf);
    auto local = records_.localSystem->localPortIs(intf);
    local->portIdentifierIs(Lldp::PortIdentifier{Lldp::portIdInterfaceName, Lldp::PortId(name)});
    records_.status->portStatusIs(intf, 1.0);
  }
  Lldp::PortStatus::Ptr portStatus(const std::string& name) { return records_.status->portStatus(Konet::IntfId(name)); }
  // A neighbour on the port; it changed last at `changed` (agent seconds).
  Lldp::RemoteSystem::Ptr neighbourIs(const std::string& port, int32_t index, const std::string& chassis,
                                      double changed = 0) {
    Lldp::Msap msap{{Lldp::chassisIdLocal, Lldp::ChassisId(chassis)}, {Lldp::portIdLocal, Lldp::PortId("p" + chassis)}};
    auto rs = portStatus(port)->remoteSystemIs(index, msap);
    rs->lastChangeTimeIs(changed);
    records_.status->remTablesLastChangeTimeIs(changed);
    return rs;
  }

  std::optional<Value> get(const std::string& text) { return mib().get(oid(text)).value; }
  // Every instance under the prefix, in walk order, with its identifier as text.
  std::vector<std::pair<std::string, Value>> walk(const std::string& prefix) {
    std::vector<std::pair<std::string, Value>> out;
    const Oid root = oid(prefix);
    Oid at = root;
    while (auto found = mib().next(at, false)) {
      if (!startsWith(found->oid, root)) break;
      EXPECT_GT(compare(found->oid, at), 0) << "walk went backwards at " << oidText(found->oid);
      out.emplace_back(oidText(found->oid), found->value);
      at = found->oid;
      if (out.size() > 100000) break;
    }
    return out;
  }

  LldpMibRecords records_;
  std::unique_ptr<LldpMib> mib_;
};

}  // namespace Snmp::Test
