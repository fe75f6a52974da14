// External TLV clients through the socket: a client's whole set replaced, one TLV added or
// removed, each checked whole against the bounds before anything is written, and applied in
// O(n log n) however large the set.
#include <optional>
#include <set>
#include <sstream>

#include "ipc/Request.h"
#include "ipc/Service.h"

namespace Ipc {

namespace {

using TlvKey = Lldp::UnknownOrgDefTlv::Key;

constexpr size_t kMaxTlvBytes = 507;

size_t tlvsOf(const Lldp::ExternalTlvConfig& config) {
  size_t n = 0;
  for (const auto& [intf, port] : config.portConfig()) n += port->unknownOrgDefTlv().size();
  return n;
}

std::string limitText(size_t limit, const char* what) {
  return "at most " + std::to_string(limit) + " " + what;
}

struct TlvFields {
  Konet::IntfId intf;
  Lldp::Oui oui;
  uint8_t subtype = 0;
};

TlvFields tlvFields(const Json& tlv) {
  if (!tlv.is_object()) refuse("invalid", "a TLV is an object with intfId, oui and subtype");
  TlvFields f{Konet::IntfId(nameChecked(stringField(tlv, "intfId"), "interface")), ouiOf(tlv.value("oui", Json())), 0};
  const Json subtype = tlv.value("subtype", Json());
  if (!subtype.is_number_unsigned() || subtype.get<uint64_t>() > 255) refuse("invalid", "\"subtype\" must be 0 to 255");
  f.subtype = static_cast<uint8_t>(subtype.get<uint64_t>());
  return f;
}

Lldp::BoundedString507 tlvValue(const Json& tlv) {
  const Json value = tlv.value("value", Json());
  if (!value.is_string()) refuse("invalid", "\"value\" must be hexadecimal bytes");
  const std::string bytes = bytesOfHex(value.get<std::string>());
  if (bytes.size() > kMaxTlvBytes) refuse("invalid", "\"value\" longer than 507 bytes");
  return Lldp::BoundedString507(bytes);
}

}  // namespace

Platform::Ptr<Lldp::ExternalTlvConfig> Service::externalTlvClient(const std::string& client, bool create) {
  if (client == paths_.configTlvClient) {
    refuse("notWritable", "the external TLV client \"" + client +
                              "\" is the configuration file's: change its TLVs with the external-tlv keys "
                              "(lldp configure interface IFACE external-tlv.OUI.SUBTYPE.INDEX HEX)");
  }
  const auto dir = db_.lookup<Platform::Dir>(paths_.externalTlvs);
  if (!dir) refuse("unavailable", "the agent is not running yet");
  if (const auto found = Platform::ptrCast<Lldp::ExternalTlvConfig>(dir->entry(client))) return found;
  if (!create) refuse("notFound", "no external TLV client " + client);
  const size_t clients = dir->entry().size() - (dir->entry().contains(paths_.configTlvClient) ? 1 : 0);
  if (clients >= limits_.externalTlvClients) {
    refuse("limit", limitText(limits_.externalTlvClients, "external TLV clients"));
  }
  return nullptr;  // the caller creates it once everything else is checked
}

void Service::ephemeralIs(const std::string& client, Session* owner) {
  if (owner) {
    ephemeralOwner_[client] = owner;
  } else {
    ephemeralOwner_.erase(client);
  }
}

Json Service::externalTlvsIs(const std::string& client, const Json& request, Session& session) {
  const Json value = request.contains("value") ? request["value"] : Json();
  if (!value.is_object()) refuse("badRequest", "\"value\" must be an object");
  const bool ephemeral = boolField(value, "ephemeral", false);
  auto ports = value.find("portConfig");
  if (ports == value.end() || !ports->is_array()) refuse("invalid", "expected {\"portConfig\": [...]}");
  if (ports->size() > limits_.portsPerClient) refuse("limit", limitText(limits_.portsPerClient, "ports per client"));
  std::map<Konet::IntfId, std::map<TlvKey, Lldp::BoundedString507>> wanted;
  size_t total = 0;
  for (const Json& port : *ports) {
    if (!port.is_object()) refuse("invalid", "each portConfig entry is an object");
    const Konet::IntfId intf(nameChecked(stringField(port, "intfId"), "interface"));
    if (wanted.contains(intf)) refuse("invalid", "interface " + intf.name() + " is given twice");
    auto& tlvs = wanted[intf];
    auto list = port.find("unknownOrgDefTlv");
    if (list == port.end() || !list->is_array()) refuse("invalid", "expected \"unknownOrgDefTlv\": [...]");
    if (list->size() > limits_.tlvsPerPort) refuse("limit", limitText(limits_.tlvsPerPort, "TLVs per port"));
    total += list->size();
    if (total > limits_.tlvsPerClient) refuse("limit", limitText(limits_.tlvsPerClient, "TLVs per client"));
    // Several TLVs with one OUI and subtype are told apart by their order.
    std::map<std::pair<uint32_t, uint8_t>, uint32_t> nextIndex;
    for (const Json& tlv : *list) {
      if (!tlv.is_object()) refuse("invalid", "each TLV is an object with oui, subtype and value");
      const Lldp::Oui oui = ouiOf(tlv.value("oui", Json()));
      const Json subtype = tlv.value("subtype", Json());
      if (!subtype.is_number_unsigned() || subtype.get<uint64_t>() > 255) refuse("invalid", "\"subtype\" must be 0 to 255");
      const auto sub = static_cast<uint8_t>(subtype.get<uint64_t>());
      tlvs.emplace(TlvKey(oui, sub, ++nextIndex[{oui.value, sub}]), tlvValue(tlv));
    }
  }
  auto config = externalTlvClient(client, true);
  if (!config) {
    std::string error;
    config = Platform::ptrCast<Lldp::ExternalTlvConfig>(
        db_.dirEntryIs(paths_.externalTlvs, client, "ExternalTlvConfig", error));
    if (!config) refuse("invalid", error);
  }
  // Only differences are written, each a keyed step: the agent's reactors then do one sorted
  // insertion or removal per TLV that changed.
  std::vector<Konet::IntfId> goneIntfs;
  for (auto it = config->portConfig().begin(); it; ++it) {
    if (!wanted.contains(it.key())) goneIntfs.push_back(it.key());
  }
  for (const Konet::IntfId& intf : goneIntfs) config->portConfigDel(intf);
  for (const auto& [intf, tlvs] : wanted) {
    auto port = config->portConfigIs(intf);
    std::vector<TlvKey> gone;
    for (auto it = port->unknownOrgDefTlv().begin(); it; ++it) {
      if (!tlvs.contains(it.key())) gone.push_back(it.key());
    }
    for (const TlvKey& key : gone) port->unknownOrgDefTlvDel(key);
    for (const auto& [key, bytes] : tlvs) {
      const Lldp::UnknownOrgDefTlv tlv{key, bytes};
      const Lldp::UnknownOrgDefTlv* current = port->unknownOrgDefTlv().find(key);
      if (!current || !(*current == tlv)) port->unknownOrgDefTlvIs(key, tlv);
    }
  }
  ephemeralIs(client, ephemeral ? &session : nullptr);
  changed(session, "external TLV client " + client + " set: " + std::to_string(total) + " TLVs on " +
                       std::to_string(wanted.size()) + " ports" + (ephemeral ? ", until its connection closes" : ""));
  return Json::object();
}

Json Service::externalTlvAdd(const std::string& client, const Json& request, Session& session) {
  const Json& add = request["add"];
  const bool ephemeral = boolField(request, "ephemeral", false);
  const TlvFields f = tlvFields(add);
  const Lldp::BoundedString507 bytes = tlvValue(add);
  auto config = externalTlvClient(client, true);
  Lldp::ExternalTlvPortConfig::Ptr port = config ? config->portConfig(f.intf) : nullptr;
  if (config && !port && config->portConfig().size() >= limits_.portsPerClient) {
    refuse("limit", limitText(limits_.portsPerClient, "ports per client"));
  }
  if (port && port->unknownOrgDefTlv().size() >= limits_.tlvsPerPort) {
    refuse("limit", limitText(limits_.tlvsPerPort, "TLVs per port"));
  }
  if (config && tlvsOf(*config) >= limits_.tlvsPerClient) {
    refuse("limit", limitText(limits_.tlvsPerClient, "TLVs per client"));
  }
  // The lowest index free for this OUI and subtype on the port.
  uint32_t index = 1;
  if (port) {
    for (auto it = port->unknownOrgDefTlv().begin(); it; ++it) {
      const TlvKey& key = it.key();
      if (key.oui() == f.oui && key.subtype() == f.subtype && key.index() == index) ++index;
    }
  }
  if (!config) {
    std::string error;
    config = Platform::ptrCast<Lldp::ExternalTlvConfig>(
        db_.dirEntryIs(paths_.externalTlvs, client, "ExternalTlvConfig", error));
    if (!config) refuse("invalid", error);
  }
  if (!port) port = config->portConfigIs(f.intf);
  const TlvKey key(f.oui, f.subtype, index);
  port->unknownOrgDefTlvIs(key, Lldp::UnknownOrgDefTlv{key, bytes});
  if (ephemeral) ephemeralIs(client, &session);
  std::ostringstream what;
  what << "external TLV client " << client << " added OUI " << f.oui << " subtype " << int(f.subtype) << " index "
       << index << " on " << f.intf;
  changed(session, what.str());
  return {{"index", index}};
}

Json Service::externalTlvDel(const std::string& client, const Json& request, Session& session) {
  auto which = request.find("tlv");
  if (which == request.end()) {
    externalTlvClient(client, false);
    std::string error;
    if (!db_.dirEntryDel(paths_.externalTlvs, client, error)) refuse("notFound", error);
    ephemeralIs(client, nullptr);
    changed(session, "external TLV client " + client + " removed");
    return Json::object();
  }
  const TlvFields f = tlvFields(*which);
  std::optional<uint32_t> index;
  if (auto it = which->find("index"); it != which->end()) {
    if (!it->is_number_unsigned() || it->get<uint64_t>() < 1 || it->get<uint64_t>() > 65535) {
      refuse("invalid", "\"index\" must be 1 to 65535");
    }
    index = static_cast<uint32_t>(it->get<uint64_t>());
  }
  const auto config = externalTlvClient(client, false);
  const auto port = config->portConfig(f.intf);
  std::vector<TlvKey> doomed;
  if (port) {
    for (auto it = port->unknownOrgDefTlv().begin(); it; ++it) {
      const TlvKey& key = it.key();
      if (key.oui() == f.oui && key.subtype() == f.subtype && (!index || key.index() == *index)) doomed.push_back(key);
    }
  }
  if (doomed.empty()) refuse("notFound", "client " + client + " has no such TLV on " + f.intf.name());
  for (const TlvKey& key : doomed) port->unknownOrgDefTlvDel(key);
  if (port->unknownOrgDefTlv().empty()) config->portConfigDel(f.intf);
  std::ostringstream what;
  what << "external TLV client " << client << " removed " << doomed.size() << " TLVs (OUI " << f.oui << " subtype "
       << int(f.subtype) << ") on " << f.intf;
  changed(session, what.str());
  return {{"removed", doomed.size()}};
}

}  // namespace Ipc
