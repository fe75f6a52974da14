// The daemon's metrics endpoint over the agent's records.
#include "daemon/AgentMetrics.h"

#include "daemon/Version.h"
#include "metrics/Exposition.h"

namespace Daemon {

AgentMetrics::AgentMetrics(LldpDaemon& daemon)
    : daemon_(daemon), endpoint_(daemon.scheduler(), [this](std::string& page) { render(page); }) {
  daemon_.settingsChangedAdd([this] {
    if (started_) apply();
  });
}

void AgentMetrics::start() {
  started_ = true;
  apply();
}

void AgentMetrics::apply() {
  const Settings& s = daemon_.settings();
  endpoint_.settingsIs({s.metricsListen, s.metricsTextfile, static_cast<double>(s.metricsTextfileInterval)});
}

void AgentMetrics::render(std::string& page) const {
  Metrics::Source source;
  source.version = kVersion;
  if (const auto* agent = daemon_.agent()) {
    source.status = agent->lldpStatusLocal().get();
    source.localSystem = agent->localSystem().get();
  }
  Metrics::exposition(source, page);
}

}  // namespace Daemon
