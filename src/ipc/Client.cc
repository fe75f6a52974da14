// Blocking socket client: connect with readable failures, line reads with time-outs.
#include "ipc/Client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <algorithm>
#include <chrono>
#include <cstring>

#include "ipc/Service.h"
#include "platform/Json.h"

namespace Ipc {

Client::~Client() {
  if (fd_ >= 0) ::close(fd_);
}

bool Client::connect(const std::string& socketPath, std::string& error) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (socketPath.empty() || socketPath.size() >= sizeof addr.sun_path) {
    failure_ = Failure::other;
    error = "bad socket path " + socketPath;
    return false;
  }
  std::memcpy(addr.sun_path, socketPath.c_str(), socketPath.size() + 1);
  fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0 || ::connect(fd_, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
    const int err = errno;
    if (err == ENOENT || err == ECONNREFUSED) {
      failure_ = Failure::notRunning;
      error = "the LLDP agent is not running (nothing listens on " + socketPath +
              "); start it with 'systemctl start lldp-agent' or give its socket with --socket";
    } else if (err == EACCES || err == EPERM) {
      failure_ = Failure::permissionDenied;
      error = "permission denied on " + socketPath + "; run as root or as a member of the socket's group";
    } else {
      failure_ = Failure::other;
      error = "cannot connect to " + socketPath + ": " + std::strerror(err);
    }
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    return false;
  }
  return true;
}

bool Client::sendRaw(const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      closed_ = true;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

std::optional<std::string> Client::line(double timeout) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::duration<double>(timeout < 0 ? 0 : timeout);
  for (;;) {
    // Only the bytes not yet looked at: a reply of megabytes arrives in many reads.
    if (const size_t newline = in_.find('\n', scanned_); newline != std::string::npos) {
      std::string out = in_.substr(0, newline);
      in_.erase(0, newline + 1);
      scanned_ = 0;
      return out;
    }
    scanned_ = in_.size();
    if (closed_ || fd_ < 0) return std::nullopt;
    int waitMs = -1;
    if (timeout >= 0) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      waitMs = static_cast<int>(std::max<int64_t>(left, 0));  // 0: look once without waiting
    }
    pollfd p{fd_, POLLIN, 0};
    const int ready = ::poll(&p, 1, waitMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return std::nullopt;
    char buffer[65536];
    const ssize_t n = ::recv(fd_, buffer, sizeof buffer, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      closed_ = true;
      continue;  // what is buffered still counts
    }
    in_.append(buffer, static_cast<size_t>(n));
  }
}

std::optional<Json> Client::nextMessage(double timeout) {
  if (!kept_.empty()) {
    Json out = std::move(kept_.front());
    kept_.erase(kept_.begin());
    return out;
  }
  for (;;) {
    auto text = line(timeout);
    if (!text) return std::nullopt;
    Json message = Json::parse(*text, nullptr, false);
    if (!message.is_discarded()) return message;
  }
}

std::optional<Json> Client::request(Json request, double timeout) {
  const uint64_t id = nextId_++;
  request["v"] = kProtocolVersion;
  request["id"] = id;
  if (!sendRaw(Platform::jsonText(request, -1) + "\n")) return std::nullopt;
  for (;;) {
    auto text = line(timeout);
    if (!text) return std::nullopt;
    Json message = Json::parse(*text, nullptr, false);
    if (message.is_discarded()) continue;
    if (message.contains("id") && message["id"] == id) return message;
    kept_.push_back(std::move(message));
  }
}

}  // namespace Ipc
