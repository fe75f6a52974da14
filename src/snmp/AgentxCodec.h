// AgentX protocol data units as the subagent reads and writes them, encoded and decoded by
// net-snmp's AgentX codec (its agent library); nothing outside this pair of files sees net-snmp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "snmp/Oid.h"

namespace Snmp::Agentx {

enum PduType : uint8_t {
  kOpen = 1,
  kClose = 2,
  kRegister = 3,
  kGet = 5,
  kGetNext = 6,
  kGetBulk = 7,
  kTestSet = 8,
  kCommitSet = 9,
  kUndoSet = 10,
  kCleanupSet = 11,
  kNotify = 12,
  kPing = 13,
  kResponse = 18,
};

// Error codes of a Response.
enum Error : uint16_t {
  kNoError = 0,
  kGenErr = 5,
  kNotWritable = 17,
  kProcessingError = 268,
};

// Close reasons.
enum CloseReason : uint8_t { kReasonOther = 1, kReasonParseError = 2, kReasonShutdown = 5 };

enum class Exception : uint8_t { none, noSuchObject, noSuchInstance, endOfMibView };

struct VarBind {
  Oid name;
  Value value;
  Exception exception = Exception::none;
};

struct SearchRange {
  Oid start;
  Oid end;  // empty: no bound
  bool include = false;
};

struct Pdu {
  PduType type = kResponse;
  uint8_t flags = 0;  // header flags, kept from a request for its response
  uint32_t sessionId = 0;
  uint32_t transactionId = 0;
  uint32_t packetId = 0;
  uint32_t sysUpTime = 0;  // Response
  uint16_t error = 0;      // Response
  uint16_t index = 0;      // Response
  uint16_t nonRepeaters = 0;    // GetBulk
  uint16_t maxRepetitions = 0;  // GetBulk
  uint8_t timeout = 0;     // Open, Register: seconds, 0 for the master's default
  uint8_t priority = 127;  // Register
  uint8_t reason = 0;      // Close
  Oid id;                  // Open: the subagent's identity
  std::string description; // Open
  Oid subtree;             // Register
  std::vector<SearchRange> ranges;  // Get, GetNext, GetBulk
  std::vector<VarBind> varBinds;    // Response, Notify, TestSet
};

inline constexpr size_t kHeaderSize = 20;

// The length of the packet at the start of data (header and payload) once its header is
// complete; 0 while fewer than kHeaderSize bytes are there.
size_t packetLength(const uint8_t* data, size_t size);
// False for a packet that does not parse.
bool decode(const uint8_t* data, size_t size, Pdu& pdu);
// Appends the packet to out; false when it cannot be encoded.
bool encode(const Pdu& pdu, std::string& out);

}  // namespace Snmp::Agentx
