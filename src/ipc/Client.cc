// Blocking socket client: connect with readable failures, line reads with time-outs.
#include "ipc/Client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <algorithm>
#include <chrono>
#include <optional>
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
      // The agent may have closed after saying why (a client limit): keep what it said.
      while (!closed_ && readSome(deadlineOf(0))) {
      }
      closed_ = true;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

bool Client::readSome(Deadline deadline) {
  for (;;) {
    if (closed_ || fd_ < 0) return false;
    int waitMs = -1;
    if (deadline) {
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now()).count();
      waitMs = static_cast<int>(std::max<int64_t>(left, 0));  // 0: look once without waiting
    }
    pollfd p{fd_, POLLIN, 0};
    const int ready = ::poll(&p, 1, waitMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return false;
    // Straight into the buffer: a reply of megabytes arrives in many reads.
    const size_t had = in_.size();
    in_.resize(had + kReadChunk);
    const ssize_t n = ::recv(fd_, in_.data() + had, kReadChunk, 0);
    const int err = errno;
    in_.resize(had + static_cast<size_t>(std::max<ssize_t>(n, 0)));
    if (n < 0 && err == EINTR) continue;
    if (n <= 0) closed_ = true;  // what is buffered still counts
    return true;
  }
}

std::optional<std::string> Client::line(Deadline deadline) {
  for (;;) {
    // Only the bytes not yet looked at.
    if (const size_t newline = in_.find('\n', scanned_); newline != std::string::npos) {
      std::string out = in_.substr(0, newline);
      in_.erase(0, newline + 1);
      scanned_ = 0;
      return out;
    }
    scanned_ = in_.size();
    if (closed_ || !readSome(deadline)) return std::nullopt;
  }
}

Client::Deadline Client::deadlineOf(double timeout) {
  if (timeout < 0) return std::nullopt;
  return std::chrono::steady_clock::now() +
         std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(timeout));
}

std::optional<Json> Client::nextMessage(double timeout) {
  if (!kept_.empty()) {
    Json out = std::move(kept_.front());
    kept_.erase(kept_.begin());
    return out;
  }
  const Deadline deadline = deadlineOf(timeout);
  for (;;) {
    auto text = line(deadline);
    if (!text) return std::nullopt;
    Json message = Json::parse(*text, nullptr, false);
    if (!message.is_discarded()) return message;
  }
}

std::optional<Json> Client::request(Json request, double timeout) {
  auto text = requestText(std::move(request), timeout);
  if (!text) return std::nullopt;
  Json reply = Json::parse(*text, nullptr, false);
  if (reply.is_discarded()) return std::nullopt;
  return reply;
}

std::optional<std::string> Client::requestText(Json request, double timeout) {
  std::string reply;
  if (!requestStream(std::move(request), [&reply](std::string_view piece, bool) { reply += piece; }, timeout)) {
    return std::nullopt;
  }
  return reply;
}

bool Client::requestStream(Json request, const Sink& sink, double timeout) {
  const uint64_t id = nextId_++;
  request["v"] = kProtocolVersion;
  request["id"] = id;
  if (!sendRaw(Platform::jsonText(request, -1) + "\n")) return false;
  const Deadline deadline = deadlineOf(timeout);
  // The agent starts its replies so; anything else is read whole to find out what it is.
  const std::string start = "{\"v\":" + std::to_string(kProtocolVersion) + ",\"id\":" + std::to_string(id) + ",";
  bool passing = false;  // the reply's start is known: pieces go on as they come
  for (;;) {
    if (passing) {
      if (const size_t newline = in_.find('\n'); newline != std::string::npos) {
        sink(std::string_view(in_).substr(0, newline), true);
        in_.erase(0, newline + 1);
        scanned_ = 0;
        return true;
      }
      if (!in_.empty()) sink(in_, false);
      in_.clear();
    } else if (const size_t newline = in_.find('\n', scanned_); newline != std::string::npos) {
      std::string text = in_.substr(0, newline);
      in_.erase(0, newline + 1);
      scanned_ = 0;
      Json message;
      if (!text.starts_with(start)) {
        message = Json::parse(text, nullptr, false);
        if (message.is_discarded()) continue;
        if (!message.contains("id") || message["id"] != id) {
          kept_.push_back(std::move(message));
          continue;
        }
      }
      sink(text, true);
      return true;
    } else if (in_.starts_with(start)) {
      passing = true;
      continue;
    } else {
      scanned_ = in_.size();
    }
    if (closed_ || !readSome(deadline)) return false;
  }
}

}  // namespace Ipc
