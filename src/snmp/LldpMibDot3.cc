// LLDP-EXT-DOT3-MIB over the agent's records.
#include "snmp/LldpMib.h"

namespace Snmp {

void addLldpDot3Mib(MibTree&, LldpMibData&) {}

}  // namespace Snmp
