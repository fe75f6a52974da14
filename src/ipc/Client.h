// A blocking client of the state socket, for `lldp` and for tests: requests, their replies, and
// the events of subscriptions.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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
  // The same, with the reply as the agent's text: for replies passed on without being read.
  std::optional<std::string> requestText(Json request, double timeout = 30);
  // The same, the reply's text handed to sink in pieces as they arrive, never held whole; the
  // last piece (last true) ends the line, without its newline. False when the connection
  // broke or time ran out, also after some pieces went.
  using Sink = std::function<void(std::string_view piece, bool last)>;
  bool requestStream(Json request, const Sink& sink, double timeout = 30);
  // Sends raw bytes, for tests of malformed input.
  bool sendRaw(const std::string& bytes);
  // The next message line: a kept event, or one read within timeout seconds (negative waits
  // for ever). Nothing when the connection ends or time is up.
  std::optional<Json> nextMessage(double timeout = -1);
  bool closed() const { return closed_; }

 private:
  using Deadline = std::optional<std::chrono::steady_clock::time_point>;
  static constexpr size_t kReadChunk = 1024 * 1024;
  static Deadline deadlineOf(double timeout);  // none for a negative timeout
  // One read into in_; false when the time is up or the connection is gone.
  bool readSome(Deadline deadline);
  std::optional<std::string> line(Deadline deadline);

  int fd_ = -1;
  uint64_t nextId_ = 1;
  std::string in_;
  size_t scanned_ = 0;  // in_ holds no newline before this
  std::vector<Json> kept_;
  bool closed_ = false;
  Failure failure_ = Failure::none;
};

}  // namespace Ipc
