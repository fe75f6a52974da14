// External TLVs: each client's configured TLVs reconciled with what the client put on the port.
#include "input/ExternalTlv.h"

#include <sstream>
#include <vector>

#include "input/LldpInputSm.h"

namespace Lldp::Agent::Input {

std::string reinstantiationError(const void* newValue, const void* currentValue) {
  std::ostringstream text;
  text << "Reinstantiating the pointer interface where constructor parameter attribute _externalTlvConfig "
          "has a different value of "
       << newValue << " than the current value of " << currentValue << " not allowed";
  return text.str();
}

ExternalTlvPortConfigSm::ExternalTlvPortConfigSm(Konet::IntfId intfId,
                                                 Platform::Ptr<const ExternalTlvPortConfig> portConfig,
                                                 ExternalTlvConfigSm* externalTlvConfigSm)
    : intfId_(std::move(intfId)), portConfig_(std::move(portConfig)), externalTlvConfigSm_(externalTlvConfigSm) {
  watch<&ExternalTlvPortConfigSm::handleUnknownOrgDefTlv>(portConfig_, ExternalTlvPortConfig::unknownOrgDefTlvAttr);
}

void ExternalTlvPortConfigSm::handleUnknownOrgDefTlv(const UnknownOrgDefTlv::Key& key) {
  externalTlvConfigSm_->doSyncTlv(intfId_, key);
}

ExternalTlvConfigSm::ExternalTlvConfigSm(std::string name, Platform::Ptr<const ExternalTlvConfig> externalTlvConfig,
                                         Root* root)
    : name_(std::move(name)), externalTlvConfig_(std::move(externalTlvConfig)), root_(root) {
  watch<&ExternalTlvConfigSm::handleExternalTlvPortConfig>(externalTlvConfig_, ExternalTlvConfig::portConfigAttr);
}

ExternalTlvConfigSm::~ExternalTlvConfigSm() { doClose(); }

void ExternalTlvConfigSm::handleInitialized() {
  for (auto it = externalTlvConfig_->portConfig().begin(); it != externalTlvConfig_->portConfig().end(); ++it) {
    handleExternalTlvPortConfig(it.key());
  }
}

void ExternalTlvConfigSm::handleExternalTlvPortConfig(const Konet::IntfId& intf) {
  TRACE(inputSmTrace, 8) << "ExternalTlvConfigSm::handleExternalTlvPortConfig(" << intf << ")";
  const ExternalTlvPortConfig::Ptr& portConfig = externalTlvConfig_->portConfig(intf);
  ExternalTlvPortConfigSm* sm = externalTlvPortConfigSm(intf);
  if (sm && sm->portConfig() != portConfig) externalTlvPortConfigSmDel(intf);
  if (portConfig) externalTlvPortConfigSmIs(intf, portConfig, this);
  doSyncLocalPort(intf);
}

Platform::Ptr<ExternalTlvConfigSm::UnknownOrgDefTlvList> ExternalTlvConfigSm::tlvsByPort(
    const Konet::IntfId& intf) const {
  auto found = tlvsByPort_.find(intf);
  return found == tlvsByPort_.end() ? nullptr : found->second;
}

void ExternalTlvConfigSm::doSyncLocalPort(const Konet::IntfId& intf) {
  TRACE(inputSmTrace, 8) << "ExternalTlvConfigSm::doSyncLocalPort(" << intf << ")";
  const ExternalTlvPortConfig::Ptr& portConfig = externalTlvConfig_->portConfig(intf);
  Platform::Ptr<UnknownOrgDefTlvList> remembered = tlvsByPort(intf);
  if (!remembered) remembered = Platform::make<UnknownOrgDefTlvList>(intf);

  // Both sides as sorted snapshots: adding and removing changes the remembered list.
  std::vector<UnknownOrgDefTlv> configured, had;
  if (portConfig) {
    for (auto it = portConfig->unknownOrgDefTlv().begin(); it != portConfig->unknownOrgDefTlv().end(); ++it) {
      configured.push_back(it.value());
    }
  }
  for (auto it = remembered->unknownOrgDefTlv().begin(); it != remembered->unknownOrgDefTlv().end(); ++it) {
    had.push_back(it.value());
  }
  // Removals go last key first: the port keeps its TLVs in one sorted array, from whose end
  // a removal costs nothing, while from the front it moves every later TLV.
  std::vector<const UnknownOrgDefTlv*> removals, additions;
  size_t c = 0, h = 0;
  while (c < configured.size() || h < had.size()) {
    if (c == configured.size() || (h < had.size() && had[h].key < configured[c].key)) {
      removals.push_back(&had[h++]);
    } else if (h == had.size() || configured[c].key < had[h].key) {
      additions.push_back(&configured[c++]);
    } else {
      // A new value replaces the old one in one write (doAddTlv replaces a TLV of the same
      // key): a removal first would send one LLDPDU without the TLV at once, and the new value
      // only txDelay later.
      if (!(had[h] == configured[c])) additions.push_back(&configured[c]);
      ++c;
      ++h;
    }
  }
  for (auto it = removals.rbegin(); it != removals.rend(); ++it) {
    doRemoveTlv(intf, **it);
    remembered->unknownOrgDefTlvDel((*it)->key);
  }
  for (const UnknownOrgDefTlv* tlv : additions) {
    doAddTlv(intf, *tlv);
    remembered->unknownOrgDefTlvIs(tlv->key, *tlv);
  }
  if (!portConfig) {
    tlvsByPortDel(intf);
    return;
  }
  tlvsByPortIs(intf, remembered);
}

void ExternalTlvConfigSm::doSyncTlv(const Konet::IntfId& intf, const UnknownOrgDefTlv::Key& key) {
  TRACE(inputSmTrace, 8) << "ExternalTlvConfigSm::doSyncTlv(" << intf << ", " << key << ")";
  const ExternalTlvPortConfig::Ptr& portConfig = externalTlvConfig_->portConfig(intf);
  const UnknownOrgDefTlv* configured = portConfig ? portConfig->unknownOrgDefTlv().find(key) : nullptr;
  Platform::Ptr<UnknownOrgDefTlvList> remembered = tlvsByPort(intf);
  const UnknownOrgDefTlv* had = remembered ? remembered->unknownOrgDefTlv().find(key) : nullptr;
  if (had && configured && *had == *configured) return;
  if (!configured) {
    if (had) {
      doRemoveTlv(intf, *had);
      remembered->unknownOrgDefTlvDel(key);
    }
    return;
  }
  // A changed value replaces the old one in one write, as in doSyncLocalPort.
  if (!remembered) {
    remembered = Platform::make<UnknownOrgDefTlvList>(intf);
    tlvsByPortIs(intf, remembered);
  }
  doAddTlv(intf, *configured);
  remembered->unknownOrgDefTlvIs(key, *configured);
}

void ExternalTlvConfigSm::doSyncNewLocalPort(const Konet::IntfId& intf) {
  // Nothing of what this client remembers is on a new LocalPort.
  tlvsByPortDel(intf);
  doSyncLocalPort(intf);
}

void ExternalTlvConfigSm::doAddTlv(const Konet::IntfId& intf, const UnknownOrgDefTlv& tlv) {
  TRACE(inputSmTrace, 8) << "ExternalTlvConfigSm::doAddTlv(" << intf << ", " << tlv << ")";
  const LocalSystem::Ptr& localSystem = root_->localSystem();
  const LocalPort::Ptr localPort = localSystem ? localSystem->localPort(intf) : nullptr;
  if (!localPort) return;
  const UnknownOrgDefTlv* current = localPort->unknownOrgDefTlv().find(tlv.key);
  if (current && *current == tlv) return;
  localPort->unknownOrgDefTlvIs(tlv.key, tlv);
}

void ExternalTlvConfigSm::doRemoveTlv(const Konet::IntfId& intf, const UnknownOrgDefTlv& tlv) {
  TRACE(inputSmTrace, 8) << "ExternalTlvConfigSm::doRemoveTlv(" << intf << ", " << tlv << ")";
  const LocalSystem::Ptr& localSystem = root_->localSystem();
  const LocalPort::Ptr localPort = localSystem ? localSystem->localPort(intf) : nullptr;
  if (!localPort) return;
  localPort->unknownOrgDefTlvDel(tlv.key);
}

void ExternalTlvConfigSm::doClose() {
  TRACE(inputSmTrace, 8) << "ExternalTlvConfigSm::doClose(" << name_ << ")";
  unwatchAll();
  externalTlvPortConfigSmDelAll();
  std::map<Konet::IntfId, Platform::Ptr<UnknownOrgDefTlvList>> all;
  all.swap(tlvsByPort_);
  for (const auto& [intf, list] : all) {
    // Last key first, as in doSyncLocalPort.
    std::vector<UnknownOrgDefTlv> tlvs;
    for (auto it = list->unknownOrgDefTlv().begin(); it != list->unknownOrgDefTlv().end(); ++it) {
      tlvs.push_back(it.value());
    }
    for (auto it = tlvs.rbegin(); it != tlvs.rend(); ++it) doRemoveTlv(intf, *it);
  }
}

void InputSm::handleExternalTlvsEntityPtr(const std::string& name) {
  TRACE(inputSmTrace, 8) << "InputSm::handleExternalTlvsEntityPtr( " << name << " )";
  const auto record =
      externalTlvs_ ? Platform::ptrCast<ExternalTlvConfig>(externalTlvs_->entry(name)) : ExternalTlvConfig::Ptr();
  if (!record) {
    externalTlvConfigSmDel(name);
    return;
  }
  ExternalTlvConfigSm* sm = externalTlvConfigSm(name);
  if (sm && sm->externalTlvConfig() != record) {
    // The client published a new record under its name: the old reactor cannot take it.
    TRACE(inputSmTrace, 2) << reinstantiationError(record.get(), sm->externalTlvConfig().get());
    externalTlvConfigSmDel(name);
  }
  externalTlvConfigSmIs(name, record, root_);
}

void InputSm::doSyncExternalTlvs(const Konet::IntfId& intf) {
  externalTlvConfigSmForEach([&](const std::string&, ExternalTlvConfigSm& sm) { sm.doSyncNewLocalPort(intf); });
}

}  // namespace Lldp::Agent::Input
