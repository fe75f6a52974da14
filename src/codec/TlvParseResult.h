// The outcome of parsing one TLV, shared by the receive path and every extension parser.
#pragma once

#include <ostream>

namespace Lldp {

enum TlvParseResult {
  TlvParseResultEnd = 0,           // End of LLDPDU: stop, apply the frame
  TlvParseResultOk = 1,            // accepted
  TlvParseResultUnrecognized = 2,  // kept as unknown, counted
  TlvParseResultDiscard = 3,       // ignored, counted, the frame has an error
  TlvParseResultFatalError = 4,    // the whole frame is discarded
};

inline std::ostream& operator<<(std::ostream& os, TlvParseResult r) { return os << static_cast<int>(r); }

}  // namespace Lldp
