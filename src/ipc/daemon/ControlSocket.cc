// The daemon's state socket: the socket server over the daemon's state database, with every
// configuration change made through the daemon, so that what runs, `show config` and
// `config save` stay one.
#include "daemon/ControlSocket.h"

#include <sys/stat.h>

#include "daemon/Daemon.h"
#include "daemon/Version.h"
#include "ipc/Server.h"

namespace Daemon {
namespace {

class DaemonConfig : public Ipc::ConfigService {
 public:
  explicit DaemonConfig(LldpDaemon& daemon) : daemon_(daemon) {}

  bool configKeyIs(const std::string& intf, const std::string& key, const std::string& value, bool byRoot,
                   std::string& error) override {
    if (auto refused = daemon_.setText(intf, key, value, byRoot)) {
      error = refused->text();
      return false;
    }
    return true;
  }
  bool configKeyDel(const std::string& intf, const std::string& key, bool byRoot, std::string& error) override {
    if (auto refused = daemon_.unset(intf, key, byRoot)) {
      error = refused->text();
      return false;
    }
    return true;
  }
  std::string configText() const override { return daemon_.renderConfig(); }
  bool configSave(std::string& error, std::string& note) override {
    error = daemon_.save(&note);
    return error.empty();
  }

 private:
  LldpDaemon& daemon_;
};

class StateSocket : public ControlSocket {
 public:
  StateSocket(LldpDaemon& daemon, const ControlSocketOptions& options)
      : daemon_(daemon), config_(daemon), service_(daemon.stateDb()) {
    options_.socketPath = options.path;
    options_.group = options.group;
    service_.configServiceIs(&config_);
    service_.statusProviderIs([this] {
      const LldpDaemon::Summary summary = daemon_.summary();
      Ipc::Json status = {{"version", kVersion},
                          {"uptime", daemon_.uptime()},
                          {"netlinkResyncs", summary.netlinkResyncs},
                          {"unsavedChanges", daemon_.unsaved()}};
      // The socket's own figures: refused and cut-off clients are otherwise invisible.
      if (server_) {
        const Ipc::Server::Counters& c = server_->counters();
        status["socket"] = {{"clients", server_->clients()},      {"accepted", c.accepted},
                            {"refused", c.refused},               {"requests", c.requests},
                            {"errors", c.errors},                 {"oversized", c.oversized},
                            {"slowDisconnects", c.slowDisconnects}, {"peerUnknown", c.peerUnknown},
                            {"acceptPauses", c.acceptPauses}};
      }
      return status;
    });
  }
  ~StateSocket() override { server_.reset(); }

  bool bind(std::string& error) override {
    if (!server_) server_ = std::make_unique<Ipc::Server>(daemon_.scheduler(), service_, options_);
    if (server_->bind(error)) return true;
    server_.reset();
    return false;
  }
  bool listen(std::string& error) override {
    if (!server_) server_ = std::make_unique<Ipc::Server>(daemon_.scheduler(), service_, options_);
    if (server_->listen(error)) return true;
    server_.reset();
    return false;
  }
  void close() override { server_.reset(); }

 private:
  LldpDaemon& daemon_;
  DaemonConfig config_;
  Ipc::Service service_;
  Ipc::ServerOptions options_;
  std::unique_ptr<Ipc::Server> server_;
};

}  // namespace

void socketDirectoryIs(const std::string& socketPath) {
  const size_t slash = socketPath.rfind('/');
  if (slash == std::string::npos || slash == 0) return;
  // An error shows when the socket is bound, naming the path.
  ::mkdir(socketPath.substr(0, slash).c_str(), 0755);
}

std::unique_ptr<ControlSocket> makeControlSocket(LldpDaemon& daemon, const ControlSocketOptions& options) {
  return std::make_unique<StateSocket>(daemon, options);
}

}  // namespace Daemon
