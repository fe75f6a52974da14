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
  // Takes the socket path (one agent per path) and makes the socket file (owned by the group,
  // then mode 0660), while the privileges to do so are still there; nothing connects yet.
  // False with error set when it cannot, for example when another agent serves the path.
  virtual bool bind(std::string& error) = 0;
  // Starts accepting (binding first when that was not done); false with error set.
  virtual bool listen(std::string& error) = 0;
  // Stops accepting and closes every client; the agent is still running.
  virtual void close() = 0;
};

struct ControlSocketOptions {
  std::string path;
  std::string group;
};

// Makes the socket's directory when it is missing (mode 0755: the socket's own mode and group
// decide who connects), as the service manager does for the default path.
void socketDirectoryIs(const std::string& socketPath);

// Defined by the state socket library. It reads and subscribes through daemon.stateDb() and
// changes the configuration through daemon.set/unset/save only, so that the running
// configuration, `show config` and `config save` stay one.
std::unique_ptr<ControlSocket> makeControlSocket(LldpDaemon& daemon, const ControlSocketOptions& options);

}  // namespace Daemon
