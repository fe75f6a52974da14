// The state socket as the daemon sees it: made by the socket library, listening once the agent
// and the host are complete, closed first at shutdown.
#pragma once

#include <memory>
#include <string>

namespace Daemon {

class LldpDaemon;

class ControlSocket {
 public:
  virtual ~ControlSocket() = default;
  // Binds and listens (mode 0660, owned by the group); false with error set when it cannot.
  virtual bool listen(std::string& error) = 0;
  // Stops accepting and closes every client; the agent is still running.
  virtual void close() = 0;
};

struct ControlSocketOptions {
  std::string path;
  std::string group;
};

// Defined by the state socket library. It reads and subscribes through daemon.stateDb() and
// changes the configuration through daemon.set/unset/save only, so that the running
// configuration, `show config` and `config save` stay one.
std::unique_ptr<ControlSocket> makeControlSocket(LldpDaemon& daemon, const ControlSocketOptions& options);

}  // namespace Daemon
