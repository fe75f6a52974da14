// External TLVs: organisationally specific TLVs that other software on the switch asks LLDP to
// send, merged from every client into each port's LocalPort.
#pragma once

#include <map>
#include <string>

#include "platform/Reactor.h"
#include "platform/Record.h"
#include "records/LldpRecords.h"

namespace Lldp::Agent::Input {

class Root;
class ExternalTlvConfigSm;

// One port of one client's configuration: its TLV set.
class ExternalTlvPortConfigSm : public Platform::Reactor {
 public:
  ExternalTlvPortConfigSm(Konet::IntfId intfId, Platform::Ptr<const ExternalTlvPortConfig> portConfig,
                          ExternalTlvConfigSm* externalTlvConfigSm);
  // One TLV of the set changed: only that key is reconciled, so a set of n TLVs written one by
  // one costs n keyed steps, not n walks of the whole set.
  void handleUnknownOrgDefTlv(const UnknownOrgDefTlv::Key& key);
  const Platform::Ptr<const ExternalTlvPortConfig>& portConfig() const { return portConfig_; }

 private:
  Konet::IntfId intfId_;
  Platform::Ptr<const ExternalTlvPortConfig> portConfig_;
  ExternalTlvConfigSm* externalTlvConfigSm_;
};

// One client's record. TLVs are identified on a port by key alone: two clients that configure
// the same key overwrite each other (the last writer's value is sent) and the first to withdraw
// it removes it for both.
class ExternalTlvConfigSm : public Platform::Reactor {
 public:
  // The TLVs this client has put on one port.
  class UnknownOrgDefTlvList : public Platform::Entity {
#define INPUT_UNKNOWN_ORG_DEF_TLV_LIST_ATTRS(X) \
  X(Meta, intfId, Konet::IntfId, {})           \
  X(Coll, unknownOrgDefTlv, UnknownOrgDefTlv::Key, UnknownOrgDefTlv)
    PLATFORM_RECORD(UnknownOrgDefTlvList, INPUT_UNKNOWN_ORG_DEF_TLV_LIST_ATTRS)
#undef INPUT_UNKNOWN_ORG_DEF_TLV_LIST_ATTRS
   public:
    explicit UnknownOrgDefTlvList(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
  };

  ExternalTlvConfigSm(std::string name, Platform::Ptr<const ExternalTlvConfig> externalTlvConfig, Root* root);
  ~ExternalTlvConfigSm() override;

  void handleInitialized() override;
  void handleExternalTlvPortConfig(const Konet::IntfId& intf);
  void doSyncLocalPort(const Konet::IntfId& intf);
  // The same reconciliation for one key of the port.
  void doSyncTlv(const Konet::IntfId& intf, const UnknownOrgDefTlv::Key& key);
  // The port's LocalPort is new: every configured TLV is written to it again.
  void doSyncNewLocalPort(const Konet::IntfId& intf);
  void doAddTlv(const Konet::IntfId& intf, const UnknownOrgDefTlv& tlv);
  void doRemoveTlv(const Konet::IntfId& intf, const UnknownOrgDefTlv& tlv);
  void doClose();

  const std::string& name() const { return name_; }
  const Platform::Ptr<const ExternalTlvConfig>& externalTlvConfig() const { return externalTlvConfig_; }
  Root* root() const { return root_; }
  Platform::Ptr<UnknownOrgDefTlvList> tlvsByPort(const Konet::IntfId& intf) const;
  void tlvsByPortIs(const Konet::IntfId& intf, Platform::Ptr<UnknownOrgDefTlvList> list) {
    tlvsByPort_[intf] = std::move(list);
  }
  void tlvsByPortDel(const Konet::IntfId& intf) { tlvsByPort_.erase(intf); }
  size_t tlvsByPorts() const { return tlvsByPort_.size(); }

  PLATFORM_REACTOR_COLL(externalTlvPortConfigSm, Konet::IntfId, ExternalTlvPortConfigSm)

 private:
  std::string name_;
  Platform::Ptr<const ExternalTlvConfig> externalTlvConfig_;
  Root* root_;
  std::map<Konet::IntfId, Platform::Ptr<UnknownOrgDefTlvList>> tlvsByPort_;
};

// The framework's refusal to re-create a client's reactor with another record.
std::string reinstantiationError(const void* newValue, const void* currentValue);

}  // namespace Lldp::Agent::Input
