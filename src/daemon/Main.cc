// lldp-agent: options, the configuration file, start-up with systemd readiness, signals
// (reload, shutdown), watchdog and status, privileges.
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <iostream>

#include "daemon/AgentMetrics.h"
#include "daemon/ControlSocket.h"
#include "daemon/Daemon.h"
#include "daemon/FileLimit.h"
#include "daemon/Privileges.h"
#include "daemon/Version.h"
#include "linux/AsioScheduler.h"
#include "linux/SystemLogSink.h"
#include "platform/Trace.h"

namespace {

const Platform::LogHandle<std::string_view, std::string_view> LLDP_AGENT_STARTED(
    {"LLDP_AGENT_STARTED", Platform::Severity::notice, "LLDP agent %s started with configuration %s",
     "The LLDP agent has started: it sends and receives LLDPDUs on the selected ports.",
     Platform::kNoActionRequired, 0, {"VERSION", "CONFIG_FILE"}});
const Platform::LogHandle<std::string_view> LLDP_AGENT_STOPPED(
    {"LLDP_AGENT_STOPPED", Platform::Severity::notice, "LLDP agent stopped on %s",
     "The LLDP agent stopped; neighbors no longer receive LLDPDUs from this system and age it out.",
     Platform::kNoActionRequired, 0, {"SIGNAL"}});
const Platform::LogHandle<std::string_view> LLDP_AGENT_FAILED(
    {"LLDP_AGENT_FAILED", Platform::Severity::error, "LLDP agent cannot run: %s",
     "The LLDP agent met an error it cannot recover from and stops.",
     "Correct the cause the message names and start the agent again.", 0, {"ERROR"}});

struct CommandLine {
  std::string configPath = Daemon::kDefaultConfigPath;
  std::string socketPath = "/run/lldp-agent/lldp.sock";
  std::string socketGroup = "lldp";
  std::string user;
  std::string traceSpec;
  std::string log = "system";
  bool checkConfig = false;
  bool version = false;
  bool keys = false;
};

// Keeps systemd's STATUS= current and pets the watchdog from a clock on the event thread, so a
// stuck event loop stops the pets.
class ServiceManager {
 public:
  ServiceManager(Platform::Scheduler& scheduler, const Daemon::LldpDaemon& daemon)
      : daemon_(daemon), statusClock_(scheduler, [this] { handleStatusClock(); }),
        watchdogClock_(scheduler, [this] { handleWatchdogClock(); }) {
    uint64_t usec = 0;
    if (sd_watchdog_enabled(0, &usec) > 0 && usec > 0) {
      watchdogInterval_ = static_cast<double>(usec) / 2e6;
      handleWatchdogClock();
    }
  }
  void ready() {
    sd_notify(0, "READY=1");
    handleStatusClock();
  }
  static void stopping() { sd_notify(0, "STOPPING=1\nSTATUS=Stopping"); }
  static void reloading() { sd_notify(0, "RELOADING=1"); }
  void reloaded() {
    sd_notify(0, "READY=1");
    status_.clear();
    handleStatusClock();
  }

 private:
  void handleStatusClock() {
    statusClock_.timeMinIs(statusClock_.scheduler().now() + 5);
    const auto s = daemon_.summary();
    const std::string status = "Running: " + std::to_string(s.ports) + " ports, " + std::to_string(s.neighbours) +
                               " neighbors, " + std::to_string(s.netlinkResyncs) + " netlink resyncs";
    if (status == status_) return;
    status_ = status;
    sd_notify(0, ("STATUS=" + status).c_str());
  }
  void handleWatchdogClock() {
    sd_notify(0, "WATCHDOG=1");
    watchdogClock_.timeMinIs(watchdogClock_.scheduler().now() + watchdogInterval_);
  }

