// The daemon's metrics: the agent's records rendered for Prometheus, served and written as the
// running configuration says, and moved when it changes.
#pragma once

#include <memory>

#include "daemon/Daemon.h"
#include "metrics/Endpoint.h"

namespace Daemon {

class AgentMetrics {
 public:
  explicit AgentMetrics(LldpDaemon& daemon);
  // Applies the configuration (binds while the process still may) and follows its changes.
  void start();
  const Metrics::Endpoint& endpoint() const { return endpoint_; }

 private:
  void render(std::string& page) const;
  void apply();

  LldpDaemon& daemon_;
  Metrics::Endpoint endpoint_;
  bool started_ = false;
};

}  // namespace Daemon
