// Request handling of the state socket: reads, subscriptions, and writes of the input paths.
#include "ipc/Service.h"

#include <pwd.h>

#include <algorithm>
#include <cctype>
#include <set>

#include "ipc/RecordText.h"
#include "records/AgentRecords.h"
#include "records/LldpRecords.h"
#include "records/RecordsJson.h"

namespace Ipc {

using Platform::Entity;
using Platform::Ptr;

namespace {

constexpr size_t kMaxSubscriptionsPerSession = 16;
constexpr size_t kMaxNameLength = 64;
constexpr int kMaxNesting = 32;

// A refusal that travels up to the reply.
struct Refusal {
  std::string code;
  std::string message;
};

[[noreturn]] void refuse(std::string code, std::string message) { throw Refusal{std::move(code), std::move(message)}; }

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

std::string stringField(const Json& request, const char* name, bool required = true) {
  auto it = request.find(name);
  if (it == request.end()) {
    if (required) refuse("badRequest", std::string("missing \"") + name + "\"");
    return {};
  }
  if (!it->is_string()) refuse("badRequest", std::string("\"") + name + "\" must be a string");
  return it->get<std::string>();
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

// Interface names may hold '/' (Ethernet3/1); client names may not.
std::string nameChecked(const std::string& name, const char* what) {
  const bool slashAllowed = std::string_view(what) == "interface";
  if (name.empty() || name.size() > kMaxNameLength || (!slashAllowed && name.find('/') != std::string::npos)) {
    refuse("invalid", std::string("bad ") + what + " name \"" + name.substr(0, kMaxNameLength) + "\"");
  }
  for (unsigned char c : name) {
    if (!std::isprint(c) || std::isspace(c)) refuse("invalid", std::string("bad ") + what + " name");
  }
  return name;
}

std::string valueText(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "true" : "false";
  if (value.is_number_integer()) return value.dump();
  if (value.is_number_float()) return value.dump();
  refuse("badRequest", "\"value\" must be a string, a number or a boolean");
}

Lldp::Oui ouiOf(const Json& j) {
  if (j.is_number_unsigned() && j.get<uint64_t>() <= 0xffffff) return Lldp::Oui(static_cast<uint32_t>(j.get<uint64_t>()));
  if (!j.is_string()) refuse("invalid", "\"oui\" must be three bytes, as \"00-12-BB\"");
  std::string hex;
  for (char c : j.get<std::string>()) {
    if (c == '-' || c == ':' || c == '.') continue;
    if (!std::isxdigit(static_cast<unsigned char>(c))) refuse("invalid", "\"oui\" must be three bytes, as \"00-12-BB\"");
    hex += c;
  }
  if (hex.size() != 6) refuse("invalid", "\"oui\" must be three bytes, as \"00-12-BB\"");
  return Lldp::Oui(static_cast<uint32_t>(std::stoul(hex, nullptr, 16)));
}

std::string bytesOfHex(const std::string& text) {
  std::string out;
  int high = -1;
  for (char c : text) {
    if (c == ':' || c == '-' || c == ' ') continue;
    if (!std::isxdigit(static_cast<unsigned char>(c))) refuse("invalid", "\"value\" must be hexadecimal bytes");
    const int nibble = std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : (std::tolower(c) - 'a' + 10);
    if (high < 0) {
      high = nibble;
    } else {
      out += static_cast<char>(high << 4 | nibble);
      high = -1;
    }
  }
  if (high >= 0) refuse("invalid", "\"value\" has an odd number of hexadecimal digits");
  return out;
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

// The interfaces a request names; empty for all.
std::set<std::string> interfaceFilter(const Json& request) {
  std::set<std::string> only;
  auto it = request.find("interfaces");
  if (it == request.end() || !it->is_array()) return only;
  for (const Json& j : *it) {
    if (j.is_string()) only.insert(j.get<std::string>());
  }
  // Names that are no strings match nothing, as before; a list of only those still filters.
  if (only.empty() && !it->empty()) only.insert(std::string());
  return only;
}

std::string textOf(const Json& j) { return Platform::jsonText(j, -1); }

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

Service::Service(Platform::StateDb& db, Paths paths) : db_(db), paths_(std::move(paths)) { stateTypesRegister(); }

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
    std::string error;
    if (!config_->configSave(error)) refuse("failed", error);
    return Json::object();
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

void Service::neighbors(const Json& request, std::string& out) {
  const std::set<std::string> only = interfaceFilter(request);
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

Json Service::status() {
  size_t ports = 0, neighbours = 0;
  uint64_t kernelDrops = 0;
  eachPortStatus(db_.entity(paths_.status), [&](const Lldp::PortStatus& ps) {
    ++ports;
    neighbours += ps.remoteSystems();
    kernelDrops += ps.rxKernelDropsTotal();
  });
  Json out = {{"ports", ports}, {"neighbors", neighbours}, {"subscriptions", subscriptionCount_},
              {"rxKernelDrops", kernelDrops}};
  if (Ptr<Entity> status = db_.entity(paths_.status)) {
    Json counters = entityJson(*status);
    counters.erase("portStatus");
    out["status"] = std::move(counters);
  }
  if (statusProvider_) {
    const Json extra = statusProvider_();  // kept alive while its items are walked
    for (const auto& [k, v] : extra.items()) out[k] = v;
  }
  return out;
}

Json Service::subscribe(const Json& request, Session& session) {
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
  if (auto it = request.find("values"); it != request.end()) {
    if (!it->is_boolean()) refuse("badRequest", "\"values\" must be true or false");
    options.values = it->get<bool>();
  }
  const uint64_t id = nextSubscription_++;
  Session* target = &session;
  session.subscriptions_[id] = std::make_unique<Subscription>(db_.scheduler(), id, path, root, std::move(options),
                                                              [target](Json batch) { target->send(batch); });
  ++subscriptionCount_;
  Json out = {{"subscription", id}};
  if (request.value("snapshot", false)) out["value"] = entityJson(*root);
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
  for (const std::string& client : session.ephemeralTlvClients_) {
    std::string error;
    db_.dirEntryDel(paths_.externalTlvs, client, error);
  }
  session.ephemeralTlvClients_.clear();
}

Json Service::set(const Json& request, Session& session) {
  const std::string path = stringField(request, "path");
  if (!db_.writable(path)) refuse("notWritable", "not writable: " + path);
  std::string rest;
  if (under(path, paths_.cliConfig)) {
    if (!config_) refuse("unavailable", "this agent takes no configuration changes");
    const std::string key = stringField(request, "key");
    auto value = request.find("value");
    if (value == request.end()) refuse("badRequest", "missing \"value\"");
    std::string error;
    if (!config_->configKeyIs(stringField(request, "interface", false), key, valueText(*value), error)) {
      refuse("invalid", error);
    }
    return Json::object();
  }
  if (path == paths_.remTablesCliConfig) return clear(request, session);
  const Json value = request.contains("value") ? request["value"] : Json::object();
  if (!value.is_object()) refuse("badRequest", "\"value\" must be an object");
  if (under(path, paths_.externalTlvs, &rest) && !rest.empty()) {
    return externalTlvsIs(nameChecked(rest, "client"), value, session);
  }
  if (under(path, paths_.poePort, &rest) && !rest.empty()) {
    nameChecked(rest, "interface");
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
        db_.dirEntryIs(paths_.poePort, rest, "PoePortStatus", error));
    if (!poe) refuse("invalid", error);
    poe->grantedPowerIs(power);
    poe->poweredDeviceClassIs(pdClass);
    poe->poePortStateIs(state);
    poe->lldpNegotiationSupportedIs(negotiation);
    return Json::object();
  }
  if (path == paths_.dot1x) {
    auto bypass = value.find("lldpBypass");
    if (bypass == value.end() || !bypass->is_boolean() || value.size() != 1) {
      refuse("invalid", "expected {\"lldpBypass\": true or false}");
    }
    auto dot1x = db_.lookup<Identity::Dot1x::Status>(path);
    if (!dot1x) refuse("notFound", "nothing at " + path);
    dot1x->lldpBypassIs(bypass->get<bool>());
    return Json::object();
  }
  refuse("notWritable", "no writer for " + path);
}

Json Service::externalTlvsIs(const std::string& client, const Json& value, Session& session) {
  // Everything is checked before anything is written: a refused request changes nothing.
  std::map<Konet::IntfId, std::vector<Lldp::UnknownOrgDefTlv>> wantedTlvs;
  auto ports = value.find("portConfig");
  if (ports == value.end() || !ports->is_array()) refuse("invalid", "expected {\"portConfig\": [...]}");
  for (const Json& port : *ports) {
    if (!port.is_object()) refuse("invalid", "each portConfig entry is an object");
    const Konet::IntfId intf(nameChecked(stringField(port, "intfId"), "interface"));
    auto& tlvs = wantedTlvs[intf];
    auto list = port.find("unknownOrgDefTlv");
    if (list == port.end() || !list->is_array()) refuse("invalid", "expected \"unknownOrgDefTlv\": [...]");
    std::map<std::pair<uint32_t, uint8_t>, uint32_t> nextIndex;
    for (const Json& tlv : *list) {
      if (!tlv.is_object()) refuse("invalid", "each TLV is an object with oui, subtype and value");
      const Lldp::Oui oui = ouiOf(tlv.value("oui", Json()));
      const Json subtype = tlv.value("subtype", Json());
      if (!subtype.is_number_unsigned() || subtype.get<uint64_t>() > 255) refuse("invalid", "\"subtype\" must be 0 to 255");
      const std::string bytes = bytesOfHex(tlv.value("value", std::string()));
      if (bytes.size() > 507) refuse("invalid", "\"value\" longer than 507 bytes");
      const auto sub = static_cast<uint8_t>(subtype.get<uint64_t>());
      const uint32_t index = ++nextIndex[{oui.value, sub}];
      tlvs.push_back({Lldp::UnknownOrgDefTlv::Key(oui, sub, index), Lldp::BoundedString507(bytes)});
    }
  }
  std::string error;
  auto config = Platform::ptrCast<Lldp::ExternalTlvConfig>(
      db_.dirEntryIs(paths_.externalTlvs, client, "ExternalTlvConfig", error));
  if (!config) refuse("invalid", error);
  for (auto it = config->portConfig().begin(); it; ++it) {
    if (!wantedTlvs.contains(it.key())) config->portConfigDel(it.key());
  }
  for (const auto& [intf, tlvs] : wantedTlvs) {
    auto port = config->portConfigIs(intf);
    for (auto it = port->unknownOrgDefTlv().begin(); it; ++it) {
      const auto key = it.key();
      if (std::none_of(tlvs.begin(), tlvs.end(), [&](const auto& t) { return t.key == key; })) {
        port->unknownOrgDefTlvDel(key);
      }
    }
    for (const auto& tlv : tlvs) port->unknownOrgDefTlvIs(tlv.key, tlv);
  }
  if (value.value("ephemeral", false)) session.ephemeralTlvClients_.push_back(client);
  return Json::object();
}

Json Service::del(const Json& request, Session& session) {
  (void)session;
  const std::string path = stringField(request, "path");
  if (!db_.writable(path)) refuse("notWritable", "not writable: " + path);
  std::string rest, error;
  if (under(path, paths_.cliConfig)) {
    if (!config_) refuse("unavailable", "this agent takes no configuration changes");
    if (!config_->configKeyDel(stringField(request, "interface", false), stringField(request, "key"), error)) {
      refuse("invalid", error);
    }
    return Json::object();
  }
  if (under(path, paths_.externalTlvs, &rest) && !rest.empty()) {
    if (!db_.dirEntryDel(paths_.externalTlvs, rest, error)) refuse("notFound", error);
    return Json::object();
  }
  if (under(path, paths_.poePort, &rest) && !rest.empty()) {
    if (!db_.dirEntryDel(paths_.poePort, rest, error)) refuse("notFound", error);
    return Json::object();
  }
  if (path == paths_.dot1x) {
    if (auto dot1x = db_.lookup<Identity::Dot1x::Status>(path)) dot1x->lldpBypassIs(false);
    return Json::object();
  }
  refuse("notWritable", "nothing to delete at " + path);
}

Json Service::clear(const Json& request, Session& session) {
  const std::string intf = request.contains("interface") ? nameChecked(stringField(request, "interface"), "interface")
                                                         : std::string();
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
  if (auto it = request.find("origin"); it != request.end() && it->is_string() && !it->get<std::string>().empty()) {
    origin = it->get<std::string>().substr(0, kMaxNameLength) + " (" + origin + ")";
  }
  rtc->remTablesClearRequestIs(
      Lldp::RemTablesClearRequest{time, userName(session.peer().uid), origin, Konet::IntfId(intf)});
  return {{"time", time}};
}

}  // namespace Ipc
