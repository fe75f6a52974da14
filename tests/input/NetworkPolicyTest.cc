// LLDP-MED network policy: a port advertises policies only for what its neighbours ask, filtered
// by its configuration, and forgets them when the neighbours leave.
#include <gtest/gtest.h>

#include <vector>

#include "input/NetworkPolicy.h"
#include "platform/Reactor.h"

namespace Lldp::Agent::Input {
namespace {

struct NetworkPolicyTest : ::testing::Test {
  Config::Ptr config = Platform::make<Config>();
  Status::Ptr status = Platform::make<Status>("1");
  LocalSystem::Ptr localSystem = Platform::make<LocalSystem>();
  std::unique_ptr<NetworkPolicySm> sm;
  const Konet::IntfId intf{"Ethernet1"};

  NetworkPolicyTest() {
    PortConfig::Ptr pc = config->portConfigIs(intf);
    pc->tiaEnabledTlvsIs(PortConfig::TiaEnabledTlvs{PortConfig::TiaEnabledTlvs::kNetworkPolicy});
    localSystem->localPortIs(intf);
    status->portStatusIs(intf, 0.0);
    sm = Platform::makeReactor<NetworkPolicySm>(config, status, localSystem, nullptr);
  }

  static NetworkPolicyConfig policy(uint16_t vlan, uint8_t priority = 5) {
    NetworkPolicyConfig c;
    c.tagged = true;
    c.vlanId = vlan;
    c.l2Priority = priority;
    c.dscp = 46;
    return c;
  }
  void configure(uint8_t app, const NetworkPolicyConfig& c) { config->portConfig(intf)->networkPolicyConfigIs(app, c); }
  // A neighbour asks about the applications after it is added, as the receive path fills it.
  RemoteSystem::Ptr phone(int32_t index, std::vector<uint8_t> apps) {
    Msap msap;
    msap.chassisIdentifier = {chassisIdMacAddress, ChassisId(std::string(6, char(index)))};
    RemoteSystem::Ptr rs = status->portStatus(intf)->remoteSystemIs(index, msap);
    for (uint8_t app : apps) rs->networkPolicyTlvIs(app, NetworkPolicyTlv{app, false, true, 0, 0, 0});
    return rs;
  }
  std::vector<int> advertised() const {
    std::vector<int> apps;
    const LocalPort::Ptr lp = localSystem->localPort(intf);
    for (auto it = lp->localNetworkPolicyTlv().begin(); it != lp->localNetworkPolicyTlv().end(); ++it) {
      apps.push_back(it.key());
    }
    return apps;
  }
};

TEST_F(NetworkPolicyTest, APhonesRequestIsAnsweredAndWithdrawnWhenItLeaves) {
  configure(1, policy(100));
  configure(7, policy(200));
  phone(1, {1, 7});  // voice (1) is not supported by this agent
  EXPECT_EQ(advertised(), std::vector<int>{7});
  const NetworkPolicyTlv tlv = localSystem->localPort(intf)->localNetworkPolicyTlv(uint8_t{7});
  EXPECT_EQ(tlv, policy(200).toNetworkPolicyTlv(7));

  phone(2, {7});  // a second neighbour asking the same: one entry
  EXPECT_EQ(advertised(), std::vector<int>{7});

  const PortConfig::Ptr pc = config->portConfig(intf);
  pc->tiaEnabledTlvsIs(PortConfig::TiaEnabledTlvs{PortConfig::TiaEnabledTlvs::kCapabilities});
  EXPECT_TRUE(advertised().empty());  // the TLV disabled: emptied at once
  pc->tiaEnabledTlvsIs(PortConfig::TiaEnabledTlvs{PortConfig::TiaEnabledTlvs::kNetworkPolicy});
  EXPECT_EQ(advertised(), std::vector<int>{7});

  status->portStatus(intf)->remoteSystemDel(1);
  EXPECT_EQ(advertised(), std::vector<int>{7});
  status->portStatus(intf)->remoteSystemDel(2);
  EXPECT_TRUE(advertised().empty());
}

TEST_F(NetworkPolicyTest, KeyZeroIsTheDefaultForApplicationsWithoutTheirOwn) {
  configure(0, policy(300));
  phone(1, {9, 0});
  EXPECT_EQ(advertised(), (std::vector<int>{0, 9}));
  EXPECT_EQ(localSystem->localPort(intf)->localNetworkPolicyTlv(uint8_t{9}), policy(300).toNetworkPolicyTlv(9));

  config->portConfig(intf)->networkPolicyConfigDel(0);  // nothing configured: skipped silently
  EXPECT_TRUE(advertised().empty());
}

TEST_F(NetworkPolicyTest, VideoSignalingIsSkippedWhenTheVideoPolicyIsEquivalent) {
  configure(6, policy(400));
  configure(8, policy(400));
  phone(1, {6, 8});
  EXPECT_EQ(advertised(), std::vector<int>{6});

  configure(8, policy(400, 6));
  EXPECT_EQ(advertised(), (std::vector<int>{6, 8}));

  // The video policy may come from the key-0 default.
  config->portConfig(intf)->networkPolicyConfigDel(6);
  configure(0, policy(400, 6));
  EXPECT_EQ(advertised(), std::vector<int>{6});
}

TEST_F(NetworkPolicyTest, PortReactorsFollowThePortStatusesAndRecordsMayComeInAnyOrder) {
  status->portStatusDel(intf);
  EXPECT_FALSE(sm->networkPolicyPortStatusSmHas(intf));

  const Konet::IntfId two{"Ethernet2"};
  status->portStatusIs(two, 0.0);
  EXPECT_TRUE(sm->networkPolicyPortStatusSmHas(two));
  Msap msap;
  msap.chassisIdentifier = {chassisIdMacAddress, ChassisId("abcdef")};
  status->portStatus(two)->remoteSystemIs(1, msap)->networkPolicyTlvIs(uint8_t{7}, NetworkPolicyTlv{});
  localSystem->localPortIs(two);
  EXPECT_TRUE(localSystem->localPort(two)->localNetworkPolicyTlv().empty());  // no configuration yet
  PortConfig::Ptr pc = config->portConfigIs(two);
  pc->tiaEnabledTlvsIs(PortConfig::TiaEnabledTlvs{PortConfig::TiaEnabledTlvs::kNetworkPolicy});
  pc->networkPolicyConfigIs(7, policy(10));
  EXPECT_EQ(localSystem->localPort(two)->localNetworkPolicyTlvs(), 1u);
}

}  // namespace
}  // namespace Lldp::Agent::Input
