// What the receive fuzzers share: a port with its records, frame delivery, and the checks that
// trap (so libFuzzer keeps the input) when the remote-system table breaks its invariants.
#pragma once

#include <cstdint>
#include <cstdio>
#include <type_traits>
#include <vector>

#include "codec/LldpProtocol.h"
#include "platform/Log.h"
#include "platform/Trace.h"

// A broken invariant is a finding: name it, then stop where a debugger would want to be.
#define FUZZ_CHECK(cond)                                                                   \
  do {                                                                                     \
    if (!(cond)) {                                                                         \
      std::fprintf(stderr, "fuzz check failed: %s (%s:%d)\n", #cond, __FILE__, __LINE__); \
      __builtin_trap();                                                                    \
    }                                                                                      \
  } while (0)

namespace Fuzz {

// Trace lines are composed (that is what the traced run exercises) but go nowhere.
inline void quietSinks() {
  Platform::traceSinkIs([](const Platform::TraceFacility&, int, std::string_view) {});
  Platform::logSinkIs([](const Platform::LogRecord&) {});
}

inline void tracingIs(bool on) { Platform::traceLevelsIs(on ? "*/9" : "*/-1"); }

struct Port {
  explicit Port(uint32_t maxRemoteSystems) {
    config = Platform::make<Lldp::Config>();
    portConfig = config->portConfigIs("Ethernet1");
    portConfig->maxRemoteSystemsIs(maxRemoteSystems);
    status = Platform::make<Lldp::Status>("fuzz");
    portStatus = status->portStatusIs("Ethernet1", 0.0);
  }

  // The receive buffer's zeroed slack sits behind the frame, as packet buffers provide it.
  Lldp::RemoteSystem::PtrConst receive(const uint8_t* data, size_t size, double now,
                                       const Konet::EthAddr& sourceMac = {0, 1, 2, 3, 4, 5}) {
    buffer_.assign(data, data + size);
    buffer_.resize(size + Lldp::kRxSlack, 0);
    return Lldp::processRxLldpdu(buffer_.data(), buffer_.data() + size, *portConfig, *status,
                                 *portStatus, sourceMac, now);
  }

  // Makes the next frame of every neighbour take the full parse.
  void forgetLastFrames() {
    for (const auto& [index, rs] : portStatus->remoteSystem()) rs->lastFrame().reusable = false;
  }

  // Deletes the neighbours whose time is up and counts them, as the port's ageing pass does.
  void age(double now) {
    std::vector<int32_t> expired;
    for (const auto& [index, rs] : portStatus->remoteSystem()) {
      if (now >= rs->expiryTime()) expired.push_back(index);
    }
    for (int32_t index : expired) {
      const Lldp::RemoteSystem::Ptr rs = portStatus->remoteSystem(index);
      portStatus->remoteSystemByMsapDel(rs->msap());
      portStatus->remoteSystemDel(index);
      portStatus->rxAgeoutsTotalInc(1);
      status->remTablesAgeoutsInc(1);
      status->remTablesDeletesInc(1);
      status->remTablesLastChangeTimeIs(now);
    }
  }

  Lldp::Config::Ptr config;
  Lldp::PortConfig::Ptr portConfig;
  Lldp::Status::Ptr status;
  Lldp::PortStatus::Ptr portStatus;

 private:
  std::vector<uint8_t> buffer_;
};

// Both tables hold the same records under consistent keys, within the port's limit.
inline void checkTable(const Port& port) {
  const Lldp::PortStatus& ps = *port.portStatus;
  FUZZ_CHECK(ps.remoteSystems() == ps.remoteSystemByMsaps());
  FUZZ_CHECK(ps.remoteSystems() <= port.portConfig->maxRemoteSystems());
  for (const auto& [index, rs] : ps.remoteSystem()) {
    FUZZ_CHECK(rs && rs->index() == index && index >= 1);
    FUZZ_CHECK(ps.remoteSystemByMsap(rs->msap()) == rs);
  }
  for (const auto& [msap, rs] : ps.remoteSystemByMsap()) {
    FUZZ_CHECK(rs && rs->msap() == msap);
    FUZZ_CHECK(ps.remoteSystem(rs->index()) == rs);
  }
}

// Every numeric attribute (counters, times, sequence numbers) of a record, in order.
template <class R>
std::vector<double> numbersOf(const R& record) {
  std::vector<double> out;
  record.visitAttrs([&out](Platform::AttrKind, const char*, const auto& member) {
    if constexpr (std::is_arithmetic_v<std::decay_t<decltype(member)>>) {
      out.push_back(static_cast<double>(member));
    }
  });
  return out;
}

struct NoTrace {
  template <class A, class B>
  void attrChanged(const char*, const A&, const B&) {}
  template <class K>
  void memberDeleted(const char*, const K&) {}
  template <class K>
  void memberUpdated(const char*, const K&) {}
};

// Same identity, bookkeeping and advertised content. The content is compared by carrying a
// onto a blank record and asking whether carrying b over it would change anything.
inline bool sameNeighbour(const Lldp::RemoteSystem& a, const Lldp::RemoteSystem& b) {
  if (!(a.msap() == b.msap()) || !(a.ethAddr() == b.ethAddr()) || numbersOf(a) != numbersOf(b)) {
    return false;
  }
  NoTrace quiet;
  const auto blank = Platform::make<Lldp::RemoteSystem>(1, Lldp::Msap{});
  blank->copyChangedFrom(a, quiet);
  return !blank->copyChangedFrom(b, quiet);
}

// Two ports fed the same frames at the same times, one allowed the unchanged-refresh shortcut
// and one not, must not be told apart.
inline void checkSamePorts(const Port& fast, const Port& full) {
  FUZZ_CHECK(numbersOf(*fast.status) == numbersOf(*full.status));
  FUZZ_CHECK(numbersOf(*fast.portStatus) == numbersOf(*full.portStatus));
  FUZZ_CHECK(fast.portStatus->remoteSystems() == full.portStatus->remoteSystems());
  for (const auto& [index, rs] : fast.portStatus->remoteSystem()) {
    const Lldp::RemoteSystem::Ptr other = full.portStatus->remoteSystem(index);
    FUZZ_CHECK(other && sameNeighbour(*rs, *other));
  }
}

}  // namespace Fuzz
