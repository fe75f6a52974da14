// The part of every packet access manager that decides which mechanisms exist: one per
// desired interface that the device directory knows, while enabled; failed opens are retried.
#pragma once

#include <map>
#include <set>

#include "platform/Log.h"
#include "platform/PacketAccess.h"
#include "platform/Reactor.h"
#include "platform/Scheduler.h"

namespace Interface {

extern const Platform::LogHandle<std::string_view, std::string_view> PAM_OPEN_FAILED;

class PamManagerBase : public EthDevPamManager, public Platform::Reactor {
 public:
  // Failed opens are retried after kRetryInterval, then at twice the interval each time they
  // all fail again, up to kRetryIntervalMax: a port whose ring the kernel cannot map is not
  // hammered, nor given up.
  static constexpr double kRetryInterval = 5.0;
  static constexpr double kRetryIntervalMax = 60.0;

  PamManagerBase(Platform::Ptr<PamDesiredIntfDir> desired, Platform::Ptr<EthDevPamCollection> pams,
                 Platform::Ptr<DeviceIntfStatusDir> devices, Platform::Scheduler& scheduler);

  void handleIntf(const Konet::IntfId& intfId);
  const std::set<Konet::IntfId>& failed() const { return failed_; }

 protected:
  // Opens the mechanism; null with error set when it cannot (then it is retried later).
  virtual Platform::Ptr<Konet::Pam> openPam(const Konet::IntfId& intfId, const DeviceIntf& device,
                                            std::string& error) = 0;
  void handleEnabled() override;
  Platform::Scheduler& scheduler() const { return scheduler_; }
  const Platform::Ptr<EthDevPamCollection>& pams() const { return pams_; }

 private:
  void handleRetryClock();

  Platform::Ptr<PamDesiredIntfDir> desired_;
  Platform::Ptr<EthDevPamCollection> pams_;
  Platform::Ptr<DeviceIntfStatusDir> devices_;
  Platform::Scheduler& scheduler_;
  Platform::Clock retryClock_;
  std::set<Konet::IntfId> failed_;
  double retryInterval_ = kRetryInterval;
  std::map<Konet::IntfId, DeviceIntf> openedOn_;
};

}  // namespace Interface
