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
  size_t maxRequestBytes = 64 * 1024;
  // Replies and events not yet taken by a client; a client with more than this waiting when
  // the next message comes is disconnected.
  size_t maxOutputBytes = 8 * 1024 * 1024;
};

class Server {
 public:
  struct Counters {
    uint64_t accepted = 0;
    uint64_t refused = 0;          // over the client limit
    uint64_t requests = 0;
    uint64_t errors = 0;           // requests answered with an error
    uint64_t oversized = 0;        // requests over the size limit
    uint64_t slowDisconnects = 0;  // clients that did not read their output
  };

  Server(Platform::Scheduler& scheduler, Service& service, ServerOptions options);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Creates the socket file (replacing a stale socket, never another kind of file), sets its
  // mode and group, and starts accepting. False with a one-line reason.
  bool listen(std::string& error);
  // Serves one already connected descriptor (tests, socket pairs); takes ownership.
  void clientIs(int fd, uid_t uid, pid_t pid);

  size_t clients() const { return clients_.size(); }
  const Counters& counters() const { return counters_; }
  const ServerOptions& options() const { return options_; }

 private:
  class Client;
  void handleAccept();
  void clientDel(uint64_t id);

  Platform::Scheduler& scheduler_;
  Service& service_;
  ServerOptions options_;
  int listenFd_ = -1;
  std::unique_ptr<Platform::FdWatch> listenWatch_;
  uint64_t nextClient_ = 1;
  std::map<uint64_t, std::unique_ptr<Client>> clients_;
  Counters counters_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace Ipc
