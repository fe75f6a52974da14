// Power Via MDI helpers: which ports may advertise power, and the octets they send.
#include "codec/PoeUtils.h"

#include <algorithm>
#include <cmath>

#include "codec/Bytes.h"

namespace PoeUtils {
namespace {

uint16_t toDeciWatts(Units::Watts w) {
  return static_cast<uint16_t>(std::clamp(std::lround(w.value * 10), 0L, 65535L));
}

}  // namespace

bool canWeSendPowerViaMdiTlv(const Lldp::LocalPortPoeInfo* info) {
  if (!info) return false;
  return info->poePortState() == searching || info->poePortState() == deliveringPower;
}

int buildPowerViaMdiTlv(uint8_t* buf, const Lldp::LocalPortPoeInfo& info, bool neighbourNegotiates) {
  constexpr uint8_t kPseClass = 0x01, kPseSupported = 0x02, kPseEnabled = 0x04;
  buf[0] = kPseClass | kPseSupported | (info.poePortState() != poeDisabled ? kPseEnabled : 0);
  buf[1] = 1;
  buf[2] = static_cast<uint8_t>(std::min<int>(info.pdClass(), 4) + 1);
  if (!neighbourNegotiates || !info.lldpPoeNegotiationSupported()) return 3;
  constexpr uint8_t kType2Pse = 0x0 << 6, kPrimarySource = 0x1 << 4, kPriorityUnknown = 0x0;
  buf[3] = kType2Pse | kPrimarySource | kPriorityUnknown;
  Lldp::putBe16(buf + 4, toDeciWatts(info.requestedPowerValue()));
  Lldp::putBe16(buf + 6, toDeciWatts(info.grantedPower()));
  return 8;
}

uint8_t getType(uint8_t octet) { return (octet >> 6) & 0x3; }
uint8_t getSource(uint8_t octet) { return (octet >> 4) & 0x3; }
uint8_t getPriorityFromIeeeTlv(uint8_t octet) { return octet & 0x3; }

Units::Watts deciWattsToWatts(uint16_t deciWatts) { return Units::Watts{deciWatts / 10.0}; }

}  // namespace PoeUtils
