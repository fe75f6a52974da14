// Socket set-up, accepting, line framing and output backpressure of the state socket.
#include "ipc/Server.h"

#include <fcntl.h>
#include <sys/file.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/Json.h"
#include "platform/Log.h"

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

const Platform::LogHandle<std::string_view, std::string_view> LLDP_SOCKET_ACCEPT_PAUSED(
    {"LLDP_SOCKET_ACCEPT_PAUSED", Platform::Severity::warning,
     "LLDP agent cannot accept connections on %s: %s; retrying",
     "The process or the system is out of file descriptors or memory; new clients of the state socket "
     "wait until some are free. This is logged once until a connection is accepted again.",
     "Look for processes holding many descriptors or connections; raise the agent's descriptor limit "
     "(LimitNOFILE) if it serves many clients.",
     0, {"SOCKET", "ERROR"}});

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
    : scheduler_(scheduler), service_(service), options_(std::move(options)),
      acceptClock_(scheduler, [this] { handleAcceptClock(); }) {}

Server::~Server() {
  *alive_ = false;
  listenWatch_.reset();
  for (auto& [id, client] : clients_) client->sessionEnd();
  clients_.clear();
  if (listenFd_ >= 0) {
    ::close(listenFd_);
    // Only the file this server made: never one another process put there since.
    struct stat st{};
    if (::lstat(options_.socketPath.c_str(), &st) == 0 && S_ISSOCK(st.st_mode) && st.st_ino == socketInode_) {
      ::unlink(options_.socketPath.c_str());
    }
  }
  // The lock file stays: removing it while it is held would let two later agents each lock a
  // file of their own.
  if (lockFd_ >= 0) ::close(lockFd_);
}

namespace {

// Who holds the lock: the pid its holder wrote, or nothing.
std::string lockHolder(int fd) {
  char text[32] = {};
  const ssize_t n = ::pread(fd, text, sizeof text - 1, 0);
  if (n <= 0) return {};
  std::string pid(text, static_cast<size_t>(n));
  while (!pid.empty() && (pid.back() == '\n' || pid.back() == ' ')) pid.pop_back();
  if (pid.empty() || pid.find_first_not_of("0123456789") != std::string::npos) return {};
  return pid;
}

// Whether the socket file at addr is stale: nothing listens on it. A full backlog, or a file
// this process may not connect to, is not known to be stale.
bool stale(const sockaddr_un& addr) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const bool refused = ::connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0 &&
                       errno == ECONNREFUSED;
  ::close(fd);
  return refused;
}

}  // namespace

bool Server::bind(std::string& error) {
  if (listenFd_ >= 0) return true;
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
  // A path that is taken by something other than a socket is refused before its lock file is
  // made beside it (a mistyped --socket /etc/passwd leaves no /etc/passwd.lock).
  if (struct stat st{}; ::lstat(addr.sun_path, &st) == 0 && !S_ISSOCK(st.st_mode)) {
    error = options_.socketPath + " exists and is not a socket";
    return false;
  }
  // One agent per path: whoever holds the lock owns the socket file, live or stale.
  const std::string lockPath = options_.socketPath + ".lock";
  const int lockFd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (lockFd < 0) {
    error = errnoText(lockPath.c_str());
    return false;
  }
  if (::flock(lockFd, LOCK_EX | LOCK_NB) != 0) {
    const std::string holder = errno == EWOULDBLOCK ? lockHolder(lockFd) : std::string();
    error = errno == EWOULDBLOCK ? "another lldp-agent" + (holder.empty() ? std::string() : " (pid " + holder + ")") +
                                       " serves " + options_.socketPath +
                                       "; stop it first, or give this one another --socket"
                                 : errnoText(("lock " + lockPath).c_str());
    ::close(lockFd);
    return false;
  }
  const std::string pid = std::to_string(::getpid()) + "\n";
  if (::ftruncate(lockFd, 0) != 0 || ::pwrite(lockFd, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
    error = errnoText(lockPath.c_str());
    ::close(lockFd);
    return false;
  }
  struct stat st{};
  if (::lstat(addr.sun_path, &st) == 0) {
    if (!S_ISSOCK(st.st_mode)) {
      error = options_.socketPath + " exists and is not a socket";
      ::close(lockFd);
      return false;
    }
    // Left by an agent that did not stop cleanly, unless something still listens on it.
    if (!stale(addr)) {
      error = "a process that holds no lock serves " + options_.socketPath + "; it is left alone";
      ::close(lockFd);
      return false;
    }
    ::unlink(addr.sun_path);
  }
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    error = errnoText("socket");
    ::close(lockFd);
    return false;
  }
  // Never reachable by others: made for the owner alone, given its group, and only then the
  // group's access.
  const mode_t previous = ::umask(0177);
  const int bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr);
  ::umask(previous);
  if (bound != 0) {
    error = errnoText(("bind " + options_.socketPath).c_str());
    ::close(fd);
    ::close(lockFd);
    return false;
  }
  const bool grouped = gid == static_cast<gid_t>(-1) || ::chown(addr.sun_path, static_cast<uid_t>(-1), gid) == 0;
  if (!grouped || ::chmod(addr.sun_path, options_.mode) != 0 || ::lstat(addr.sun_path, &st) != 0) {
    error = errnoText(options_.socketPath.c_str());
    if (!grouped && errno == EPERM) {
      error += " (giving it the group " + options_.group + " takes CAP_CHOWN at start-up, or running in that group)";
    }
    ::close(fd);
    ::unlink(addr.sun_path);
    ::close(lockFd);
    return false;
  }
  socketInode_ = st.st_ino;
  listenFd_ = fd;
  lockFd_ = lockFd;
  return true;
}

