// Text and JSON views of decoded neighbours and counters.
#include "cli/Render.h"

#include "cli/Detail.h"
#include "records/RecordsJson.h"

namespace Cli {

void renderRemoteSystemText(const Lldp::RemoteSystem& rs, std::ostream& out) {
  renderDetail(neighborDetail(Platform::recordToJson(rs), -1), out);
}

nlohmann::ordered_json decodeJson(const DecodeResult& result) {
  nlohmann::ordered_json out;
  out["frames"] = {{"read", result.framesRead}, {"lldp", result.lldpFrames}, {"skipped", result.skippedFrames}};
  nlohmann::ordered_json neighbors = nlohmann::ordered_json::array();
  for (const auto& [index, rs] : result.portStatus->remoteSystem()) neighbors.push_back(Platform::recordToJson(*rs));
  out["neighbors"] = neighbors;
  nlohmann::ordered_json counters = Platform::recordToJson(*result.portStatus);
  counters.erase("remoteSystem");
  counters.erase("remoteSystemByMsap");
  out["portStatus"] = counters;
  nlohmann::ordered_json table = Platform::recordToJson(*result.status);
  table.erase("portStatus");
  out["status"] = table;
  return out;
}

void renderDecodeText(const DecodeResult& result, std::ostream& out) {
  out << "Frames: " << result.framesRead << " read, " << result.lldpFrames << " LLDP, "
      << result.skippedFrames << " skipped\n";
  const Lldp::PortStatus& ps = *result.portStatus;
  out << "Neighbors: " << ps.remoteSystems() << "\n";
  for (const auto& [index, rs] : ps.remoteSystem()) {
    out << "\nNeighbor " << index << "\n";
    renderRemoteSystemText(*rs, out);
  }
  out << "\nReceive counters: frames " << ps.rxFramesTotal() << ", errors " << ps.rxFramesErrors()
      << ", discarded " << ps.rxFramesDiscardedTotal() << ", TLVs discarded "
      << ps.rxTLVsDiscardedTotal() << ", TLVs unrecognized " << ps.rxTLVsUnrecognizedTotal() << "\n";
  if (ps.ceeSeqNumToAck()) out << "CEE sequence number to acknowledge: " << ps.ceeSeqNumToAck() << "\n";
  const Lldp::Status& st = *result.status;
  out << "Table counters: inserts " << st.remTablesInserts() << ", deletes " << st.remTablesDeletes()
      << ", drops " << st.remTablesDrops() << ", ageouts " << st.remTablesAgeouts() << "\n";
}

}  // namespace Cli
