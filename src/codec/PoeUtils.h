// Power over Ethernet helpers for the IEEE 802.3 Power Via MDI TLV.
//
// We advertise as power sourcing equipment. The TLV is sent while the port's PoE state is
// `searching` or `deliveringPower` (the port offers or gives power); a disabled or faulted port
// sends none. The octets sent:
//   0  MDI power support: bit 0 PSE port class, bit 1 PSE MDI power supported, bit 2 enabled
//   1  PSE power pair: 1 (signal pairs)
//   2  power class: the powered device's class + 1 (class 0 is sent as 1)
// and, when the neighbour has sent a Power Via MDI TLV itself and the port supports LLDP power
// negotiation, the IEEE 802.3at part:
//   3  power type 00 (type 2 PSE), source 01 (primary), priority 00 (unknown)
//   4  PD requested power, tenths of a watt (what the neighbours asked for, summed)
//   6  PSE allocated power, tenths of a watt (what the power manager granted)
#pragma once

#include <cstdint>

#include "records/LldpRecords.h"

namespace PoeUtils {

enum PoePortState : uint8_t {
  poeDisabled = 0,
  searching = 1,
  deliveringPower = 2,
  fault = 3,
  test = 4,
  otherFault = 5,
};

bool canWeSendPowerViaMdiTlv(const Lldp::LocalPortPoeInfo* info);
// Writes the information string into buf and returns its length (3 or 8).
int buildPowerViaMdiTlv(uint8_t* buf, const Lldp::LocalPortPoeInfo& info, bool neighbourNegotiates);

// Fields of the 802.3at power type/source/priority octet, as raw 2-bit codes.
uint8_t getType(uint8_t octet);
uint8_t getSource(uint8_t octet);
uint8_t getPriorityFromIeeeTlv(uint8_t octet);

Units::Watts deciWattsToWatts(uint16_t deciWatts);

}  // namespace PoeUtils
