// Connection lifecycle, framing and the answers to the master's requests.
#include "snmp/AgentxSession.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/Trace.h"

namespace Snmp {

namespace {

Platform::TraceFacility agentxTrace("Agentx");

constexpr uint8_t kNetworkByteOrder = 0x10;
constexpr size_t kReadChunk = 64 * 1024;
constexpr size_t kMaxPacket = 1024 * 1024;
// Variables in one answer to a GETBULK, whatever the master asks for.
constexpr size_t kMaxBulkVarBinds = 2048;

const Oid kSysUpTime{1, 3, 6, 1, 2, 1, 1, 3, 0};
const Oid kSnmpTrapOid{1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};

std::string errnoText(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

}  // namespace

AgentxSession::AgentxSession(Platform::Scheduler& scheduler, LldpMib& mib, Options options)
    : scheduler_(scheduler), mib_(mib), options_(std::move(options)),
      retryClock_(scheduler, [this] { handleRetryClock(); }), answerClock_(scheduler, [this] { handleAnswerClock(); }),
      walkClock_(scheduler, [this] { handleWalkClock(); }) {}

AgentxSession::~AgentxSession() { stop(); }

void AgentxSession::start() {
  if (state_ != State::idle) return;
  state_ = State::waiting;
  retryDelay_ = options_.retryInterval;
  doConnect();
}

void AgentxSession::stop() {
  if (state_ == State::ready) {
    Agentx::Pdu close;
    close.type = Agentx::kClose;
    close.sessionId = sessionId_;
    close.packetId = nextPacketId_++;
    close.reason = Agentx::kReasonShutdown;
    doSend(close);
  }
  readWatch_.reset();
  writeWatch_.reset();
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  retryClock_.timeMinIs(Platform::kNever);
  answerClock_.timeMinIs(Platform::kNever);
  state_ = State::idle;
  doWalkEnds();
}

void AgentxSession::handleRetryClock() {
  if (state_ == State::waiting) doConnect();
}

void AgentxSession::doConnect() {
  TRACE(agentxTrace, 6) << "connecting to the AgentX master at " << options_.socketPath;
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (options_.socketPath.size() >= sizeof addr.sun_path) {
    lastError_ = "the socket path is too long";
    return;
  }
  std::memcpy(addr.sun_path, options_.socketPath.data(), options_.socketPath.size());
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  // A UNIX socket connects at once or not at all (a full backlog is EAGAIN): nothing to wait for.
  if (fd < 0 || ::connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
    lastError_ = errnoText("connect");
    if (fd >= 0) ::close(fd);
    TRACE(agentxTrace, 6) << "no AgentX master: " << lastError_;
    retryClock_.timeMinIs(scheduler_.now() + options_.retryInterval);
    return;
  }
  fd_ = fd;
  in_.clear();
  out_.clear();
  outOff_ = 0;
  readWatch_ = scheduler_.readableWatchIs(
      fd_, [this] { handleReadable(); }, [this](std::error_code ec) { doLost("socket error: " + ec.message()); });
  state_ = State::opening;
  Agentx::Pdu open;
  open.type = Agentx::kOpen;
  open.packetId = openPacketId_ = nextPacketId_++;
  open.timeout = 0;  // the master's default for our answers
  open.id = options_.subtree;
  open.description = options_.description;
  answerClock_.timeMinIs(scheduler_.now() + options_.answerTimeout);
  doSend(open);
}

void AgentxSession::handleAnswerClock() {
  if (state_ == State::opening || state_ == State::registering) doLost("the master did not answer");
}

void AgentxSession::doLost(const std::string& reason) {
  const bool wasReady = state_ == State::ready;
  TRACE(agentxTrace, 2) << "AgentX session lost: " << reason;
  readWatch_.reset();
  writeWatch_.reset();
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  answerClock_.timeMinIs(Platform::kNever);
  lastError_ = reason;
  state_ = State::waiting;
  doWalkEnds();
  if (wasReady) {
    // A master that went away (a restart, typically) is looked for again at once.
    ++counters_.disconnects;
    retryDelay_ = options_.retryInterval;
    if (onLost_) onLost_(reason);
    retryClock_.timeMinIs(scheduler_.now() + retryDelay_);
    return;
  }
  retryClock_.timeMinIs(scheduler_.now() + retryDelay_);
  retryDelay_ = std::min(retryDelay_ * 2, options_.retryMax);
}

void AgentxSession::doSend(const Agentx::Pdu& pdu) {
  if (fd_ < 0) return;
  if (!Agentx::encode(pdu, out_)) {
    TRACE(agentxTrace, 0) << "cannot encode an AgentX packet of type " << int(pdu.type);
    return;
  }
  if (out_.size() - outOff_ > options_.maxOutputBytes) {
    doLost("the master does not read its answers");
    return;
  }
  if (!writeWatch_) doFlush();
}

void AgentxSession::doFlush() {
  while (outOff_ < out_.size()) {
    const ssize_t n = ::send(fd_, out_.data() + outOff_, out_.size() - outOff_, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n > 0) {
      outOff_ += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      if (!writeWatch_) writeWatch_ = scheduler_.writableWatchIs(fd_, [this] { handleWritable(); });
      return;
    }
    doLost(errnoText("send"));
    return;
  }
  out_.clear();
  outOff_ = 0;
  writeWatch_.reset();
}

void AgentxSession::handleWritable() { doFlush(); }

void AgentxSession::handleReadable() {
  char buffer[kReadChunk];
  const ssize_t n = ::recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
  if (n == 0) {
    doLost("the master closed the connection");
    return;
  }
  if (n < 0) {
    if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return;
    doLost(errnoText("recv"));
    return;
  }
  in_.append(buffer, static_cast<size_t>(n));
  size_t offset = 0;
  // Every complete packet read is handled now; the master sends one request at a time per
  // session, so this is a handful at most.
  while (fd_ >= 0) {
    const auto* data = reinterpret_cast<const uint8_t*>(in_.data()) + offset;
    const size_t have = in_.size() - offset;
    const size_t length = Agentx::packetLength(data, have);
    if (length == 0) break;
    if (length > kMaxPacket) {
      doLost("a packet of " + std::to_string(length) + " bytes");
      return;
    }
    if (length > have) break;
    Agentx::Pdu pdu;
    if (Agentx::decode(data, length, pdu)) {
      handlePdu(pdu);
    } else {
      ++counters_.badPackets;
      TRACE(agentxTrace, 0) << "an AgentX packet of " << length << " bytes does not parse";
    }
    offset += length;
  }
  if (fd_ >= 0) in_.erase(0, offset);
}

void AgentxSession::handlePdu(const Agentx::Pdu& pdu) {
  switch (pdu.type) {
    case Agentx::kResponse: handleResponse(pdu); return;
    case Agentx::kGet:
    case Agentx::kGetNext:
    case Agentx::kGetBulk:
    case Agentx::kTestSet:
    case Agentx::kCommitSet:
    case Agentx::kUndoSet: handleRequest(pdu); return;
    case Agentx::kCleanupSet: return;  // no answer
    case Agentx::kClose: doLost("the master closed the session"); return;
    default: TRACE(agentxTrace, 2) << "ignoring an AgentX packet of type " << int(pdu.type); return;
  }
}

void AgentxSession::handleResponse(const Agentx::Pdu& pdu) {
  if (state_ == State::opening && pdu.packetId == openPacketId_) {
    if (pdu.error != Agentx::kNoError) {
      doLost("the master refused the session (error " + std::to_string(pdu.error) + ")");
      return;
    }
    sessionId_ = pdu.sessionId;
    // The master's sysUpTime now: the time line of every time stamp served.
    uptime_ = MasterUptime{scheduler_.now(), pdu.sysUpTime};
    mib_.data().uptimeIs(uptime_);
    state_ = State::registering;
    Agentx::Pdu reg;
    reg.type = Agentx::kRegister;
    reg.sessionId = sessionId_;
    reg.packetId = registerPacketId_ = nextPacketId_++;
    reg.subtree = options_.subtree;
    doSend(reg);
    return;
  }
  if (state_ == State::registering && pdu.packetId == registerPacketId_) {
    if (pdu.error != Agentx::kNoError) {
      doLost("the master refused the registration of " + oidText(options_.subtree) + " (error " +
             std::to_string(pdu.error) + ")");
      return;
    }
    answerClock_.timeMinIs(Platform::kNever);
    state_ = State::ready;
    retryDelay_ = options_.retryInterval;
    ++counters_.connects;
    lastError_.clear();
    TRACE(agentxTrace, 4) << "AgentX session " << sessionId_ << " registered " << oidText(options_.subtree);
    if (onReady_) onReady_();
  }
  // Answers to notifications need nothing.
}

uint32_t AgentxSession::masterUptimeNow() const { return uptime_.ticksAt(scheduler_.now()); }

void AgentxSession::doRequestSeen() {
  const double now = scheduler_.now();
  const double previous = lastRequestTime_;
  lastRequestTime_ = now;
  if (walking_ || now - previous > options_.walkGap) return;
  walking_ = true;
  walkClock_.timeMinIs(now + options_.walkQuiet);
  TRACE(agentxTrace, 6) << "AgentX walk begins";
  if (onWalking_) onWalking_(true);
}

void AgentxSession::handleWalkClock() {
  // Re-armed once per walkQuiet rather than on every request: a walk is many thousands of them.
  const double quietAt = lastRequestTime_ + options_.walkQuiet;
  if (scheduler_.now() < quietAt) {
    walkClock_.timeMinIs(quietAt);
    return;
  }
  doWalkEnds();
}

void AgentxSession::doWalkEnds() {
  if (!walking_) return;
  walking_ = false;
  walkClock_.timeMinIs(Platform::kNever);
  TRACE(agentxTrace, 6) << "AgentX walk ends";
  if (onWalking_) onWalking_(false);
}

void AgentxSession::handleRequest(const Agentx::Pdu& request) {
  doRequestSeen();
  Agentx::Pdu response;
  response.type = Agentx::kResponse;
  response.flags = request.flags & kNetworkByteOrder;
  response.sessionId = request.sessionId;
  response.transactionId = request.transactionId;
  response.packetId = request.packetId;
  response.sysUpTime = masterUptimeNow();
  const auto nextOf = [this](const Oid& start, bool include, const Oid& end) {
    if (auto found = mib_.next(start, include, end)) return Agentx::VarBind{std::move(found->oid), std::move(found->value)};
    return Agentx::VarBind{start, {}, Agentx::Exception::endOfMibView};
  };
  switch (request.type) {
    case Agentx::kGet:
      for (const Agentx::SearchRange& range : request.ranges) {
        MibTree::Got got = mib_.get(range.start);
        Agentx::VarBind vb{range.start, {}, Agentx::Exception::none};
        if (got.value) {
          vb.value = std::move(*got.value);
        } else {
          vb.exception = got.miss == MibTree::Miss::noSuchObject ? Agentx::Exception::noSuchObject
                                                                 : Agentx::Exception::noSuchInstance;
        }
        response.varBinds.push_back(std::move(vb));
      }
      break;
    case Agentx::kGetNext:
      for (const Agentx::SearchRange& range : request.ranges) {
        response.varBinds.push_back(nextOf(range.start, range.include, range.end));
      }
      break;
    case Agentx::kGetBulk: {
      const size_t nonRepeaters = std::min<size_t>(request.nonRepeaters, request.ranges.size());
      for (size_t i = 0; i < nonRepeaters; ++i) {
        const Agentx::SearchRange& range = request.ranges[i];
        response.varBinds.push_back(nextOf(range.start, range.include, range.end));
      }
      std::vector<Agentx::SearchRange> repeaters(request.ranges.begin() + static_cast<long>(nonRepeaters),
                                                 request.ranges.end());
      for (uint16_t r = 0; r < request.maxRepetitions && !repeaters.empty(); ++r) {
        if (response.varBinds.size() + repeaters.size() > kMaxBulkVarBinds) break;
        bool any = false;
        for (Agentx::SearchRange& range : repeaters) {
          Agentx::VarBind vb = nextOf(range.start, range.include, range.end);
          any |= vb.exception == Agentx::Exception::none;
          range.start = vb.name;
          range.include = false;
          response.varBinds.push_back(std::move(vb));
        }
        if (!any) break;
      }
      break;
    }
    case Agentx::kTestSet:
      // Every LLDP object served is read-only.
      ++counters_.refusedSets;
      response.error = Agentx::kNotWritable;
      response.index = 1;
      break;
    default:
      // CommitSet and UndoSet follow only a TestSet that succeeded, which never happens.
      response.error = Agentx::kProcessingError;
      break;
  }
  ++counters_.requests;
  counters_.varBinds += response.varBinds.size();
  doSend(response);
}

bool AgentxSession::notify(const Oid& trapOid, const std::vector<Agentx::VarBind>& objects) {
  if (state_ != State::ready) return false;
  Agentx::Pdu pdu;
  pdu.type = Agentx::kNotify;
  pdu.sessionId = sessionId_;
  pdu.packetId = nextPacketId_++;
  pdu.varBinds.push_back({kSysUpTime, Value::timeTicks(masterUptimeNow())});
  pdu.varBinds.push_back({kSnmpTrapOid, Value::objectId(trapOid)});
  pdu.varBinds.insert(pdu.varBinds.end(), objects.begin(), objects.end());
  ++counters_.notifications;
  doSend(pdu);
  return true;
}

}  // namespace Snmp
