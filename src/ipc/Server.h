// The state socket: a UNIX stream socket served on the scheduler's descriptor watches, one JSON
// message per line each way, with limits on clients, request size and unsent output.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "ipc/Service.h"
#include "platform/Scheduler.h"

namespace Ipc {

struct ServerOptions {
  std::string socketPath = "/run/lldp-agent/lldp.sock";
  std::string group;        // owner group of the socket file; empty keeps the process's
  unsigned mode = 0660;     // only the owner and the group may connect
  size_t maxClients = 64;
  // One user (root excepted) may hold no more than this many connections, and the last
  // rootReserve connections are root's: a member of the group cannot lock root out.
  size_t maxClientsPerUid = 16;
  size_t rootReserve = 4;
  // Out of descriptors, accepting pauses this long rather than spin on a readable socket.
  double acceptBackoff = 0.5;
  size_t maxRequestBytes = 64 * 1024;
  // Replies and events not yet taken by a client; a client with more than this waiting when
  // the next message comes is disconnected.
  size_t maxOutputBytes = 8 * 1024 * 1024;
};

class Server {
 public:
  struct Counters {
    uint64_t accepted = 0;
    uint64_t refused = 0;          // over the client limit or the user's
    uint64_t peerUnknown = 0;      // connections whose credentials could not be read
    uint64_t acceptPauses = 0;     // accepting paused, out of descriptors
    uint64_t requests = 0;
    uint64_t errors = 0;           // requests answered with an error
    uint64_t oversized = 0;        // requests over the size limit
    uint64_t slowDisconnects = 0;  // clients that did not read their output
  };

  Server(Platform::Scheduler& scheduler, Service& service, ServerOptions options);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Takes the lock beside the socket path (PATH.lock, holding the owner's pid), so that one agent
  // serves one path, and creates the socket file: a stale socket is replaced, a live one or any
  // other kind of file never. The file is owned by the group before it gets its mode. Nothing
  // connects yet. False with a one-line reason (naming the other agent's pid).
  bool bind(std::string& error);
  // Binds when that was not done, and starts accepting.
  bool listen(std::string& error);
  // Serves one already connected descriptor (tests, socket pairs); takes ownership.
  void clientIs(int fd, uid_t uid, pid_t pid);

  size_t clients() const { return clients_.size(); }
  size_t clientsOf(uid_t uid) const;
  const Counters& counters() const { return counters_; }
  const ServerOptions& options() const { return options_; }

 private:
  class Client;
  void handleAccept();
  void handleAcceptClock();
  // Why this peer may not connect now; empty when it may.
  std::string refusalFor(uid_t uid) const;
  void clientDel(uint64_t id);

  Platform::Scheduler& scheduler_;
  Service& service_;
  ServerOptions options_;
  int lockFd_ = -1;
  int listenFd_ = -1;
  ino_t socketInode_ = 0;  // the file this server made, the only one it removes
  bool listening_ = false;
  bool acceptFailing_ = false;  // logged once per spell
  std::unique_ptr<Platform::FdWatch> listenWatch_;
  Platform::Clock acceptClock_;
  uint64_t nextClient_ = 1;
  std::map<uint64_t, std::unique_ptr<Client>> clients_;
  Counters counters_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace Ipc
