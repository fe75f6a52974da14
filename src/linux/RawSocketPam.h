// Packet access on Linux: an AF_PACKET raw socket per interface, optionally opened inside a
// named network namespace.
#pragma once

#include <memory>
#include <string>

#include "platform/PamManager.h"

namespace Linux {

class RawSocketPam : public Konet::Pam {
 public:
  // Opens and configures the socket as the manager says; null with error set on failure.
  static Platform::Ptr<RawSocketPam> open(const Konet::IntfId& intfId, const std::string& device,
                                          const Interface::EthDevPamManager& config,
                                          Platform::Scheduler& scheduler, const std::string& netNs,
                                          std::string& error);
  ~RawSocketPam() override;

  Platform::PacketPtr rxPkt() override;
  void txPkt(Platform::PacketPtr pkt) override;
  int fd() const { return fd_; }
  // Reads and drops the next frame.
  void discardOne();

 private:
  RawSocketPam(Konet::IntfId intfId, int fd) : Pam(std::move(intfId)), fd_(fd) {}
  int fd_;
  std::unique_ptr<Platform::FdWatch> watch_;
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
