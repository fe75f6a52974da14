// Reports from Prometheus (through libcurl) and from an agent's socket.
#include "cli/TopologyQuery.h"

#include <curl/curl.h>

#include "metrics/Exposition.h"

namespace Cli {

namespace {

std::string label(const Json& metric, const char* name) {
  auto it = metric.find(name);
  return it != metric.end() && it->is_string() ? it->get<std::string>() : std::string();
}

// The series' scrape target: what tells one agent's series from another's.
std::string targetOf(const Json& metric) { return label(metric, "job") + "/" + label(metric, "instance"); }

// A string field, or `otherwise` when it is absent, empty or of another type: replies are read as untrusted, so
// a field of the wrong type is a missing one, never an exception.
std::string text(const Json& j, const char* key, std::string otherwise = {}) {
  auto it = j.find(key);
  return it != j.end() && it->is_string() && !it->get_ref<const std::string&>().empty() ? it->get<std::string>()
                                                                                      : otherwise;
}

// The result vector of a successful instant query, or nothing with error set.
const Json* resultOf(const Json& reply, std::string& error) {
  if (!reply.is_object() || text(reply, "status") != "success") {
    error = "Prometheus answered: " + (reply.is_object() ? text(reply, "error", "no result") : "not an object");
    return nullptr;
  }
  const auto data = reply.find("data");
  if (data == reply.end() || !data->is_object()) {
    error = "Prometheus answered without data";
    return nullptr;
  }
  const auto result = data->find("result");
  if (result == data->end() || !result->is_array()) {
    error = "Prometheus answered without a result vector";
    return nullptr;
  }
  return &*result;
}

const Json& child(const Json& j, const char* key) {
  static const Json empty = Json::object();
  auto it = j.find(key);
  return it != j.end() && it->is_object() ? *it : empty;
}

uint8_t subtype(const Json& identifier) {
  auto it = identifier.find("subtype");
  return it != identifier.end() && it->is_number_unsigned() ? static_cast<uint8_t>(it->get<unsigned>()) : 0;
}

size_t collect(void* data, size_t size, size_t count, void* out) {
  auto& body = *static_cast<std::string*>(out);
  if (body.size() > (256u << 20)) return 0;  // a reply past any fleet's size: stop
  body.append(static_cast<const char*>(data), size * count);
  return size * count;
}

}  // namespace

std::optional<FleetReport> fleetFromPrometheus(const Json& agents, const Json& neighbors, std::string& error) {
  const Json* agentSeries = resultOf(agents, error);
  if (!agentSeries) return std::nullopt;
  const Json* neighborSeries = resultOf(neighbors, error);
  if (!neighborSeries) return std::nullopt;
  FleetReport report;
  for (const Json& series : *agentSeries) {
    const Json& m = child(series, "metric");
    report.agents.push_back({targetOf(m), label(m, "chassis_id"), label(m, "system_name")});
  }
  for (const Json& series : *neighborSeries) {
    const Json& m = child(series, "metric");
    report.observations.push_back({targetOf(m), label(m, "interface"), label(m, "chassis_id"),
                                   label(m, "chassis_id_subtype"), label(m, "port_id"), label(m, "port_id_subtype"),
                                   label(m, "system_name"), label(m, "port_description"),
                                   label(m, "management_address")});
  }
  return report;
}

FleetReport fleetFromAgent(const Json& neighbors, const Json& localSystem, const std::string& source) {
  FleetReport report;
  const Json& chassis = child(localSystem, "chassisIdentifier");
  report.agents.push_back({source, text(chassis, "value"), text(localSystem, "sysName")});
  auto ports = neighbors.find("portStatus");
  if (ports == neighbors.end() || !ports->is_array()) return report;
  for (const Json& port : *ports) {
    auto remotes = port.find("remoteSystem");
    if (remotes == port.end() || !remotes->is_array()) continue;
    for (const Json& rs : *remotes) {
      const Json& msap = child(rs, "msap");
      const Json& c = child(msap, "chassisIdentifier");
      const Json& p = child(msap, "portIdentifier");
      std::string address;
      if (auto addrs = rs.find("managementAddress"); addrs != rs.end() && addrs->is_array() && !addrs->empty()) {
        address = text(child(addrs->front(), "value"), "address");
      }
      report.observations.push_back({source, text(port, "intfId"), text(c, "value"),
                                     Metrics::chassisIdSubtypeLabel(subtype(c)), text(p, "value"),
                                     Metrics::portIdSubtypeLabel(subtype(p)), text(rs, "sysName"),
                                     text(rs, "portDesc"), address});
    }
  }
  return report;
}

std::optional<Json> prometheusQuery(const std::string& baseUrl, const std::string& query, std::string& error) {
  CURL* curl = curl_easy_init();
  if (!curl) {
    error = "cannot start an HTTP client";
    return std::nullopt;
  }
  char* escaped = curl_easy_escape(curl, query.c_str(), static_cast<int>(query.size()));
  std::string url = baseUrl;
  while (!url.empty() && url.back() == '/') url.pop_back();
  url += "/api/v1/query?query=";
  url += escaped ? escaped : "";
  curl_free(escaped);
  std::string body;
  char curlError[CURL_ERROR_SIZE] = "";
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");  // a Prometheus server, never a file
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &collect);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, curlError);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, 30L);
  curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, 10L);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");  // whatever the library can decompress
  curl_easy_setopt(curl, CURLOPT_USERAGENT, "lldp-topology");
  const CURLcode code = curl_easy_perform(curl);
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_cleanup(curl);
  if (code != CURLE_OK) {
    error = baseUrl + ": " + (*curlError ? curlError : curl_easy_strerror(code));
    return std::nullopt;
  }
  Json reply = Json::parse(body, nullptr, false);
  if (reply.is_discarded()) {
    error = baseUrl + ": HTTP " + std::to_string(status) + " with a reply that is not JSON (is this a Prometheus server?)";
    return std::nullopt;
  }
  if (status != 200) {
    error = baseUrl + ": HTTP " + std::to_string(status) + ": " + text(reply, "error", "no reason given");
    return std::nullopt;
  }
  return reply;
}

std::optional<FleetReport> prometheusFleet(const std::string& baseUrl, const std::string& selector, std::string& error) {
  auto agents = prometheusQuery(baseUrl, Metrics::kAgentInfo + selector, error);
  if (!agents) return std::nullopt;
  auto neighbors = prometheusQuery(baseUrl, Metrics::kNeighborInfo + selector, error);
  if (!neighbors) return std::nullopt;
  return fleetFromPrometheus(*agents, *neighbors, error);
}

std::optional<FleetReport> agentFleet(AgentQuery& agent, const std::string& source, std::string& error) {
  auto ok = [&](std::optional<Json> reply) -> std::optional<Json> {
    if (!reply) return std::nullopt;
    if (auto okField = reply->find("ok"); okField == reply->end() || *okField != true) {
      error = "the agent refused: " + text(child(*reply, "error"), "message", "no reason given");
      return std::nullopt;
    }
    return reply;
  };
  auto local = ok(agent.ask({{"op", "get"}, {"path", "l2discovery/lldp/localSystem"}}, error));
  if (!local) return std::nullopt;
  auto neighbors = ok(agent.ask({{"op", "neighbors"},
                                 {"attributes", {"msap", "sysName", "portDesc", "managementAddress"}}},
                                error));
  if (!neighbors) return std::nullopt;
  return fleetFromAgent(*neighbors, child(*local, "value"), source);
}

}  // namespace Cli
