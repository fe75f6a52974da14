// Aligned tables and detail blocks of the `lldp show` commands.
#include "cli/Tables.h"

#include <algorithm>

#include "cli/Detail.h"
#include "platform/Text.h"

namespace Cli {

void Table::rowIs(std::vector<std::string> row) {
  for (std::string& cell : row) {
    if (!Platform::isPrintable(cell)) cell = Platform::printable(cell);
  }
  rows_.push_back(std::move(row));
}

void Table::print(std::ostream& out) const {
  std::vector<size_t> widths;
  for (const auto& row : rows_) {
    if (widths.size() < row.size()) widths.resize(row.size(), 0);
    // A row of one cell (a group title) spans the table and sets no width.
    for (size_t i = 0; i < row.size() && row.size() > 1; ++i) {
      widths[i] = std::max(widths[i], Platform::displayWidth(row[i]));
    }
  }
  for (const auto& row : rows_) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line += std::string(widths[i] - Platform::displayWidth(row[i]) + 2, ' ');
    }
    out << line << "\n";
  }
}

void renderNeighbors(const std::vector<NeighborRow>& rows, std::ostream& out) {
  Table table({"Interface", "Chassis ID", "Port ID", "System name", "Capabilities", "TTL", "Age"});
  for (const auto& r : rows) {
    table.rowIs({r.intf, r.chassisId, r.portId, r.sysName, r.capsEnabled, std::to_string(r.ttl), ageText(r.age)});
  }
  table.print(out);
  out << "Neighbors: " << rows.size() << "\n";
}

void renderNeighborDetails(const Json& reply, std::ostream& out) {
  const auto at = [](const Json& j, const char* key) {
    static const Json none;
    auto it = j.is_object() ? j.find(key) : j.end();
    return it == j.end() ? none : *it;
  };
  const Json now = at(reply, "now");
  size_t count = 0;
  const Json ports = at(reply, "portStatus");
  for (const Json& port : ports.is_array() ? ports : Json::array()) {
    const Json intf = at(port, "intfId");
    const Json neighbours = at(port, "remoteSystem");
    for (const Json& rs : neighbours.is_array() ? neighbours : Json::array()) {
      const Json index = at(rs, "index");
      Table title({"Interface " + (intf.is_string() ? intf.get<std::string>() : std::string("?")) + ", neighbor " +
                   (index.is_number() ? index.dump() : std::string("?"))});
      title.print(out);
      renderDetail(neighborDetail(rs, now.is_number() ? now.get<double>() : -1), out);
      out << "\n";
      ++count;
    }
  }
  out << "Neighbors: " << count << "\n";
}

void renderInterfaces(const std::vector<InterfaceRow>& rows, std::ostream& out) {
  Table table({"Interface", "Status", "Port ID", "Tx frames", "Rx frames", "Sends"});
  for (const auto& r : rows) {
    std::string sends;
    for (const auto& s : r.sending) sends += (sends.empty() ? "" : ",") + s;
    table.rowIs({r.intf, r.counted ? r.adminStatus : r.adminStatus + " (inactive)", r.portId,
                 std::to_string(r.txFrames), std::to_string(r.rxFrames), sends});
  }
  table.print(out);
}

void renderStatistics(const std::vector<InterfaceRow>& rows, std::ostream& out) {
  Table table({"Interface", "Tx", "Tx too long", "Rx", "Rx errors", "Rx discarded", "TLVs discarded",
               "TLVs unrecognized", "Ageouts", "Rx kernel drops"});
  for (const auto& r : rows) {
    table.rowIs({r.intf, std::to_string(r.txFrames), std::to_string(r.txLengthExceeded), std::to_string(r.rxFrames),
                 std::to_string(r.rxErrors), std::to_string(r.rxDiscarded), std::to_string(r.tlvsDiscarded),
                 std::to_string(r.tlvsUnrecognized), std::to_string(r.ageouts), std::to_string(r.kernelDrops)});
  }
  table.print(out);
}

void renderLocal(const Json& ls, std::ostream& out) {
  const Json chassis = ls.value("chassisIdentifier", Json::object());
  Table table({"Chassis ID", chassis.value("value", "") + " (" +
                                 chassisSubtypeName(static_cast<uint8_t>(chassis.value("subtype", 0))) + ")"});
  table.rowIs({"System name", ls.value("sysName", "")});
  table.rowIs({"System description", ls.value("sysDesc", "")});
  table.rowIs({"Capabilities", capabilityNames(static_cast<uint16_t>(ls.value("sysCapSupported", 0)))});
  table.rowIs({"Enabled capabilities", capabilityNames(static_cast<uint16_t>(ls.value("sysCapEnabled", 0)))});
  for (const Json& addr : ls.value("managementAddress", Json::array())) {
    table.rowIs({"Management address", addr.value("value", Json::object()).value("address", "")});
  }
  table.print(out);
  out << "\n";
  Table ports({"Interface", "Port ID", "Port description"});
  for (const Json& port : ls.value("localPort", Json::array())) {
    ports.rowIs({port.value("intfId", ""), port.value("portIdentifier", Json::object()).value("value", ""),
                 port.value("portDesc", "")});
  }
  ports.print(out);
}

void renderClassification(const std::vector<ClassificationRow>& rows, std::ostream& out) {
  Table table({"MAC address", "Interface", "Classification", "Description"});
  for (const auto& r : rows) table.rowIs({r.ethAddr, r.intf, r.classification, r.description});
  table.print(out);
}

void renderStatus(const Json& status, double wallNow, std::ostream& out) {
  const Json now = status.value("now", Json());
  const double agentNow = now.is_number() ? now.get<double>() : 0;
  const auto shown = [&](const std::string& key, const Json& value) -> std::string {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_array()) {
      std::string list;
      for (const Json& item : value) list += (list.empty() ? "" : ", ") + (item.is_string() ? item.get<std::string>() : item.dump());
      return list.empty() ? "none" : list;
    }
    // Times on the agent's clock: an age and the local time.
    if (value.is_number() && now.is_number() && key.ends_with("Time")) {
      return agentTimeText(value.get<double>(), agentNow, wallNow);
    }
    return value.dump();
  };
  Table table({"Field", "Value"});
  for (const auto& [key, value] : status.items()) {
    if (key == "v" || key == "id" || key == "ok" || key == "now") continue;
    if (key == "uptime" && value.is_number()) {
      table.rowIs({key, ageText(value.get<double>()) + " (since " + localTimeText(wallNow - value.get<double>()) + ")"});
    } else if (value.is_object()) {
      for (const auto& [k, v] : value.items()) table.rowIs({key + "." + k, shown(k, v)});
    } else {
      table.rowIs({key, shown(key, value)});
    }
  }
  table.print(out);
}

}  // namespace Cli
