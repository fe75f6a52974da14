// External TLVs: clients' TLVs merged onto ports by key with the last-writer rule, withdrawn
// exactly, and applied to ports that appear after they were configured.
#include <string>
#include <vector>

#include "InputFixture.h"
#include "input/ExternalTlv.h"

namespace InputTest {
namespace {

using Lldp::ExternalTlvConfig;
using Tlvs = std::vector<std::string>;

// Counts the changes of a port's external TLVs: each is one local change for its engine.
struct TlvChanges : Platform::Reactor {
  explicit TlvChanges(const Lldp::LocalPort::Ptr& port) : port_(port) {
    watch<&TlvChanges::changed>(port_, Lldp::LocalPort::unknownOrgDefTlvAttr);
  }
  void changed() { ++count; }
  Lldp::LocalPort::Ptr port_;
  int count = 0;
};

struct ExternalTlvTest : InputFixture {
  ExternalTlvTest() {
    start();
    addPhy("Ethernet1");
    addPhy("Ethernet2");
  }

  ExternalTlvConfig::Ptr client(const std::string& name) {
    auto record = Platform::make<ExternalTlvConfig>(name);
    externalTlvs->entryIs(name, record);
    return record;
  }
  static void put(const ExternalTlvConfig::Ptr& record, const char* intf, uint8_t subtype, const std::string& value) {
    const Lldp::UnknownOrgDefTlv t{Lldp::UnknownOrgDefTlv::Key(Lldp::Oui(0x001c73), subtype, 1),
                                   Lldp::BoundedString507(value)};
    record->portConfigIs(intf)->unknownOrgDefTlvIs(t.key, t);
  }
  // The port's TLVs as "subtype=value", in key order.
  Tlvs onPort(const char* intf) const {
    Tlvs out;
    const Lldp::LocalPort::Ptr lp = localPort(intf);
    for (auto it = lp->unknownOrgDefTlv().begin(); it != lp->unknownOrgDefTlv().end(); ++it) {
      out.push_back(std::to_string(it.key().subtype()) + "=" + it.value().value.str());
    }
    return out;
  }
};

TEST_F(ExternalTlvTest, TwoClientsMergeByKeyAndTheLastWriterWins) {
  ExternalTlvConfig::Ptr a = client("clientA");
  put(a, "Ethernet1", 1, "a");
  put(a, "Ethernet1", 2, "x");
  put(a, "Ethernet2", 2, "x2");
  ExternalTlvConfig::Ptr b = client("clientB");
  put(b, "Ethernet1", 1, "b");
  put(b, "Ethernet1", 3, "y");
  EXPECT_EQ(onPort("Ethernet1"), (Tlvs{"1=b", "2=x", "3=y"}));
  EXPECT_EQ(onPort("Ethernet2"), Tlvs{"2=x2"});

  // A changed value replaces the old one in one write, so the port sends one LLDPDU, with
  // it: clientA writes last now.
  TlvChanges changes(localPort("Ethernet1"));
  traces.clear();
  put(a, "Ethernet1", 1, "a2");
  EXPECT_FALSE(traces.has("ExternalTlvConfigSm::doRemoveTlv("));
  EXPECT_EQ(changes.count, 1);
  EXPECT_EQ(onPort("Ethernet1"), (Tlvs{"1=a2", "2=x", "3=y"}));

  // The first client to withdraw a shared key removes it for both; its other keys go too.
  externalTlvs->entryDel("clientB");
  EXPECT_EQ(onPort("Ethernet1"), Tlvs{"2=x"});
  EXPECT_EQ(onPort("Ethernet2"), Tlvs{"2=x2"});

  a->portConfigDel("Ethernet1");
  EXPECT_TRUE(onPort("Ethernet1").empty());
  Input::ExternalTlvConfigSm* sm = inputSm()->externalTlvConfigSm("clientA");
  ASSERT_TRUE(sm);
  EXPECT_FALSE(sm->tlvsByPort("Ethernet1"));
  EXPECT_TRUE(sm->tlvsByPort("Ethernet2"));
}

TEST_F(ExternalTlvTest, TlvsForAPortThatAppearsLaterAreAppliedWhenItIsCreated) {
  ExternalTlvConfig::Ptr a = client("clientA");
  put(a, "Ethernet5", 4, "later");
  put(a, "Ethernet5", 5, "too");
  EXPECT_FALSE(localPort("Ethernet5"));

  auto phy = addPhy("Ethernet5");
  ASSERT_TRUE(localPort("Ethernet5"));
  EXPECT_EQ(onPort("Ethernet5"), (Tlvs{"4=later", "5=too"}));

  // The port goes and comes back: a new LocalPort gets them again.
  phy->forwardingModelIs(ForwardingModel::discarded);
  EXPECT_FALSE(localPort("Ethernet5"));
  phy->forwardingModelIs(ForwardingModel::bridged);
  ASSERT_TRUE(localPort("Ethernet5"));
  EXPECT_EQ(onPort("Ethernet5"), (Tlvs{"4=later", "5=too"}));
}

TEST_F(ExternalTlvTest, ARecordReplacedUnderItsNameIsNotReusedButTakenAnew) {
  ExternalTlvConfig::Ptr first = client("clientA");
  put(first, "Ethernet1", 1, "old");
  put(first, "Ethernet1", 2, "gone");
  ExternalTlvConfig::Ptr second = client("clientA");
  put(second, "Ethernet1", 1, "new");
  EXPECT_TRUE(traced("Reinstantiating the pointer interface where constructor parameter attribute "
                     "_externalTlvConfig has a different value of "));
  EXPECT_EQ(onPort("Ethernet1"), Tlvs{"1=new"});
  put(first, "Ethernet1", 3, "ignored");  // the old record is no longer watched
  EXPECT_EQ(onPort("Ethernet1"), Tlvs{"1=new"});

  externalTlvs->entryIs("clientA", localSystem);  // not a client record: the client is gone
  EXPECT_TRUE(onPort("Ethernet1").empty());
}

}  // namespace
}  // namespace InputTest
