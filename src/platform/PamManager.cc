// Reconciling open packet access mechanisms with the desired and existing interfaces.
#include "platform/PamManager.h"

#include <algorithm>

namespace Interface {

const Platform::LogHandle<std::string_view, std::string_view> PAM_OPEN_FAILED(
    {"LLDP_PACKET_ACCESS_FAILED", Platform::Severity::error,
     "Cannot open packet access on interface %s: %s",
     "LLDP could not open or configure the raw socket of an interface, so it neither sends nor "
     "receives LLDPDUs there. It tries again every few seconds.",
     "Check that the interface exists and that the agent runs with the CAP_NET_RAW capability.",
     60, {"INTERFACE"}});

PamManagerBase::PamManagerBase(Platform::Ptr<PamDesiredIntfDir> desired,
                               Platform::Ptr<EthDevPamCollection> pams,
                               Platform::Ptr<DeviceIntfStatusDir> devices,
                               Platform::Scheduler& scheduler)
    : desired_(std::move(desired)), pams_(std::move(pams)), devices_(std::move(devices)),
      scheduler_(scheduler), retryClock_(scheduler, [this] { handleRetryClock(); }) {
  watch<&PamManagerBase::handleIntf>(desired_, PamDesiredIntfDir::intfDesiredAttr);
  watch<&PamManagerBase::handleIntf>(devices_, DeviceIntfStatusDir::deviceIntfAttr);
}

void PamManagerBase::handleIntf(const Konet::IntfId& intfId) {
  const DeviceIntf* device = devices_->deviceIntf().find(intfId);
  const bool wanted = enabled() && desired_->intfDesiredHas(intfId) && device;
  const auto opened = openedOn_.find(intfId);
  // The mechanism is bound to the device's index: a device deleted and made again (a new
  // index) or another device under the name gets a new one; a new MAC address does not, so
  // the port keeps its neighbours.
  if (opened != openedOn_.end()) {
    const bool sameDevice = wanted && opened->second.ifIndex == device->ifIndex &&
                            opened->second.deviceName == device->deviceName;
    if (sameDevice) {
      opened->second = *device;
    } else {
      openedOn_.erase(opened);
      pams_->intfPamDel(intfId);
    }
  }
  if (!wanted) {
    failed_.erase(intfId);
    return;
  }
  if (pams_->intfPamHas(intfId)) return;
  std::string error;
  Platform::Ptr<Konet::Pam> pam = openPam(intfId, *device, error);
  if (!pam) {
    PAM_OPEN_FAILED.emit(intfId.name(), error);
    failed_.insert(intfId);
    if (!retryClock_.armed()) retryClock_.timeMinIs(scheduler_.now() + retryInterval_);
    return;
  }
  failed_.erase(intfId);
  openedOn_[intfId] = *device;
  pams_->intfPamIs(intfId, pam);
}

void PamManagerBase::handleEnabled() {
  if (!enabled()) {
    failed_.clear();
    openedOn_.clear();
    pams_->intfPamDelAll();
    return;
  }
  for (auto it = desired_->intfDesired().begin(); it != desired_->intfDesired().end(); ++it) {
    handleIntf(it.key());
  }
}

void PamManagerBase::handleRetryClock() {
  const std::set<Konet::IntfId> retry = std::move(failed_);
  failed_.clear();
  // The clock is re-armed (by the first failure) at the interval after this one.
  retryInterval_ = std::min(retryInterval_ * 2, kRetryIntervalMax);
  for (const Konet::IntfId& intfId : retry) handleIntf(intfId);
  if (failed_.empty()) retryInterval_ = kRetryInterval;
}

}  // namespace Interface
