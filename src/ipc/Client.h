// A blocking client of the state socket, for `lldp` and for tests: requests, their replies, and
// the events of subscriptions.
#pragma once

#include <optional>
#include <string>

#include "ipc/StateTypes.h"

namespace Ipc {

class Client {
 public:
  enum class Failure { none, notRunning, permissionDenied, other };

  Client() = default;
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // False with a reason a person can act on.
  bool connect(const std::string& socketPath, std::string& error);
  Failure failure() const { return failure_; }
  int fd() const { return fd_; }

  // Sends the request (adding version and id) and returns its reply; events that arrive first
  // are kept for nextMessage. Nothing on a broken connection or after timeout seconds.
  std::optional<Json> request(Json request, double timeout = 30);
  // Sends raw bytes, for tests of malformed input.
  bool sendRaw(const std::string& bytes);
  // The next message line: a kept event, or one read within timeout seconds (negative waits
  // for ever). Nothing when the connection ends or time is up.
  std::optional<Json> nextMessage(double timeout = -1);
  bool closed() const { return closed_; }

 private:
  std::optional<std::string> line(double timeout);

  int fd_ = -1;
  uint64_t nextId_ = 1;
  std::string in_;
  size_t scanned_ = 0;  // in_ holds no newline before this
  std::vector<Json> kept_;
  bool closed_ = false;
  Failure failure_ = Failure::none;
};

}  // namespace Ipc
