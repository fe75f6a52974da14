// Packet access on Linux: an AF_PACKET raw socket per interface, optionally opened inside a
// named network namespace.
#pragma once

#include <memory>
#include <string>

#include "platform/PamManager.h"

namespace Linux {

class RawSocketPam : public Konet::Pam {
 public:
  // Opens and configures the socket as the manager says, bound to the device's index (looked up
  // by name when ifIndex is 0); null with error set on failure.
  static Platform::Ptr<RawSocketPam> open(const Konet::IntfId& intfId, const std::string& device,
                                          int32_t ifIndex, const Interface::EthDevPamManager& config,
                                          Platform::Scheduler& scheduler, const std::string& netNs,
                                          std::string& error);
  ~RawSocketPam() override;

  Platform::PacketPtr rxPkt() override;
  void txPkt(Platform::PacketPtr pkt) override;
  int fd() const { return fd_; }
  // Reads and drops the next frame.
  void discardOne();
  // Frames dropped because nobody took them when they arrived.
  uint64_t rxUnread() const { return rxUnread_; }
  // Failed waits for frames (each is logged and the wait retried after a pause).
  uint64_t rxWaitErrors() const { return rxWaitErrors_; }

  // Frames a readable notification drops at most when nobody reads, so that a flood on a
  // port without a reader cannot keep the event thread to itself.
  static constexpr int kMaxUnreadDrain = 64;
  static constexpr double kRewatchDelay = 5.0;

 private:
  RawSocketPam(Konet::IntfId intfId, int fd, Platform::Scheduler& scheduler);
  void watchIs();
  void handleReadable();
  void handleWaitError(std::error_code error);

  int fd_;
  Platform::Scheduler& scheduler_;
  std::unique_ptr<Platform::FdWatch> watch_;
  Platform::Clock rewatchClock_;
  uint64_t rxTaken_ = 0;  // calls of rxPkt: a reader took its frame
  uint64_t rxUnread_ = 0;
  uint64_t rxWaitErrors_ = 0;
};

// Opens raw sockets for the desired interfaces; netNs names a namespace under /var/run/netns
// to open them in (empty: the agent's own).
class RawSocketPamManager : public Interface::PamManagerBase {
 public:
  RawSocketPamManager(Platform::Ptr<Interface::PamDesiredIntfDir> desired,
                      Platform::Ptr<Interface::EthDevPamCollection> pams,
                      Platform::Ptr<Interface::DeviceIntfStatusDir> devices,
                      Platform::Scheduler& scheduler, std::string netNs = {})
      : PamManagerBase(std::move(desired), std::move(pams), std::move(devices), scheduler),
        netNs_(std::move(netNs)) {}

 protected:
  Platform::Ptr<Konet::Pam> openPam(const Konet::IntfId& intfId, const Interface::DeviceIntf& device,
                                    std::string& error) override;

 private:
  std::string netNs_;
};

}  // namespace Linux
