// Packet access: one mechanism (Konet::Pam) per interface, published in a collection by a
// manager that opens them for the desired interfaces. Linux raw sockets and a simulated wire
// implement it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/EthAddr.h"
#include "platform/IntfId.h"
#include "platform/Packet.h"
#include "platform/Record.h"

namespace Konet {

// An Ethernet header as it lies on the wire.
struct EthHdr {
  uint8_t dst[6];
  uint8_t src[6];
  uint8_t etherType[2];
};
static_assert(sizeof(EthHdr) == 14);

// Receives and sends frames on one interface. Frames waiting are offered to the watchers one
// readableCount step at a time; a watcher takes the frame of its step with rxPkt.
class Pam : public Platform::Entity {
#define KONET_PAM_ATTRS(X)             \
  X(Meta, intfId, Konet::IntfId, {})   \
  X(Counter, readableCount, uint64_t, {}) \
  X(Counter, txFrames, uint64_t, {})   \
  X(Counter, txErrors, uint64_t, {})   \
  X(Counter, rxFrames, uint64_t, {})   \
  X(Counter, rxKernelDrops, uint64_t, {})
  PLATFORM_RECORD(Pam, KONET_PAM_ATTRS)
 public:
  // Frames one receive pass offers at most: a flood on one port then costs the other ports
  // and the state socket at most this many frames' work before they have their turn.
  static constexpr size_t kRxFramesPerPass = 128;

  explicit Pam(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
  // The frame of the current readableCount step, or null when there is none.
  virtual Platform::PacketPtr rxPkt() = 0;
  // Sends without blocking; a frame that cannot be sent is counted in txErrors.
  virtual void txPkt(Platform::PacketPtr pkt) = 0;
  // Frames dropped because nobody took them when they were offered.
  uint64_t rxUnread() const { return rxUnread_; }

 protected:
  // Whether a frame waits to be offered, and dropping it untaken (for rxPassRun; a mechanism
  // that notifies otherwise needs neither).
  virtual bool rxWaiting() { return false; }
  virtual void rxSkip() {}
  // An implementation's rxPkt calls this whether or not it has a frame to give.
  void rxTakenInc() { ++rxTaken_; }

  // Offers up to kRxFramesPerPass waiting frames; a frame nobody took in its step is dropped,
  // so that a port without a reader drains. True when frames are left for a later pass.
  bool rxPassRun() {
    for (size_t n = 0; n < kRxFramesPerPass; ++n) {
      if (!rxWaiting()) return false;
      const uint64_t taken = rxTaken_;
      if (hasWatchers()) readableCountInc();
      if (rxTaken_ != taken) continue;
      rxSkip();
      ++rxUnread_;
    }
    return rxWaiting();
  }

 private:
  uint64_t rxTaken_ = 0;
  uint64_t rxUnread_ = 0;
};

}  // namespace Konet

namespace Interface {

// The interfaces on which packet access is wanted.
class PamDesiredIntfDir : public Platform::Entity {
#define INTF_PAM_DESIRED_ATTRS(X)     \
  X(Meta, name, std::string, {})      \
  X(Coll, intfDesired, Konet::IntfId, bool)
  PLATFORM_RECORD(PamDesiredIntfDir, INTF_PAM_DESIRED_ATTRS)
 public:
  explicit PamDesiredIntfDir(std::string name = {}) : name_(std::move(name)) {}
};

// What the kernel knows of an interface: its device name, index and address.
struct DeviceIntf {
  std::string deviceName;
  int32_t ifIndex = 0;
  Konet::EthAddr addr;
  bool operator==(const DeviceIntf&) const = default;
};

class DeviceIntfStatusDir : public Platform::Entity {
#define INTF_DEVICE_STATUS_ATTRS(X)   \
  X(Meta, name, std::string, {})      \
  X(Coll, deviceIntf, Konet::IntfId, DeviceIntf)
  PLATFORM_RECORD(DeviceIntfStatusDir, INTF_DEVICE_STATUS_ATTRS)
 public:
  explicit DeviceIntfStatusDir(std::string name = {}) : name_(std::move(name)) {}
};

class EthDevPamCollection : public Platform::Entity {
#define INTF_PAM_COLLECTION_ATTRS(X) \
  X(Meta, name, std::string, {})     \
  X(Coll, intfPam, Konet::IntfId, ::Platform::Ptr<::Konet::Pam>)
  PLATFORM_RECORD(EthDevPamCollection, INTF_PAM_COLLECTION_ATTRS)
 public:
  explicit EthDevPamCollection(std::string name = {}) : name_(std::move(name)) {}
};

// One instruction of a classic socket filter program.
struct FilterInstruction {
  uint16_t code;
  uint8_t jt;
  uint8_t jf;
  uint32_t k;
};

// Opens a Pam for every desired interface that the device directory knows, while enabled.
class EthDevPamManager {
 public:
  virtual ~EthDevPamManager() = default;

  int ethProtocol() const { return ethProtocol_; }
  void ethProtocolIs(int protocol) { ethProtocol_ = protocol; }
  bool separateDot1QHdr() const { return separateDot1QHdr_; }
  void separateDot1QHdrIs(bool separate) { separateDot1QHdr_ = separate; }
  const Konet::EthAddr& listenAddr() const { return listenAddr_; }
  void listenAddrIs(const Konet::EthAddr& addr) { listenAddr_ = addr; }
  const std::vector<FilterInstruction>& filterProgram() const { return filterProgram_; }
  void filterProgramIs(std::vector<FilterInstruction> program) { filterProgram_ = std::move(program); }
  size_t maxRxPktData() const { return maxRxPktData_; }
  void maxRxPktDataIs(size_t bytes) { maxRxPktData_ = bytes; }
  int sockPrio() const { return sockPrio_; }
  void sockPrioIs(int prio) { sockPrio_ = prio; }

  bool enabled() const { return enabled_; }
  // Enabling opens the mechanisms of the desired interfaces; disabling closes them and removes
  // them from the collection.
  void enabledIs(bool enabled) {
    if (enabled == enabled_) return;
    enabled_ = enabled;
    handleEnabled();
  }

 protected:
  virtual void handleEnabled() = 0;

 private:
  int ethProtocol_ = 0;
  bool separateDot1QHdr_ = false;
  Konet::EthAddr listenAddr_;
  std::vector<FilterInstruction> filterProgram_;
  size_t maxRxPktData_ = 1518;
  int sockPrio_ = 0;
  bool enabled_ = false;
};

}  // namespace Interface