bool Server::listen(std::string& error) {
  if (!bind(error)) return false;
  if (listening_) return true;
  if (::listen(listenFd_, 128) != 0) {
    error = errnoText(("listen " + options_.socketPath).c_str());
    return false;
  }
  listening_ = true;
  listenWatch_ = scheduler_.readableWatchIs(listenFd_, [this] { handleAccept(); });
  return true;
}

size_t Server::clientsOf(uid_t uid) const {
  size_t n = 0;
  for (const auto& [id, client] : clients_) n += client->peer().uid == uid;
  return n;
}

std::string Server::refusalFor(uid_t uid) const {
  const size_t total = clients_.size();
  if (total >= options_.maxClients) return "too many clients (" + std::to_string(options_.maxClients) + ")";
  if (uid == 0) return {};
  if (total + options_.rootReserve >= options_.maxClients) {
    return "too many clients (the last " + std::to_string(options_.rootReserve) + " of " +
           std::to_string(options_.maxClients) + " are kept for root)";
  }
  if (clientsOf(uid) >= options_.maxClientsPerUid) {
    return "too many clients of uid " + std::to_string(uid) + " (" + std::to_string(options_.maxClientsPerUid) +
           " per user)";
  }
  return {};
}

void Server::handleAccept() {
  for (;;) {
    const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        // The connection waits in the backlog and the socket stays readable: accepting again at
        // once would spin. Pause, and say so once per spell.
        ++counters_.acceptPauses;
        if (!acceptFailing_) LLDP_SOCKET_ACCEPT_PAUSED.emit(options_.socketPath, std::strerror(errno));
        acceptFailing_ = true;
        listenWatch_.reset();
        acceptClock_.timeMinIs(scheduler_.now() + options_.acceptBackoff);
        return;
      }
      // The spell ends only once the backlog is empty: a descriptor freed for one connection
      // while others still wait is no recovery worth a second warning.
      if (errno == EAGAIN || errno == EWOULDBLOCK) acceptFailing_ = false;
      return;
    }
    ucred cred{};
    socklen_t len = sizeof cred;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0 || len != sizeof cred) {
      // Nobody unknown is served, and nobody is taken for root.
      ++counters_.peerUnknown;
      ::close(fd);
      continue;
    }
    if (const std::string refusal = refusalFor(cred.uid); !refusal.empty()) {
      ++counters_.refused;
      sendNow(fd, lineOf(errorReply("limit", refusal)));
      ::close(fd);
      continue;
    }
    clientIs(fd, cred.uid, cred.pid);
  }
}

void Server::handleAcceptClock() {
  if (listenFd_ < 0 || !listening_) return;
  listenWatch_ = scheduler_.readableWatchIs(listenFd_, [this] { handleAccept(); });
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
