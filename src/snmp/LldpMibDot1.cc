// LLDP-EXT-DOT1-MIB over the agent's records.
#include "snmp/LldpMib.h"

namespace Snmp {

void addLldpDot1Mib(MibTree&, LldpMibData&) {}

}  // namespace Snmp
