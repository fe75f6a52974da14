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

std::optional<Json> SocketQuery::ask(const Json& request, std::string& error) {
  if (!connected(error)) return std::nullopt;
  auto reply = client_->request(request);
  if (!reply) error = "the LLDP agent closed the connection or did not answer";
  return reply;
}

bool SocketQuery::askStream(const Json& request, const Sink& sink, std::string& error) {
  if (!connected(error)) return false;
  if (client_->requestStream(request, sink)) return true;
  error = "the LLDP agent closed the connection or did not answer";
  return false;
}

std::optional<Json> SocketQuery::nextEvent() {
  if (!client_) return std::nullopt;
  return client_->nextMessage(-1);
}

}  // namespace Cli
