// Request handling of the state socket: reads, subscriptions, and writes of the input paths.
#include "ipc/Service.h"

#include <pwd.h>

#include <algorithm>
#include <cctype>
#include <set>

#include "ipc/RecordText.h"
#include "ipc/Request.h"
#include "platform/Log.h"
#include "records/AgentRecords.h"
#include "records/LldpRecords.h"
#include "records/RecordsJson.h"

namespace Ipc {

using Platform::Entity;
using Platform::Ptr;

namespace {

constexpr size_t kMaxSubscriptionsPerSession = 16;
constexpr int kMaxNesting = 32;
// Names listed in a refusal that names the known interfaces.
constexpr size_t kMaxNamesListed = 16;

// nlohmann's parser recurses per level; a request never needs deep nesting.
bool nestingWithin(const std::string& line, int limit) {
  int depth = 0;
  bool inString = false;
  bool escaped = false;
  for (char c : line) {
    if (inString) {
      if (escaped) {
        escaped = false;
      } else if (c == '\\') {
        escaped = true;
      } else if (c == '"') {
        inString = false;
      }
      continue;
    }
    if (c == '"') inString = true;
    if (c == '{' || c == '[') {
      if (++depth > limit) return false;
    } else if (c == '}' || c == ']') {
      --depth;
    }
  }
  return true;
}

bool under(const std::string& path, const std::string& base, std::string* rest = nullptr) {
  if (path == base) {
    if (rest) rest->clear();
    return true;
  }
  if (path.size() <= base.size() + 1 || path.compare(0, base.size(), base) != 0 || path[base.size()] != '/') {
    return false;
  }
  if (rest) *rest = path.substr(base.size() + 1);
  return true;
}

std::string valueText(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "true" : "false";
  if (value.is_number_integer()) return value.dump();
  if (value.is_number_float()) return value.dump();
  refuse("badRequest", "\"value\" must be a string, a number or a boolean");
}

std::string userName(uid_t uid) {
  passwd entry{};
  passwd* found = nullptr;
  char buffer[1024];
  if (getpwuid_r(uid, &entry, buffer, sizeof buffer, &found) == 0 && found) return found->pw_name;
  return "uid " + std::to_string(uid);
}

template <class F>
void eachPortStatus(const Ptr<Entity>& status, F&& fn) {
  if (!status) return;
  const TypeOps* ops = typeOps(*status);
  if (!ops) return;
  ops->children(*status, [&](uint16_t, const std::string&, const Ptr<Entity>& child) {
    if (auto* ps = dynamic_cast<const Lldp::PortStatus*>(child.get())) fn(*ps);
  });
}

// The interface names a request gives, checked: empty for all.
std::set<std::string> interfaceFilter(const Json& request) {
  std::set<std::string> only;
  auto it = request.find("interfaces");
  if (it == request.end()) return only;
  if (!it->is_array()) refuse("badRequest", "\"interfaces\" must be a list of interface names");
  for (const Json& j : *it) {
    if (!j.is_string()) refuse("badRequest", "\"interfaces\" must be a list of interface names");
    only.insert(nameChecked(j.get<std::string>(), "interface"));
  }
  return only;
}

std::string textOf(const Json& j) { return Platform::jsonText(j, -1); }

const Platform::LogHandle<std::string_view, uint32_t, int32_t, std::string_view> LLDP_CONFIG_CHANGED(
    {"LLDP_CONFIG_CHANGED", Platform::Severity::notice,
     "LLDP configuration changed through the state socket by %s (uid %u, pid %d): %s",
     "A client of the LLDP agent's state socket changed what the agent sends or how it runs.",
     Platform::kNoActionRequired, 0, {"USER", "UID", "PID", "CHANGE"}});

Json portCounters(const Lldp::PortStatus& ps) {
  Json j = Platform::recordToJson(ps);
  j.erase("remoteSystem");
  j.erase("remoteSystemByMsap");
  return j;
}

}  // namespace

Session::~Session() = default;

Json errorReply(const std::string& code, const std::string& message) {
  return {{"v", kProtocolVersion}, {"ok", false}, {"error", {{"code", code}, {"message", message}}}};
}

Service::Service(Platform::StateDb& db, Paths paths, Limits limits)
    : db_(db), paths_(std::move(paths)), limits_(limits) {
  stateTypesRegister();
}

Service::~Service() = default;

Json Service::handle(const std::string& line, Session& session) { return Json::parse(handleText(line, session).line); }

Service::Reply Service::handleText(const std::string& line, Session& session) {
  if (!nestingWithin(line, kMaxNesting)) return {textOf(errorReply("badRequest", "request nested too deeply")), false};
  Json request = Json::parse(line, nullptr, false);
  if (request.is_discarded()) return {textOf(errorReply("badRequest", "not JSON")), false};
  if (!request.is_object()) return {textOf(errorReply("badRequest", "a request is a JSON object")), false};
  Json id;
  if (auto it = request.find("id"); it != request.end() && it->is_primitive()) id = *it;
  std::string head = "{\"v\":" + std::to_string(kProtocolVersion);
  if (!id.is_null()) head += ",\"id\":" + textOf(id);
  Reply reply{head + ",\"ok\":true", true};
  Json error;
  try {
    if (auto v = request.find("v"); v != request.end() && *v != kProtocolVersion) {
      refuse("unsupportedVersion", "protocol version " + v->dump() + " not supported; this agent speaks 1");
    }
    dispatch(request, session, reply.line);
    reply.line += '}';
    return reply;
  } catch (const Refusal& r) {
    error = {{"code", r.code}, {"message", r.message}};
  } catch (const std::exception& e) {
    error = {{"code", "invalid"}, {"message", e.what()}};
  }
  return {head + ",\"ok\":false,\"error\":" + textOf(error) + "}", false};
}

void Service::dispatch(const Json& request, Session& session, std::string& out) {
  const std::string op = stringField(request, "op");
  if (op == "neighbors") return neighbors(request, out);
  const Json reply = fields(op, request, session);
  for (const auto& [key, value] : reply.items()) {
    out += ',';
    out += textOf(Json(key));
    out += ':';
    out += textOf(value);
  }
}

Json Service::fields(const std::string& op, const Json& request, Session& session) {
  if (op == "hello") return {{"agent", "lldp-agent"}, {"protocol", kProtocolVersion}};
  if (op == "get") return get(request);
  if (op == "list") return list(stringField(request, "path"));
  if (op == "interfaces") return interfaces(request);
  if (op == "status") return status();
  if (op == "subscribe") return subscribe(request, session);
  if (op == "unsubscribe") return unsubscribe(request, session);
  if (op == "set") return set(request, session);
  if (op == "delete") return del(request, session);
  if (op == "clear") return clear(request, session);
  if (op == "config" || op == "save") {
    if (!config_) refuse("unavailable", "this agent has no configuration file to show or save");
    if (op == "config") return {{"config", config_->configText()}};
    std::string error, note;
    if (!config_->configSave(error, note)) refuse("failed", error);
    changed(session, "running configuration saved to the configuration file");
    return note.empty() ? Json::object() : Json{{"note", note}};
  }
  refuse("unknownOp", "unknown op \"" + op.substr(0, kMaxNameLength) + "\"");
}

Json Service::get(const Json& request) {
  const std::string path = stringField(request, "path");
  if (Ptr<Entity> e = db_.entity(path)) return {{"path", path}, {"type", e->typeName()}, {"value", entityJson(*e)}};
  return list(path);
}

Json Service::list(const std::string& path) {
  std::vector<Platform::PathEntry> entries;
  if (!db_.list(path, entries)) refuse("notFound", "nothing at " + path);
  Json children = Json::array();
  for (const auto& entry : entries) children.push_back({{"name", entry.name}, {"type", entry.typeName}});
  return {{"path", path}, {"children", std::move(children)}};
}

void Service::interfacesKnown(const std::set<std::string>& names) {
  if (names.empty()) return;
  std::set<std::string> known;
  eachPortStatus(db_.entity(paths_.status), [&](const Lldp::PortStatus& ps) { known.insert(ps.intfId().name()); });
  if (const auto config = db_.lookup<Lldp::Config>(paths_.config)) {
    for (const auto& [intf, pc] : config->portConfig()) known.insert(intf.name());
  }
  for (const std::string& name : names) {
    if (known.contains(name)) continue;
    std::string list;
    size_t listed = 0;
    for (const std::string& k : known) {
      if (listed++ == kMaxNamesListed) {
        list += " and " + std::to_string(known.size() - kMaxNamesListed) + " more";
        break;
      }
      list += (list.empty() ? "" : ", ") + k;
    }
    refuse("notFound", "no LLDP interface " + name +
                           (known.empty() ? "; there are no LLDP interfaces" : "; the LLDP interfaces are " + list));
  }
}

void Service::neighbors(const Json& request, std::string& out) {
  const std::set<std::string> only = interfaceFilter(request);
  interfacesKnown(only);
  // A client that shows a few columns asks for those only: less to write, send and read.
  std::set<std::string, std::less<>> attributes;
  if (auto it = request.find("attributes"); it != request.end()) {
    if (!it->is_array()) refuse("badRequest", "\"attributes\" must be a list of attribute names");
    for (const Json& name : *it) {
      if (!name.is_string()) refuse("badRequest", "\"attributes\" must be a list of attribute names");
      attributes.insert(name.get<std::string>());
    }
  }
  const Ptr<Entity> status = db_.entity(paths_.status);
  size_t neighbours = 0;
  eachPortStatus(status, [&](const Lldp::PortStatus& ps) { neighbours += ps.remoteSystems(); });
  out.reserve(out.size() + 2048 * neighbours + 4096);  // about what one neighbour takes
  RecordText text(out);
  out += ",\"now\":";
  text.json(Json(db_.scheduler().now()));
  out += ",\"portStatus\":[";
  bool firstPort = true;
  eachPortStatus(status, [&](const Lldp::PortStatus& ps) {
    const std::string name = ps.intfId().name();
    if (!only.empty() && !only.contains(name)) return;
    if (!firstPort) out += ',';
    firstPort = false;
    out += "{\"intfId\":";
    text.string(name);
    out += ",\"remoteSystem\":[";
    bool first = true;
    for (const auto& [index, rs] : ps.remoteSystem()) {
      if (!first) out += ',';
      first = false;
      text.recordOnly(*rs, attributes);
    }
    out += "]}";
  });
  out += ']';
}

Json Service::interfaces(const Json& request) {
  const std::set<std::string> only = interfaceFilter(request);
  interfacesKnown(only);
  Json ports = Json::array();
  const auto config = db_.lookup<Lldp::Config>(paths_.config);
  const auto local = db_.lookup<Lldp::LocalSystem>(paths_.localSystem);
  std::map<std::string, Json> counters;
  eachPortStatus(db_.entity(paths_.status), [&](const Lldp::PortStatus& ps) {
    counters[ps.intfId().name()] = portCounters(ps);
  });
  if (config) {
    for (const auto& [intf, pc] : config->portConfig()) {
      const std::string name = intf.name();
      if (!only.empty() && !only.contains(name)) continue;
      const Lldp::LocalPort::Ptr lp = local ? local->localPort(intf) : Lldp::LocalPort::Ptr();
      auto c = counters.find(name);
      ports.push_back({{"intfId", name},
                       {"portConfig", Platform::recordToJson(*pc)},
                       {"localPort", lp ? Platform::recordToJson(*lp) : Json()},
                       {"portStatus", c != counters.end() ? c->second : Json()}});
    }
  }
  return {{"port", std::move(ports)}};
}

namespace {

// A status record's own attributes without its port table: serialising every neighbour only
// to drop them cost the event thread most of a second with 10,000 neighbours.
template <class S>
Json countersJson(const S& status) {
  Json out = Json::object();
  status.visitAttrs([&out](Platform::AttrKind kind, const char* name, const auto& member) {
    if (kind == Platform::AttrKind::Attr || kind == Platform::AttrKind::Meta || kind == Platform::AttrKind::Counter) {
      out[name] = Platform::valueToJson(member);
    }
  });
  return out;
}

}  // namespace

Json Service::status() {
  size_t ports = 0, neighbours = 0;
  uint64_t kernelDrops = 0;
  eachPortStatus(db_.entity(paths_.status), [&](const Lldp::PortStatus& ps) {
    ++ports;
    neighbours += ps.remoteSystems();
    kernelDrops += ps.rxKernelDropsTotal();
  });
  // The agent's clock, so that a client can turn the times below into ages.
  Json out = {{"now", db_.scheduler().now()}, {"ports", ports}, {"neighbors", neighbours},
              {"subscriptions", subscriptionCount_}, {"rxKernelDrops", kernelDrops}};
  const Ptr<Entity> status = db_.entity(paths_.status);
  if (const auto* all = dynamic_cast<const Lldp::AllStatus*>(status.get())) {
    out["status"] = countersJson(*all);
  } else if (const auto* local = dynamic_cast<const Lldp::Status*>(status.get())) {
    out["status"] = countersJson(*local);
  }
  if (statusProvider_) {
    const Json extra = statusProvider_();  // kept alive while its items are walked
    for (const auto& [k, v] : extra.items()) out[k] = v;
  }
  return out;
}

Json Service::subscribe(const Json& request, Session& session) {
  // Every field is checked before the subscription exists: a refusal leaves none behind.
  const std::string path = stringField(request, "path");
  Ptr<Entity> root = db_.entity(path);
  if (!root) refuse("notFound", "nothing to subscribe to at " + path);
  if (session.subscriptions_.size() >= kMaxSubscriptionsPerSession) {
    refuse("limit", "at most " + std::to_string(kMaxSubscriptionsPerSession) + " subscriptions per client");
  }
  Subscription::Options options;
  if (auto it = request.find("types"); it != request.end()) {
    if (!it->is_array()) refuse("badRequest", "\"types\" must be a list of type names");
    for (const Json& t : *it) {
      if (!t.is_string()) refuse("badRequest", "\"types\" must be a list of type names");
      options.types.insert(t.get<std::string>());
    }
  }
  options.values = boolField(request, "values", true);
  const bool snapshot = boolField(request, "snapshot", false);
  const uint64_t id = nextSubscription_++;
  Session* target = &session;
  session.subscriptions_[id] = std::make_unique<Subscription>(db_.scheduler(), id, path, root, std::move(options),
                                                              [target](Json batch) { target->send(batch); });
  ++subscriptionCount_;
  Json out = {{"subscription", id}};
  if (snapshot) out["value"] = entityJson(*root);
  return out;
}

Json Service::unsubscribe(const Json& request, Session& session) {
  auto it = request.find("subscription");
  if (it == request.end() || !it->is_number_unsigned()) refuse("badRequest", "missing \"subscription\" number");
  if (!session.subscriptions_.erase(it->get<uint64_t>())) refuse("notFound", "no such subscription");
  --subscriptionCount_;
  return Json::object();
}

void Service::sessionGone(Session& session) {
  subscriptionCount_ -= session.subscriptions_.size();
  session.subscriptions_.clear();
  std::vector<std::string> gone;
  for (const auto& [client, owner] : ephemeralOwner_) {
    if (owner == &session) gone.push_back(client);
  }
  for (const std::string& client : gone) {
    ephemeralOwner_.erase(client);
    std::string error;
    if (db_.dirEntryDel(paths_.externalTlvs, client, error)) {
      changed(session, "external TLV client " + client + " removed: the connection that wrote it closed");
    }
  }
}

void Service::changed(const Session& session, const std::string& what) {
  LLDP_CONFIG_CHANGED.emit(userName(session.peer().uid), session.peer().uid, session.peer().pid, what);
}

Json Service::set(const Json& request, Session& session) {
  const std::string path = stringField(request, "path");
  if (!db_.writable(path)) refuse("notWritable", "not writable: " + path);
  std::string rest;
  if (under(path, paths_.cliConfig)) {
    if (!config_) refuse("unavailable", "this agent takes no configuration changes");
    const std::string intf = stringField(request, "interface", false);
    const std::string key = stringField(request, "key");
    auto value = request.find("value");
    if (value == request.end()) refuse("badRequest", "missing \"value\"");
    const std::string text = valueText(*value);
    std::string error;
    if (!config_->configKeyIs(intf, key, text, session.peer().uid == 0, error)) refuse("invalid", error);
    changed(session, (intf.empty() ? "" : "interface " + intf + " ") + key + " set to " + text);
    return Json::object();
  }
  if (path == paths_.remTablesCliConfig) return clear(request, session);
  if (under(path, paths_.externalTlvs, &rest) && !rest.empty()) {
    const std::string client = nameChecked(rest, "client");
    if (request.contains("add")) return externalTlvAdd(client, request, session);
    return externalTlvsIs(client, request, session);
  }
  const Json value = request.contains("value") ? request["value"] : Json::object();
  if (!value.is_object()) refuse("badRequest", "\"value\" must be an object");
  if (under(path, paths_.poePort, &rest) && !rest.empty()) return setPoePort(nameChecked(rest, "interface"), value, session);
  if (path == paths_.dot1x) {
    auto bypass = value.find("lldpBypass");
    if (bypass == value.end() || !bypass->is_boolean() || value.size() != 1) {
      refuse("invalid", "expected {\"lldpBypass\": true or false}");
    }
    auto dot1x = db_.lookup<Identity::Dot1x::Status>(path);
    if (!dot1x) refuse("notFound", "nothing at " + path);
    dot1x->lldpBypassIs(bypass->get<bool>());
    changed(session, std::string("802.1X LLDP bypass ") + (bypass->get<bool>() ? "on" : "off"));
    return Json::object();
  }
  refuse("notWritable", "no writer for " + path);
}

Json Service::setPoePort(const std::string& intf, const Json& value, Session& session) {
  Units::Watts power;
  uint8_t pdClass = 0, state = 0;
  bool negotiation = false;
  for (const auto& [k, v] : value.items()) {
    if (k == "grantedPower" && v.is_number() && v.get<double>() >= 0 && v.get<double>() <= 100) {
      power.value = v.get<double>();
    } else if (k == "poweredDeviceClass" && v.is_number_unsigned() && v.get<uint64_t>() <= 8) {
      pdClass = static_cast<uint8_t>(v.get<uint64_t>());
    } else if (k == "poePortState" && v.is_number_unsigned() && v.get<uint64_t>() <= 255) {
      state = static_cast<uint8_t>(v.get<uint64_t>());
    } else if (k == "lldpNegotiationSupported" && v.is_boolean()) {
      negotiation = v.get<bool>();
    } else {
      refuse("invalid", "\"" + k.substr(0, kMaxNameLength) +
                            "\": expected grantedPower (0 to 100 W), poweredDeviceClass (0 to 8), "
                            "poePortState (0 to 255) or lldpNegotiationSupported (boolean)");
    }
  }
  std::string error;
  auto poe = Platform::ptrCast<Environment::Power::PoePortStatus>(
      db_.dirEntryIs(paths_.poePort, intf, "PoePortStatus", error));
  if (!poe) refuse("invalid", error);
  poe->grantedPowerIs(power);
  poe->poweredDeviceClassIs(pdClass);
  poe->poePortStateIs(state);
  poe->lldpNegotiationSupportedIs(negotiation);
  changed(session, "power over Ethernet status of " + intf + " written");
  return Json::object();
}

Json Service::del(const Json& request, Session& session) {
  const std::string path = stringField(request, "path");
  if (!db_.writable(path)) refuse("notWritable", "not writable: " + path);
  std::string rest, error;
  if (under(path, paths_.cliConfig)) {
    if (!config_) refuse("unavailable", "this agent takes no configuration changes");
    const std::string intf = stringField(request, "interface", false);
    // An interface without a key is its whole section.
    const std::string key = stringField(request, "key", intf.empty());
    if (!config_->configKeyDel(intf, key, session.peer().uid == 0, error)) refuse("invalid", error);
    changed(session, intf.empty() ? key + " back to its default"
                     : key.empty() ? "interface " + intf + " section removed"
                                   : "interface " + intf + " " + key + " back to its default");
    return Json::object();
  }
  if (under(path, paths_.externalTlvs, &rest) && !rest.empty()) {
    return externalTlvDel(nameChecked(rest, "client"), request, session);
  }
  if (under(path, paths_.poePort, &rest) && !rest.empty()) {
    if (!db_.dirEntryDel(paths_.poePort, rest, error)) refuse("notFound", error);
    changed(session, "power over Ethernet status of " + rest + " removed");
    return Json::object();
  }
  if (path == paths_.dot1x) {
    auto dot1x = db_.lookup<Identity::Dot1x::Status>(path);
    if (!dot1x) refuse("notFound", "nothing at " + path);
    dot1x->lldpBypassIs(false);
    changed(session, "802.1X LLDP bypass off");
    return Json::object();
  }
  refuse("notWritable", "nothing to delete at " + path);
}

Json Service::clear(const Json& request, Session& session) {
  const std::string intf = request.contains("interface") ? nameChecked(stringField(request, "interface"), "interface")
                                                         : std::string();
  const std::string given = stringField(request, "origin", false);
  auto rtc = db_.lookup<Lldp::RemTablesCliConfig>(paths_.remTablesCliConfig);
  if (!rtc) refuse("unavailable", "the agent is not running yet");
  if (!intf.empty()) {
    bool known = false;
    eachPortStatus(db_.entity(paths_.status), [&](const Lldp::PortStatus& ps) { known |= ps.intfId().name() == intf; });
    if (!known) refuse("notFound", "no LLDP port " + intf + "; 'lldp show interfaces' lists them");
  }
  double last = rtc->remTablesClearRequest().time;
  if (auto status = db_.lookup<Lldp::RemTablesStatus>(paths_.remTablesStatus)) {
    last = std::max(last, status->remTablesLastClearTime());
  }
  // Each request must be newer than the last one carried out, even twice in one instant.
  const double time = std::max(db_.scheduler().now(), last + 1e-3);
  std::string origin = "state socket, pid " + std::to_string(session.peer().pid);
  if (!given.empty()) origin = given.substr(0, kMaxNameLength) + " (" + origin + ")";
  rtc->remTablesClearRequestIs(
      Lldp::RemTablesClearRequest{time, userName(session.peer().uid), origin, Konet::IntfId(intf)});
  return {{"time", time}};
}

}  // namespace Ipc
