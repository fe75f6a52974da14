// What `lldp show` prints, taken from the agent's replies: plain rows for the text views, and
// the versioned JSON document for --json. The JSON keys are the records' attribute names.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Query.h"

namespace Cli {

// Version of the JSON that `lldp --json` prints; raised when a key changes meaning or goes.
inline constexpr int kJsonSchema = 1;

// The document printed for --json: {"schema": 1, ...data}.
Json jsonDocument(const Json& reply, std::initializer_list<const char*> keys);
// Where the fields of a success reply's text begin: {"v":1,"id":7,"ok":true,FIELDS} is printed
// as {"schema":1,FIELDS}, every field kept, without reading them. Nothing for any other reply (a
// refusal, or text laid out otherwise), which is then read as JSON.
std::optional<size_t> documentFieldsAt(std::string_view reply);

struct NeighborRow {
  std::string intf;
  std::string chassisId;
  std::string chassisSubtype;
  std::string portId;
  std::string portSubtype;
  std::string portDesc;
  std::string sysName;
  std::string sysDesc;
  std::string capsSupported;
  std::string capsEnabled;
  std::vector<std::string> managementAddresses;
  unsigned ttl = 0;
  double age = 0;
};
std::vector<NeighborRow> neighborRows(const Json& reply);
// The neighbour attributes the rows are made of: all a text view asks the agent for.
const std::vector<std::string>& neighborRowAttributes();

struct InterfaceRow {
  std::string intf;
  std::string adminStatus;
  std::string portId;
  std::string portDesc;
  std::vector<std::string> sending;  // optional TLVs the port sends
  bool counted = false;              // the port has a status (an engine runs)
  uint64_t txFrames = 0, rxFrames = 0, rxErrors = 0, rxDiscarded = 0, tlvsDiscarded = 0, tlvsUnrecognized = 0,
           ageouts = 0, txLengthExceeded = 0, kernelDrops = 0;
};
std::vector<InterfaceRow> interfaceRows(const Json& reply);

struct ClassificationRow {
  std::string ethAddr;
  std::string intf;
  std::string classification;
  std::string description;
};
std::vector<ClassificationRow> classificationRows(const Json& reply);

// A neighbour event for `lldp watch`: one line for people, starting with the local time it came
// (seconds since the epoch).
std::string watchLine(const Json& change, double wallTime);

// 83 seconds is "1m23s"; a day or more "2d03h".
std::string ageText(double seconds);
// A moment in local time: "2025-06-01 12:29:44" for people, or with iso
// "2025-06-01T12:29:44.120+02:00".
std::string localTimeText(double wallTime, bool iso = false);
// A time on the agent's clock for people: "5m12s ago (2025-06-01 12:29:44)", or "never" for 0.
// agentNow is the agent's clock when it answered, wallNow the local time then.
std::string agentTimeText(double time, double agentNow, double wallNow);
// The administrative status as the configuration spells it: "tx-rx", "tx", "rx", "disabled".
const char* adminStatusName(int status);

}  // namespace Cli
