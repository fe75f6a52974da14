// How `lldp` reaches the agent: one request, one reply; and the events of a subscription. Tests
// put a fake agent behind the same interface.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "ipc/Client.h"

namespace Cli {

using Json = nlohmann::ordered_json;

class AgentQuery {
 public:
  virtual ~AgentQuery() = default;
  // The reply, or nothing with error set (the agent cannot be reached).
  virtual std::optional<Json> ask(const Json& request, std::string& error) = 0;
  // The reply as the agent wrote it, handed to sink in pieces (the last one with last set), for
  // replies passed on without being read; false with error set when there is none.
  using Sink = Ipc::Client::Sink;
  virtual bool askStream(const Json& request, const Sink& sink, std::string& error) {
    auto reply = ask(request, error);
    if (!reply) return false;
    sink(reply->dump(-1, ' ', false, Json::error_handler_t::replace), true);
    return true;
  }
  // The next event message; nothing when the agent went away.
  virtual std::optional<Json> nextEvent() = 0;
};

// The agent behind its socket: LLDP_SOCKET, or the default path, unless one is given.
class SocketQuery : public AgentQuery {
 public:
  static constexpr const char* kDefaultSocket = "/run/lldp-agent/lldp.sock";
  static std::string socketPath(const std::string& given);

  explicit SocketQuery(std::string path) : path_(std::move(path)) {}
  std::optional<Json> ask(const Json& request, std::string& error) override;
  bool askStream(const Json& request, const Sink& sink, std::string& error) override;
  std::optional<Json> nextEvent() override;

 private:
  bool connected(std::string& error);
  std::string path_;
  std::unique_ptr<Ipc::Client> client_;
};

}  // namespace Cli
