// The subagent's AgentX connection to the master agent, served on the scheduler: connecting
// and reconnecting, opening the session and registering the LLDP subtree, answering GET,
// GETNEXT and GETBULK from the MIB, refusing SETs, and sending notifications. Nothing waits for
// the master: the socket never blocks, and a master that stops answering only leaves its own
// requests unanswered.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/Scheduler.h"
#include "snmp/AgentxCodec.h"
#include "snmp/LldpMib.h"

namespace Snmp {

class AgentxSession {
 public:
  struct Options {
    std::string socketPath = "/var/agentx/master";
    Oid subtree = lldpMibOid();
    std::string description = "lldp-agent LLDP-MIB subagent";
    double answerTimeout = 5;  // seconds the master may take to answer an open or a register
    // A master that is not there is looked for this often (a connect that fails costs nothing);
    // one that refuses or does not answer is tried again after this, doubling up to retryMax.
    double retryInterval = 1;
    double retryMax = 30;
    size_t maxOutputBytes = 4 * 1024 * 1024;  // unsent answers before the master counts as stuck
    // A request this soon after the previous one starts a walk; a walk ends after this quiet.
    double walkGap = 0.002;
    double walkQuiet = 0.02;
  };
  enum class State : uint8_t { idle, waiting, opening, registering, ready };
  struct Counters {
    uint64_t connects = 0;     // sessions registered
    uint64_t disconnects = 0;  // sessions lost
    uint64_t requests = 0;     // GET, GETNEXT and GETBULK answered
    uint64_t varBinds = 0;     // variables answered
    uint64_t refusedSets = 0;
    uint64_t notifications = 0;
    uint64_t badPackets = 0;   // packets that did not parse
  };

  AgentxSession(Platform::Scheduler& scheduler, LldpMib& mib, Options options);
  ~AgentxSession();
  AgentxSession(const AgentxSession&) = delete;
  AgentxSession& operator=(const AgentxSession&) = delete;

  // Starts connecting; a master that is not there yet is tried again, ever more slowly.
  void start();
  // Closes the session (telling the master) and stops trying.
  void stop();
  State state() const { return state_; }
  bool ready() const { return state_ == State::ready; }
  const Counters& counters() const { return counters_; }
  const std::string& lastError() const { return lastError_; }
  // Called when the session becomes ready, and when it is lost (with the reason).
  void readyIs(std::function<void()> fn) { onReady_ = std::move(fn); }
  void lostIs(std::function<void(const std::string&)> fn) { onLost_ = std::move(fn); }
  // Called with true when the master starts asking in quick succession (a walk: snmpd asks for
  // one object per request, so a walk is that many round trips), and with false once it has
  // been quiet for walkQuiet, the session ends or the session is destroyed.
  void walkingIs(std::function<void(bool)> fn) { onWalking_ = std::move(fn); }

  // Sends a notification through the master: sysUpTime.0, snmpTrapOID.0 and the objects.
  // False when no session is open.
  bool notify(const Oid& trapOid, const std::vector<Agentx::VarBind>& objects);

 private:
  void handleRetryClock();
  void handleAnswerClock();
  void handleWalkClock();
  void doRequestSeen();
  void doWalkEnds();
  void doConnect();
  void doLost(const std::string& reason);
  void doSend(const Agentx::Pdu& pdu);
  void handlePdu(const Agentx::Pdu& pdu);
  void handleResponse(const Agentx::Pdu& pdu);
  void handleRequest(const Agentx::Pdu& pdu);
  void handleReadable();
  void handleWritable();
  void doFlush();
  uint32_t masterUptimeNow() const;

  Platform::Scheduler& scheduler_;
  LldpMib& mib_;
  Options options_;
  State state_ = State::idle;
  int fd_ = -1;
  std::unique_ptr<Platform::FdWatch> readWatch_;
  std::unique_ptr<Platform::FdWatch> writeWatch_;
  Platform::Clock retryClock_;
  Platform::Clock answerClock_;
  Platform::Clock walkClock_;
  double lastRequestTime_ = -1e18;
  bool walking_ = false;
  double retryDelay_ = 0;
  std::string in_;
  std::string out_;
  size_t outOff_ = 0;
  uint32_t sessionId_ = 0;
  uint32_t nextPacketId_ = 1;
  uint32_t openPacketId_ = 0;
  uint32_t registerPacketId_ = 0;
  MasterUptime uptime_;
  Counters counters_;
  std::string lastError_;
  std::function<void()> onReady_;
  std::function<void(const std::string&)> onLost_;
  std::function<void(bool)> onWalking_;
};

}  // namespace Snmp
