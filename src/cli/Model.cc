// Rows from the agent's JSON: every field read defensively, since another agent version may
// leave one out.
#include "cli/Model.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "cli/Render.h"
#include "platform/Text.h"

namespace Cli {

namespace {

std::string text(const Json& j, const char* key) {
  auto it = j.find(key);
  if (it == j.end() || it->is_null()) return {};
  return it->is_string() ? it->get<std::string>() : it->dump();
}

uint64_t number(const Json& j, const char* key) {
  auto it = j.find(key);
  if (it == j.end() || !it->is_number_integer()) return 0;
  if (it->is_number_unsigned()) return it->get<uint64_t>();
  return static_cast<uint64_t>(std::max<int64_t>(it->get<int64_t>(), 0));
}

const Json& child(const Json& j, const char* key) {
  static const Json empty = Json::object();
  auto it = j.find(key);
  return it != j.end() && it->is_object() ? *it : empty;
}

const Json& list(const Json& j, const char* key) {
  static const Json empty = Json::array();
  auto it = j.find(key);
  return it != j.end() && it->is_array() ? *it : empty;
}

NeighborRow neighborRow(const std::string& intf, const Json& rs, double now) {
  NeighborRow row;
  row.intf = intf;
  const Json& msap = child(rs, "msap");
  const Json& chassis = child(msap, "chassisIdentifier");
  const Json& port = child(msap, "portIdentifier");
  row.chassisId = text(chassis, "value");
  row.chassisSubtype = chassisSubtypeName(static_cast<uint8_t>(number(chassis, "subtype")));
  row.portId = text(port, "value");
  row.portSubtype = portSubtypeName(static_cast<uint8_t>(number(port, "subtype")));
  row.portDesc = text(rs, "portDesc");
  row.sysName = text(rs, "sysName");
  row.sysDesc = text(rs, "sysDesc");
  row.capsSupported = capabilityNames(static_cast<uint16_t>(number(rs, "sysCapSupported")));
  row.capsEnabled = capabilityNames(static_cast<uint16_t>(number(rs, "sysCapEnabled")));
  for (const Json& addr : list(rs, "managementAddress")) row.managementAddresses.push_back(text(child(addr, "value"), "address"));
  row.ttl = static_cast<unsigned>(number(rs, "ttl"));
  auto created = rs.find("creationTime");
  if (created != rs.end() && created->is_number()) row.age = std::max(0.0, now - created->get<double>());
  return row;
}

}  // namespace

Json jsonDocument(const Json& reply, std::initializer_list<const char*> keys) {
  Json doc = {{"schema", kJsonSchema}};
  for (const char* key : keys) {
    if (auto it = reply.find(key); it != reply.end()) doc[key] = *it;
  }
  return doc;
}

std::optional<size_t> documentFieldsAt(std::string_view reply) {
  std::string_view rest = reply;
  auto take = [&rest](std::string_view text) {
    if (!rest.starts_with(text)) return false;
    rest.remove_prefix(text.size());
    return true;
  };
  // "key":digits, when the key is there.
  auto number = [&](std::string_view key) {
    if (!take(key)) return true;
    const size_t digits = rest.find_first_not_of("0123456789");
    if (digits == 0 || digits == std::string_view::npos || rest[digits] != ',') return false;
    rest.remove_prefix(digits + 1);
    return true;
  };
  if (!take("{") || !number("\"v\":") || !number("\"id\":") || !take("\"ok\":true")) return std::nullopt;
  if (!rest.starts_with(",") && !rest.starts_with("}")) return std::nullopt;
  return reply.size() - rest.size();
}

const std::vector<std::string>& neighborRowAttributes() {
  static const std::vector<std::string> names = {"msap",   "ttl",     "creationTime",    "portDesc",      "sysName",
                                                 "sysDesc", "sysCapSupported", "sysCapEnabled", "managementAddress"};
  return names;
}

std::vector<NeighborRow> neighborRows(const Json& reply) {
  std::vector<NeighborRow> rows;
  const double now = reply.value("now", 0.0);
  for (const Json& port : list(reply, "portStatus")) {
    for (const Json& rs : list(port, "remoteSystem")) rows.push_back(neighborRow(text(port, "intfId"), rs, now));
  }
  return rows;
}

const char* adminStatusName(int status) {
  switch (status) {
    case 1: return "tx";
    case 2: return "rx";
    case 3: return "tx-rx";
    case 4: return "disabled";
  }
  return "?";
}

std::vector<InterfaceRow> interfaceRows(const Json& reply) {
  std::vector<InterfaceRow> rows;
  for (const Json& port : list(reply, "port")) {
    InterfaceRow row;
    row.intf = text(port, "intfId");
    const Json& config = child(port, "portConfig");
    row.adminStatus = adminStatusName(static_cast<int>(number(config, "adminStatus")));
    const uint64_t base = number(config, "enabledTlvs");
    const uint64_t dot3 = number(config, "dot3EnabledTlvs");
    const std::pair<uint64_t, const char*> tlvs[] = {{base & 1, "port-description"}, {base & 2, "system-name"},
                                                     {base & 4, "system-description"}, {base & 8, "capabilities"},
                                                     {dot3 & 1, "mac-phy"}, {dot3 & 2, "power"},
                                                     {dot3 & 4, "link-aggregation"}, {dot3 & 8, "max-frame-size"}};
    for (const auto& [on, name] : tlvs) {
      if (on) row.sending.push_back(name);
    }
    if (config.value("mgmtAddrTxEnable", false)) row.sending.push_back("management-address");
    if (config.value("portVlanTxEnable", false)) row.sending.push_back("port-vlan");
    const Json& local = child(port, "localPort");
    row.portId = text(child(local, "portIdentifier"), "value");
    row.portDesc = text(local, "portDesc");
    const Json& status = child(port, "portStatus");
    row.counted = !status.empty();
    row.txFrames = number(status, "txFramesTotal");
    row.txLengthExceeded = number(status, "txFramesLengthExceeded");
    row.rxFrames = number(status, "rxFramesTotal");
    row.rxErrors = number(status, "rxFramesErrors");
    row.rxDiscarded = number(status, "rxFramesDiscardedTotal");
    row.tlvsDiscarded = number(status, "rxTLVsDiscardedTotal");
    row.tlvsUnrecognized = number(status, "rxTLVsUnrecognizedTotal");
    row.ageouts = number(status, "rxAgeoutsTotal");
    row.kernelDrops = number(status, "rxKernelDropsTotal");
    rows.push_back(std::move(row));
  }
  return rows;
}

std::vector<ClassificationRow> classificationRows(const Json& reply) {
  std::vector<ClassificationRow> rows;
  for (const Json& entry : list(child(reply, "value"), "neighbor")) {
    const Json& n = child(entry, "value");
    // The agent spells the classification out; text shows the same word.
    const std::string kind = text(n, "classification");
    rows.push_back({text(entry, "key"), text(n, "intfId"), kind.empty() ? "unclassified" : kind,
                    text(n, "description")});
  }
  return rows;
}

std::string ageText(double seconds) {
  if (!std::isfinite(seconds) || seconds < 0) return "-";
  const auto s = static_cast<uint64_t>(seconds);
  char out[32];
  if (s < 60) {
    std::snprintf(out, sizeof out, "%llus", static_cast<unsigned long long>(s));
  } else if (s < 3600) {
    std::snprintf(out, sizeof out, "%llum%02llus", static_cast<unsigned long long>(s / 60),
                  static_cast<unsigned long long>(s % 60));
  } else if (s < 86400) {
    std::snprintf(out, sizeof out, "%lluh%02llum", static_cast<unsigned long long>(s / 3600),
                  static_cast<unsigned long long>(s % 3600 / 60));
  } else {
    std::snprintf(out, sizeof out, "%llud%02lluh", static_cast<unsigned long long>(s / 86400),
                  static_cast<unsigned long long>(s % 86400 / 3600));
  }
  return out;
}

std::string localTimeText(double wallTime, bool iso) {
  if (!std::isfinite(wallTime) || wallTime < 0 || wallTime > 1e12) return "-";
  const auto whole = static_cast<std::time_t>(wallTime);
  std::tm local{};
  if (!::localtime_r(&whole, &local)) return "-";
  char out[64];
  if (!iso) {
    std::strftime(out, sizeof out, "%Y-%m-%d %H:%M:%S", &local);
    return out;
  }
  char zone[8];
  std::strftime(out, sizeof out, "%Y-%m-%dT%H:%M:%S", &local);
  std::strftime(zone, sizeof zone, "%z", &local);  // +0200, written +02:00 as RFC 3339 has it
  const std::string z = zone;
  const int millis = static_cast<int>((wallTime - static_cast<double>(whole)) * 1000);
  char fraction[8];
  std::snprintf(fraction, sizeof fraction, ".%03d", std::clamp(millis, 0, 999));
  return std::string(out) + fraction + (z.size() == 5 ? z.substr(0, 3) + ":" + z.substr(3) : z);
}

std::string agentTimeText(double time, double agentNow, double wallNow) {
  if (time <= 0) return "never";
  const double age = std::max(0.0, agentNow - time);
  return ageText(age) + " ago (" + localTimeText(wallNow - age) + ")";
}

std::string watchLine(const Json& change, double wallTime) {
  const std::string path = text(change, "path");
  // .../portStatus/<interface>/remoteSystem/<index>
  std::string intf;
  if (const size_t at = path.find("/portStatus/"); at != std::string::npos) {
    const size_t from = at + 12;
    const size_t to = path.find("/remoteSystem/", from);
    intf = path.substr(from, to == std::string::npos ? std::string::npos : to - from);
  }
  const NeighborRow row = neighborRow(intf, child(change, "value"), 0);
  std::string line = localTimeText(wallTime) + " " + text(change, "kind") + " " + (intf.empty() ? path : intf);
  if (!row.chassisId.empty()) line += " chassis " + row.chassisId + " port " + row.portId;
  if (!row.sysName.empty()) line += " (" + row.sysName + ")";
  if (change.contains("reason")) line += ": " + text(change, "reason");
  return Platform::printable(line);
}

}  // namespace Cli
