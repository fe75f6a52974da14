// Runners of the `lldp` commands: query, model, render.
#include "cli/Commands.h"

#include <unistd.h>

#include <chrono>

#include "cli/Model.h"
#include "cli/Tables.h"
#include "platform/Json.h"
#include "platform/Text.h"

namespace Cli {

namespace {

constexpr const char* kStatusPath = "l2discovery/lldp/status/all";
constexpr const char* kCliConfigPath = "l2discovery/lldp/cliConfig";
constexpr const char* kExternalTlvsPath = "l2discovery/lldp/externalTlvs";
// Enough of a reply to tell a success from anything else.
constexpr size_t kReplyStartBytes = 64;

// The reply when it is a success; otherwise one line on standard error and nothing.
std::optional<Json> checked(Context& c, std::optional<Json> reply, const std::string& error) {
  if (!reply) {
    c.err << "lldp: " << Platform::printable(error) << "\n";
    return std::nullopt;
  }
  if (reply->value("ok", Json()) != true) {
    const Json problem = reply->value("error", Json());
    const Json message = problem.is_object() ? problem.value("message", Json()) : Json();
    // The refusal may quote what the request carried: shown escaped, on one line.
    c.err << "lldp: the agent refused: "
          << Platform::printable(message.is_string() ? message.get<std::string>() : "no reason given") << "\n";
    return std::nullopt;
  }
  return reply;
}

std::optional<Json> call(Context& c, const Json& request) {
  std::string error;
  auto reply = c.agent.ask(request, error);
  return checked(c, std::move(reply), error);
}

void printJson(Context& c, const Json& doc) { c.out << Platform::jsonText(doc, c.pretty ? 2 : -1) << "\n"; }

Json interfacesRequest(const char* op, const std::vector<std::string>& intfs) {
  Json request = {{"op", op}};
  if (!intfs.empty()) request["interfaces"] = intfs;
  return request;
}

int done(Context& c) {
  if (c.json) printJson(c, {{"schema", kJsonSchema}, {"ok", true}});
  return kExitOk;
}

// A run-time change: the agent runs it at once, the file does not have it.
int changed(Context& c) {
  if (c.json) {
    printJson(c, {{"schema", kJsonSchema}, {"ok", true}, {"saved", false}});
  } else {
    c.out << "Changed in the running agent until it restarts or reloads its file; 'lldp config save' keeps it.\n";
  }
  return kExitOk;
}

}  // namespace

double Context::wallNow() const {
  if (wallClock) return wallClock();
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

int showNeighbors(Context& c, const std::vector<std::string>& intfs, bool detail) {
  const Json request = interfacesRequest("neighbors", intfs);
  if (c.json && !c.pretty) {
    // Tens of megabytes for a large table: passed on as the agent writes them, never read, rewritten
    // or held whole. What is not a success reply is read as JSON as usual.
    std::string head;
    bool decided = false, passing = false;
    auto sink = [&](std::string_view piece, bool last) {
      if (passing) {
        c.out << piece;
        if (last) c.out << "\n";
        return;
      }
      head += piece;
      if (decided || (head.size() < kReplyStartBytes && !last)) return;
      decided = true;
      const auto at = documentFieldsAt(head);
      if (!at) return;
      passing = true;
      c.out << "{\"schema\":" << kJsonSchema << std::string_view(head).substr(*at);
      if (last) c.out << "\n";
    };
    std::string error;
    const bool answered = c.agent.askStream(request, sink, error);
    if (passing) {
      if (answered) return kExitOk;
      c.out.flush();
      c.err << "lldp: " << error << "\n";
      return kExitRefused;
    }
    std::optional<Json> parsed;
    if (answered) {
      parsed = Json::parse(head, nullptr, false);
      if (parsed->is_discarded()) {
        parsed.reset();
        error = "the LLDP agent sent a reply that is not JSON";
      }
    }
    auto reply = checked(c, std::move(parsed), error);
    if (!reply) return kExitRefused;
    printJson(c, jsonDocument(*reply, {"now", "portStatus"}));
    return kExitOk;
  }
  Json textRequest = request;
  if (!c.json && !detail) textRequest["attributes"] = neighborRowAttributes();
  auto reply = call(c, textRequest);
  if (!reply) return kExitRefused;
  if (c.json) {
    printJson(c, jsonDocument(*reply, {"now", "portStatus"}));
  } else if (detail) {
    renderNeighborDetails(*reply, c.out);
  } else {
    renderNeighbors(neighborRows(*reply), c.out);
  }
  return kExitOk;
}

int showInterfaces(Context& c, const std::vector<std::string>& intfs) {
  auto reply = call(c, interfacesRequest("interfaces", intfs));
  if (!reply) return kExitRefused;
  if (c.json) {
    printJson(c, jsonDocument(*reply, {"port"}));
  } else {
    renderInterfaces(interfaceRows(*reply), c.out);
  }
  return kExitOk;
}

int showStatistics(Context& c, const std::vector<std::string>& intfs) {
  auto reply = call(c, interfacesRequest("interfaces", intfs));
  if (!reply) return kExitRefused;
  if (c.json) {
    Json ports = Json::array();
    for (const Json& port : reply->value("port", Json::array())) {
      ports.push_back({{"intfId", port.value("intfId", "")}, {"portStatus", port.value("portStatus", Json())}});
    }
    printJson(c, {{"schema", kJsonSchema}, {"port", std::move(ports)}});
  } else {
    renderStatistics(interfaceRows(*reply), c.out);
  }
  return kExitOk;
}

int showLocal(Context& c) {
  auto reply = call(c, {{"op", "get"}, {"path", "l2discovery/lldp/localSystem"}});
  if (!reply) return kExitRefused;
  const Json local = reply->value("value", Json::object());
  if (c.json) {
    printJson(c, {{"schema", kJsonSchema}, {"localSystem", local}});
  } else {
    renderLocal(local, c.out);
  }
  return kExitOk;
}

int showConfig(Context& c) {
  auto reply = call(c, {{"op", "config"}});
  if (!reply) return kExitRefused;
  const Json text = reply->value("config", Json());
  if (c.json) {
    printJson(c, jsonDocument(*reply, {"config"}));
  } else if (text.is_string()) {
    // TOML escapes what it must; what steers a terminal but is valid text is escaped here.
    std::string_view rest = text.get_ref<const std::string&>();
    while (!rest.empty()) {
      const size_t newline = rest.find('\n');
      c.out << Platform::printable(rest.substr(0, newline)) << "\n";
      rest.remove_prefix(newline == std::string_view::npos ? rest.size() : newline + 1);
    }
  }
  return kExitOk;
}

int showClassification(Context& c) {
  auto reply = call(c, {{"op", "get"}, {"path", "identity/nbrClassification/status"}});
  if (!reply) return kExitRefused;
  if (c.json) {
    printJson(c, {{"schema", kJsonSchema}, {"neighbor", reply->value("value", Json::object()).value("neighbor", Json::array())}});
  } else {
    renderClassification(classificationRows(*reply), c.out);
  }
  return kExitOk;
}

int showStatus(Context& c) {
  auto reply = call(c, {{"op", "status"}});
  if (!reply) return kExitRefused;
  Json status = *reply;
  for (const char* key : {"v", "id", "ok"}) status.erase(key);
  if (c.json) {
    Json doc = {{"schema", kJsonSchema}};
    for (auto& [k, v] : status.items()) doc[k] = v;
    printJson(c, doc);
  } else {
    renderStatus(status, c.wallNow(), c.out);
  }
  return kExitOk;
}

int configure(Context& c, const std::string& intf, const std::string& key, const std::string& value) {
  Json request = {{"op", "set"}, {"path", kCliConfigPath}, {"key", key}, {"value", value}};
  if (!intf.empty()) request["interface"] = intf;
  return call(c, request) ? changed(c) : kExitRefused;
}

int unconfigure(Context& c, const std::string& intf, const std::string& key) {
  Json request = {{"op", "delete"}, {"path", kCliConfigPath}};
  if (!key.empty()) request["key"] = key;
  if (!intf.empty()) request["interface"] = intf;
  return call(c, request) ? changed(c) : kExitRefused;
}

int configSave(Context& c) {
  auto reply = call(c, {{"op", "save"}});
  if (!reply) return kExitRefused;
  const Json note = reply->value("note", Json());
  if (c.json) {
    Json doc = {{"schema", kJsonSchema}, {"ok", true}};
    if (note.is_string()) doc["note"] = note;
    printJson(c, doc);
  } else if (note.is_string()) {
    c.err << "lldp: saved; " << Platform::printable(note.get<std::string>()) << "\n";
  }
  return kExitOk;
}

int clearNeighbors(Context& c, const std::string& intf) {
  std::string origin = "lldp clear neighbors";
  Json request = {{"op", "clear"}};
  if (!intf.empty()) {
    origin += " " + intf;
    request["interface"] = intf;
  }
  if (const char* tty = ::ttyname(STDIN_FILENO)) origin += std::string(" on ") + tty;
  request["origin"] = origin;
  return call(c, request) ? done(c) : kExitRefused;
}

int tlvAdd(Context& c, const std::string& client, const std::string& intf, const std::string& oui, unsigned subtype,
           const std::string& value) {
  auto reply = call(c, {{"op", "set"},
                        {"path", std::string(kExternalTlvsPath) + "/" + client},
                        {"add", {{"intfId", intf}, {"oui", oui}, {"subtype", subtype}, {"value", value}}}});
  if (!reply) return kExitRefused;
  const Json index = reply->value("index", Json());
  if (c.json) {
    printJson(c, {{"schema", kJsonSchema}, {"ok", true}, {"index", index}});
  } else if (index.is_number()) {
    c.out << "TLV " << oui << " subtype " << subtype << " added on " << Platform::printable(intf) << " as index "
          << index.dump() << "\n";
  }
  return kExitOk;
}

int tlvDel(Context& c, const std::string& client, const std::string& intf, const std::string& oui, unsigned subtype,
           unsigned index) {
  Json request = {{"op", "delete"}, {"path", std::string(kExternalTlvsPath) + "/" + client}};
  if (!intf.empty()) {
    request["tlv"] = {{"intfId", intf}, {"oui", oui}, {"subtype", subtype}};
    if (index) request["tlv"]["index"] = index;
  }
  return call(c, request) ? done(c) : kExitRefused;
}

int watch(Context& c, size_t maxEvents) {
  if (!call(c, {{"op", "subscribe"}, {"path", kStatusPath}, {"types", {"RemoteSystem"}}})) return kExitRefused;
  size_t seen = 0;
  while (auto message = c.agent.nextEvent()) {
    if (!message->is_object()) continue;
    const Json event = message->value("event", Json());
    if (event == "disconnected") {
      const Json reason = message->value("reason", Json());
      c.err << "lldp: the agent disconnected this watch: "
            << Platform::printable(reason.is_string() ? reason.get<std::string>() : "") << "\n";
      return kExitRefused;
    }
    const Json changes = message->value("changes", Json());
    if (!changes.is_array()) continue;
    const double now = c.wallNow();
    for (Json change : changes) {
      if (!change.is_object()) continue;
      if (c.json) {
        change["time"] = localTimeText(now, true);
        c.out << Platform::jsonText(change, -1) << "\n";
      } else {
        c.out << watchLine(change, now) << "\n";
      }
      c.out.flush();
      if (maxEvents && ++seen >= maxEvents) return kExitOk;
    }
  }
  c.err << "lldp: the agent went away\n";
  return kExitRefused;
}

}  // namespace Cli
