// Socket set-up, accepting, line framing and output backpressure of the state socket.
#include "ipc/Server.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/Json.h"

namespace Ipc {

namespace {

// Bytes read per readiness call: one busy client cannot keep the event thread to itself. Every
// request line read is answered in the same call, so this bounds the work a flooding client gets
// per turn of the loop (some 150 small requests); a long request simply takes several turns.
constexpr size_t kReadChunk = 4 * 1024;
constexpr int kReadsPerWake = 2;
constexpr size_t kLargeReply = 1024 * 1024;
constexpr size_t kLargeReplyBuffer = 4 * 1024 * 1024;  // the kernel may cap it lower

std::string errnoText(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

// Best effort, never blocking: for refusals and last words before a disconnect.
void sendNow(int fd, const std::string& text) {
  [[maybe_unused]] ssize_t n = ::send(fd, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

std::string lineOf(const Json& message) { return Platform::jsonText(message, -1) + "\n"; }

}  // namespace

class Server::Client : public Session {
 public:
  Client(Server& server, uint64_t id, int fd, Peer peer) : server_(server), id_(id), fd_(fd), peer_(peer) {
    readWatch_ = server_.scheduler_.readableWatchIs(
        fd_, [this] { handleReadable(); }, [this](std::error_code) { closeIs(); });
  }
  ~Client() override {
    if (!gone_) server_.service_.sessionGone(*this);
    ::close(fd_);
  }

  const Peer& peer() const override { return peer_; }

  void send(const Json& message) override { sendLine(Platform::jsonText(message, -1)); }

  void sendLine(std::string line) {
    if (closing_) return;
    // A client is slow when what it was sent before is still waiting: one large reply to a
    // client that reads is no reason to drop it.
    if (out_.size() - outOff_ > server_.options_.maxOutputBytes) {
      ++server_.counters_.slowDisconnects;
      // A newline first ends any line cut short by a partial write.
      sendNow(fd_, "\n" + lineOf({{"v", kProtocolVersion},
                                  {"event", "disconnected"},
                                  {"reason", "output not read: over " + std::to_string(server_.options_.maxOutputBytes) +
                                                 " bytes waiting"}}));
      closeIs();
      return;
    }
    if (line.size() > kLargeReply && !largeBuffer_) {
      // A large reply goes in fewer, larger writes: fewer turns of this loop and of the reader.
      const int size = static_cast<int>(kLargeReplyBuffer);
      ::setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
      largeBuffer_ = true;
    }
    line += '\n';
    if (out_.empty()) {
      out_ = std::move(line);  // a large reply is not copied again
      outOff_ = 0;
    } else {
      out_ += line;
    }
    if (!writeWatch_) flushOut();
  }

  // Stops serving at once; the session ends on a later turn of the loop, outside any callback.
  void closeIs() {
    if (closing_) return;
    closing_ = true;
    readWatch_.reset();
    writeWatch_.reset();
    ::shutdown(fd_, SHUT_RDWR);
    server_.scheduler_.post([server = &server_, alive = std::weak_ptr<bool>(server_.alive_), id = id_] {
      if (alive.lock()) server->clientDel(id);
    });
  }

  void sessionEnd() {
    gone_ = true;
    server_.service_.sessionGone(*this);
  }

 private:
  void handleReadable() {
    char buffer[kReadChunk];
    for (int i = 0; i < kReadsPerWake && !closing_; ++i) {
      const ssize_t n = ::recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
      if (n == 0) return closeIs();
      if (n < 0) {
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) closeIs();
        return;
      }
      bytesIs(std::string_view(buffer, static_cast<size_t>(n)));
    }
  }

  void bytesIs(std::string_view bytes) {
    const size_t limit = server_.options_.maxRequestBytes;
    while (!bytes.empty() && !closing_) {
      const size_t newline = bytes.find('\n');
      const std::string_view part = bytes.substr(0, newline);
      if (discarding_) {
        if (newline != std::string_view::npos) discarding_ = false;
      } else if (in_.size() + part.size() > limit) {
        ++server_.counters_.oversized;
        ++server_.counters_.errors;
        in_.clear();
        send(errorReply("tooLarge", "request over " + std::to_string(limit) + " bytes"));
        discarding_ = newline == std::string_view::npos;
      } else {
        in_ += part;
        if (newline != std::string_view::npos) lineIs();
      }
      if (newline == std::string_view::npos) return;
      bytes.remove_prefix(newline + 1);
    }
  }

  void lineIs() {
    std::string line;
    line.swap(in_);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.find_first_not_of(" \t") == std::string::npos) return;
    ++server_.counters_.requests;
    Service::Reply reply = server_.service_.handleText(line, *this);
    if (!reply.ok) ++server_.counters_.errors;
    sendLine(std::move(reply.line));
  }

  void flushOut() {
    while (outOff_ < out_.size()) {
      const ssize_t n = ::send(fd_, out_.data() + outOff_, out_.size() - outOff_, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (n < 0) {
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
          if (!writeWatch_) {
            writeWatch_ = server_.scheduler_.writableWatchIs(
                fd_, [this] { flushOut(); }, [this](std::error_code) { closeIs(); });
          }
          return;
        }
        return closeIs();
      }
      outOff_ += static_cast<size_t>(n);
    }
    out_.clear();
    if (out_.capacity() > kReadChunk) out_.shrink_to_fit();  // a large reply's buffer goes with it
    outOff_ = 0;
    writeWatch_.reset();
  }

  Server& server_;
  uint64_t id_;
  int fd_;
  Peer peer_;
  std::string in_;
  bool discarding_ = false;  // the rest of an oversized line
  std::string out_;
  size_t outOff_ = 0;
  bool closing_ = false;
  bool gone_ = false;
  bool largeBuffer_ = false;
  std::unique_ptr<Platform::FdWatch> readWatch_;
  std::unique_ptr<Platform::FdWatch> writeWatch_;
};

Server::Server(Platform::Scheduler& scheduler, Service& service, ServerOptions options)
    : scheduler_(scheduler), service_(service), options_(std::move(options)) {}

Server::~Server() {
  *alive_ = false;
  listenWatch_.reset();
  for (auto& [id, client] : clients_) client->sessionEnd();
  clients_.clear();
  if (listenFd_ >= 0) {
    ::close(listenFd_);
    ::unlink(options_.socketPath.c_str());
  }
}

bool Server::listen(std::string& error) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (options_.socketPath.empty() || options_.socketPath.size() >= sizeof addr.sun_path) {
    error = "socket path empty or longer than " + std::to_string(sizeof addr.sun_path - 1) + " bytes";
    return false;
  }
  std::memcpy(addr.sun_path, options_.socketPath.c_str(), options_.socketPath.size() + 1);
  gid_t gid = static_cast<gid_t>(-1);
  if (!options_.group.empty()) {
    group entry{};
    group* found = nullptr;
    char buffer[4096];
    if (getgrnam_r(options_.group.c_str(), &entry, buffer, sizeof buffer, &found) != 0 || !found) {
      error = "no such group: " + options_.group;
      return false;
    }
    gid = found->gr_gid;
  }
  struct stat st{};
  if (::lstat(addr.sun_path, &st) == 0) {
    if (!S_ISSOCK(st.st_mode)) {
      error = options_.socketPath + " exists and is not a socket";
      return false;
    }
    ::unlink(addr.sun_path);  // left by an agent that did not stop cleanly
  }
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    error = errnoText("socket");
    return false;
  }
  // Never reachable by others, not even between bind and chmod.
  const mode_t previous = ::umask(0177);
  const int bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr);
  ::umask(previous);
  if (bound != 0) {
    error = errnoText(("bind " + options_.socketPath).c_str());
    ::close(fd);
    return false;
  }
  if (::chmod(addr.sun_path, options_.mode) != 0 ||
      (gid != static_cast<gid_t>(-1) && ::chown(addr.sun_path, static_cast<uid_t>(-1), gid) != 0) ||
      ::listen(fd, 128) != 0) {
    error = errnoText(options_.socketPath.c_str());
    ::close(fd);
    ::unlink(addr.sun_path);
    return false;
  }
  listenFd_ = fd;
  listenWatch_ = scheduler_.readableWatchIs(listenFd_, [this] { handleAccept(); });
  return true;
}

void Server::handleAccept() {
  for (;;) {
    const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;  // EAGAIN, or out of descriptors: the next readiness call tries again
    if (clients_.size() >= options_.maxClients) {
      ++counters_.refused;
      sendNow(fd, lineOf(errorReply("limit", "too many clients (" + std::to_string(options_.maxClients) + ")")));
      ::close(fd);
      continue;
    }
    ucred cred{};
    socklen_t len = sizeof cred;
    ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len);
    clientIs(fd, cred.uid, cred.pid);
  }
}

void Server::clientIs(int fd, uid_t uid, pid_t pid) {
  ++counters_.accepted;
  const uint64_t id = nextClient_++;
  clients_[id] = std::make_unique<Client>(*this, id, fd, Peer{uid, pid});
}

void Server::clientDel(uint64_t id) {
  auto it = clients_.find(id);
  if (it == clients_.end()) return;
  std::unique_ptr<Client> doomed = std::move(it->second);
  clients_.erase(it);
  doomed->sessionEnd();
}

}  // namespace Ipc
