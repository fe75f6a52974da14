// The socket behind `lldp`: connects on first use.
#include "cli/Query.h"

#include <cstdlib>

namespace Cli {

std::string SocketQuery::socketPath(const std::string& given) {
  if (!given.empty()) return given;
  if (const char* env = std::getenv("LLDP_SOCKET"); env && *env) return env;
  return kDefaultSocket;
}

bool SocketQuery::connected(std::string& error) {
  if (client_) return true;
  auto client = std::make_unique<Ipc::Client>();
  if (!client->connect(path_, error)) return false;
  client_ = std::move(client);
  return true;
}

namespace {

// Why the connection ended: the agent's last word when it gave one (a client limit).
std::string endedWhy(Ipc::Client& client) {
  while (auto message = client.nextMessage(0)) {
    const Json ok = message->value("ok", Json());
    const Json problem = message->value("error", Json());
    if (ok == false && problem.is_object() && problem.value("message", Json()).is_string()) {
      return "the LLDP agent refused the connection: " + problem["message"].get<std::string>();
    }
  }
  return "the LLDP agent closed the connection or did not answer";
}

}  // namespace

std::optional<Json> SocketQuery::ask(const Json& request, std::string& error) {
  if (!connected(error)) return std::nullopt;
  auto reply = client_->request(request);
  if (!reply) error = endedWhy(*client_);
  return reply;
}

bool SocketQuery::askStream(const Json& request, const Sink& sink, std::string& error) {
  if (!connected(error)) return false;
  if (client_->requestStream(request, sink)) return true;
  error = endedWhy(*client_);
  return false;
}

std::optional<Json> SocketQuery::nextEvent() {
  if (!client_) return std::nullopt;
  return client_->nextMessage(-1);
}

}  // namespace Cli
