// LLDP-EXT-MED-MIB over the agent's records.
#include "snmp/LldpMib.h"

namespace Snmp {

void addLldpMedMib(MibTree&, LldpMibData&) {}

}  // namespace Snmp
