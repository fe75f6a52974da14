// From one rtnetlink message to the host's facts, through libnl-route's object parsers (and
// libnl's attribute parser for the few attributes its link object does not keep).
#pragma once

#include <cstdint>

struct nlmsghdr;
struct rtnl_link;

namespace Linux {

class HostState;
struct LinkFacts;

enum class RtnlResult {
  applied,  // a link, bridge port, address or netconf fact
  ignored,  // a message of no interest (another family, another netconf entry)
  invalid,  // libnl could not parse it
};

// Applies one RTM_NEWLINK/DELLINK, RTM_NEWADDR/DELADDR or RTM_NEWNETCONF message to the state.
RtnlResult applyRtnlMessage(nlmsghdr* hdr, HostState& state);

// The facts of a parsed link; hdr (the link's message) supplies what the object lacks.
void linkFactsOf(rtnl_link* link, nlmsghdr* hdr, LinkFacts& facts);

}  // namespace Linux