  const Daemon::LldpDaemon& daemon_;
  Platform::Clock statusClock_;
  Platform::Clock watchdogClock_;
  double watchdogInterval_ = 0;
  std::string status_;
};

int checkConfigOnly(const Daemon::ConfigLoad& load, const std::string& path) {
  if (load.missing) {
    std::cout << path << ": no file; the defaults apply\n";
  } else {
    std::cout << path << ": configuration OK\n";
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine cl;
  CLI::App app{"lldp-agent: the LLDP agent. It advertises this system on every selected Ethernet port, learns "
               "its neighbors and serves its state on a UNIX socket for the lldp command and other software.",
               "lldp-agent"};
  app.add_option("--config", cl.configPath, "Configuration file (TOML); a missing default file means the defaults")
      ->capture_default_str();
  app.add_option("--socket", cl.socketPath, "State socket path")->capture_default_str();
  app.add_option("--socket-group", cl.socketGroup, "Group that may use the state socket")->capture_default_str();
  app.add_option("--user", cl.user, "Run as this user once started (keeps CAP_NET_RAW and CAP_NET_ADMIN only)");
  app.add_option("--trace", cl.traceSpec, "Trace levels, as Facility/level,*/level (to standard error)");
  app.add_option("--log", cl.log, "Where log messages go")->check(CLI::IsMember({"system", "stderr"}))->capture_default_str();
  app.add_flag("--check-config", cl.checkConfig, "Check the configuration file, print every error and exit");
  app.add_flag("--config-keys", cl.keys, "Print every configuration key with its range and default and exit");
  app.add_flag("--version", cl.version, "Print the version and exit");
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return 2;
  }
  if (cl.version) {
    std::cout << "lldp-agent " << Daemon::kVersion << "\n";
    return 0;
  }
  if (cl.keys) {
    std::cout << Daemon::ConfigSchema::renderDoc();
    return 0;
  }
  const bool defaultPath = app.count("--config") == 0;
  Daemon::ConfigLoad load = Daemon::loadConfigFile(cl.configPath, defaultPath);
  if (!load.ok()) {
    for (const std::string& error : load.errors) std::cerr << error << "\n";
    return 2;
  }
  if (cl.checkConfig) return checkConfigOnly(load, cl.configPath);
  if (!cl.traceSpec.empty() && !Platform::traceLevelsIs(cl.traceSpec)) {
    std::cerr << "--trace: '" << cl.traceSpec << "' is not a list of trace levels such as LldpAgent/8,*/2\n";
    return 2;
  }
  if (!cl.user.empty() && getpwnam(cl.user.c_str()) == nullptr) {
    std::cerr << "--user: no user '" << cl.user << "'\n";  // a bad option: the unit does not retry it
    return 2;
  }
  std::signal(SIGPIPE, SIG_IGN);  // a client gone mid-reply is an error return, not a kill
  if (std::string error; Daemon::openFileLimitRaise(Daemon::kOpenFilesWanted, error) == 0) {
    std::cerr << "lldp-agent: open-file limit: " << error << "\n";
  }

  Linux::AsioScheduler scheduler;
  Daemon::LldpDaemon::Options options;
  options.configPath = cl.configPath;
  options.missingConfigIsDefault = defaultPath;
  Daemon::LldpDaemon daemon(scheduler, options, std::move(*load.settings));
  ServiceManager service(scheduler, daemon);
  Daemon::AgentMetrics metrics(daemon);
  int exitCode = 0;
  std::unique_ptr<Daemon::ControlSocket> socket;
  // Before the system log is set up: standard error, which the service manager keeps too.
  const auto failAtStart = [](const std::string& error) {
    std::cerr << "lldp-agent: " << error << "\n";
    return 1;
  };
#ifdef LLDP_HAVE_STATE_SOCKET
  // A fresh install may not have made the default group yet: the socket is then root's alone,
  // rather than the agent refusing to run. A group named on the command line must exist.
  if (app.get_option("--socket-group")->count() == 0 && getgrnam(cl.socketGroup.c_str()) == nullptr) {
    std::cerr << "lldp-agent: no group " << cl.socketGroup << ": the state socket is for root only\n";
    cl.socketGroup.clear();
  }
  socket = Daemon::makeControlSocket(daemon, {cl.socketPath, cl.socketGroup});
  // The socket path is taken first: a second agent stops here, before it touches a port, and
  // the file is made while the privileges to give it its group are still there.
  Daemon::socketDirectoryIs(cl.socketPath);
  if (std::string error; !socket->bind(error)) return failAtStart("state socket " + cl.socketPath + ": " + error);
#endif
  // Before any thread starts (the log writer is the first): capabilities belong to each thread,
  // and a thread started earlier would keep them all.
  if (std::string error = Daemon::dropPrivileges(cl.user); !error.empty()) {
    return failAtStart("dropping privileges: " + error);
  }
  if (cl.log == "system") Linux::systemLogSinkIs("lldp-agent");
  const auto fail = [&](const std::string& error) {
    LLDP_AGENT_FAILED.emit(error);
    if (cl.log == "system") std::cerr << "lldp-agent: " << error << "\n";
    exitCode = 1;
    scheduler.stop();
  };

  daemon.readyIs([&] {
    // The socket listens once the agent and the host are complete.
    std::string socketError;
    if (socket && !socket->listen(socketError)) {
      fail("state socket " + cl.socketPath + ": " + socketError);
      return;
    }
    metrics.start();  // a metrics address that cannot be bound is logged; LLDP runs on
    LLDP_AGENT_STARTED.emit(Daemon::kVersion, cl.configPath);
    service.ready();
  });
  daemon.fatalIs(fail);
  scheduler.signalHandlerIs({SIGHUP, SIGTERM, SIGINT}, [&](int signal) {
    if (signal == SIGHUP) {
      ServiceManager::reloading();
      daemon.reload();
      service.reloaded();
      return;
    }
    ServiceManager::stopping();
    if (socket) socket->close();
    daemon.shutdown();
    LLDP_AGENT_STOPPED.emit(signal == SIGTERM ? "SIGTERM" : "SIGINT");
    scheduler.stop();
  });

  daemon.start();
  scheduler.run();
  if (socket) socket->close();
  daemon.shutdown();
  return exitCode;
}
