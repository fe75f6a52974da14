// Stand-ins for the InputSm operations that live with the management-address and external-TLV
// reactors, so that these tests link without them; the real definitions replace them (weak).
#include "input/LldpInputSm.h"

namespace Lldp::Agent::Input {

[[gnu::weak]] void InputSm::handleIntfStatusOrIpIntfStatus(const Konet::IntfId&) {}
[[gnu::weak]] void InputSm::handleIp6ManagementAddress() {}
[[gnu::weak]] void InputSm::handleIp6IntfStatus(const Konet::IntfId&) {}
[[gnu::weak]] void InputSm::handleExternalTlvsEntityPtr(const std::string&) {}
[[gnu::weak]] void InputSm::doSyncMgmtAddrVrf() {}
[[gnu::weak]] void InputSm::doSyncExternalTlvs(const Konet::IntfId&) {}

}  // namespace Lldp::Agent::Input
