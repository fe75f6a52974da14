// Behaviour of the LLDP records beyond their generated accessors.
#include "records/LldpRecords.h"

#include <stdexcept>

namespace Lldp {

Platform::Ptr<LocalPortPoeInfo> LocalPort::initilizeLocalPortPoeInfo() {
  if (!localPortPoeInfo_) localPortPoeInfoIs(Platform::make<LocalPortPoeInfo>());
  return localPortPoeInfo_;
}

RemoteSystem::RemoteSystem(int32_t index, Msap msap) : index_(index), msap_(std::move(msap)) {
  if (index < 1) throw std::range_error("RemoteSystem::index < 1 not allowed");
}

bool RemoteSystem::anyLldpMedReceived() const { return lldpMedTlvReceived(); }

namespace {
template <class Pred>
bool anyRemote(const PortStatus& ps, Pred pred) {
  for (const auto& [index, rs] : ps.remoteSystem()) {
    if (pred(*rs)) return true;
  }
  return false;
}
}  // namespace

bool PortStatus::anyLldpMedReceived() const {
  return anyRemote(*this, [](const RemoteSystem& rs) { return rs.anyLldpMedReceived(); });
}

bool PortStatus::networkPolicyTlvReceived() const {
  return anyRemote(*this, [](const RemoteSystem& rs) { return !rs.networkPolicyTlv().empty(); });
}

bool PortStatus::powerViaMdiTlvReceived() const {
  return anyRemote(*this, [](const RemoteSystem& rs) { return rs.powerViaMdiTlvReceived(); });
}

std::ostream& operator<<(std::ostream& os, const RemoteSystem& rs) {
  return os << "RemoteSystem " << rs.index() << " " << rs.msap();
}

std::ostream& operator<<(std::ostream& os, const PortStatus& ps) {
  return os << "PortStatus " << ps.intfId();
}

std::ostream& operator<<(std::ostream& os, const LocalPort& lp) {
  return os << "LocalPort " << lp.intfId();
}

}  // namespace Lldp
