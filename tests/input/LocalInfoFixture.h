// An Input root with InputSm on records the test fills, in virtual time, with its trace captured.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "input/LldpInputSm.h"
#include "platform/Scheduler.h"

namespace Lldp::Agent::Input {

struct LocalInfoFixture : ::testing::Test {
  Platform::VirtualScheduler scheduler{0};
  LocalSystem::Ptr localSystem = Platform::make<LocalSystem>();
  Bridging::Config::Ptr bridgingConfig = Platform::make<Bridging::Config>();
  Interface::AllIntfStatusDir::Ptr allIntfStatusDir = Platform::make<Interface::AllIntfStatusDir>();
  Ip::Status::Ptr ipStatus = Platform::make<Ip::Status>();
  Ip6::Status::Ptr ip6Status = Platform::make<Ip6::Status>();
  Platform::Dir::Ptr externalTlvs = Platform::make<Platform::Dir>("externalTlvs");
  CliConfig::Ptr cliConfig = Platform::make<CliConfig>();
  std::unique_ptr<Root> root = rootFactory("inputRoot", scheduler, 1);
  std::vector<std::string> traces;
  Platform::TraceSink previousSink;

  LocalInfoFixture() {
    root->localSystemIs(localSystem);
    root->configIs(Platform::make<Config>());
    root->statusIs(Platform::make<Status>("1"));
    root->remTablesStatusIs(Platform::make<RemTablesStatus>());
    root->bridgingConfigIs(bridgingConfig);
    root->allIntfStatusDirIs(allIntfStatusDir);
    root->desiredIntfDirIs(Platform::make<Interface::PamDesiredIntfDir>("desiredIntfDir"));
    Platform::traceLevelsIs("*/8");
    previousSink = Platform::traceSinkIs(
        [this](const Platform::TraceFacility&, int, std::string_view line) { traces.emplace_back(line); });
  }
  ~LocalInfoFixture() override {
    root.reset();
    Platform::traceSinkIs(previousSink);
    Platform::traceLevelsIs("");
  }

  void start() {
    root->inputSmIs(Platform::make<Interface::AllEthPhyIntfConfigDir>(), bridgingConfig,
                    Platform::make<Bridging::HwCapabilities>(), ipStatus, ip6Status, Platform::make<Routing::Config>(),
                    Platform::make<EntityMib::Status>(), externalTlvs, Platform::make<System::NetStatus>(), cliConfig,
                    allIntfStatusDir, root.get());
  }
  // The index of the first trace line containing text (traces.size() when none does).
  size_t tracedAt(const std::string& text) const {
    for (size_t i = 0; i < traces.size(); ++i) {
      if (traces[i].find(text) != std::string::npos) return i;
    }
    return traces.size();
  }
  bool traced(const std::string& text) const { return tracedAt(text) < traces.size(); }
};

}  // namespace Lldp::Agent::Input
