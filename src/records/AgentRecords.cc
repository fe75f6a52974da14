// Printable forms of other agents' records.
#include "records/AgentRecords.h"

namespace Interface {
std::ostream& operator<<(std::ostream& os, LinkStatus s) {
  switch (s) {
    case LinkStatus::unknown: return os << "linkUnknown";
    case LinkStatus::linkDown: return os << "linkDown";
    case LinkStatus::linkUp: return os << "linkUp";
  }
  return os << "linkStatus(" << int(s) << ")";
}
}  // namespace Interface

namespace Identity::NbrClassification {
const char* toString(Classification c) {
  switch (c) {
    case Classification::unclassified: return "unclassified";
    case Classification::phone: return "phone";
  }
  return "unknown";
}

std::ostream& operator<<(std::ostream& os, const Neighbor& n) {
  return os << "{" << n.ethAddr << ", " << n.intfId << ", " << toString(n.classification) << ", "
            << n.description << "}";
}
}  // namespace Identity::NbrClassification
