// Simulated packet access: mechanisms joined by an in-memory wire, delivering on the scheduler,
// so engines (or an engine and a test peer) exchange frames in virtual time.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/PamManager.h"

namespace Platform {

class SimWire;

class SimPam : public Konet::Pam {
 public:
  SimPam(Konet::IntfId intfId, std::string endpoint, SimWire& wire, bool separateDot1QHdr);
  ~SimPam() override;

  PacketPtr rxPkt() override;
  void txPkt(PacketPtr pkt) override;

  // A frame arrives from the wire and is offered at once; like a socket, a port whose frames
  // nobody takes drops them, and a backlog is offered in bounded passes, each posted after
  // what the scheduler already has to do.
  void deliver(const std::vector<uint8_t>& frame, size_t copies = 1);
  const std::string& endpoint() const { return endpoint_; }
  size_t queued() const { return queue_.size(); }
  // Frames the port holds at most, like a kernel's receive buffer: more are dropped and
  // counted in rxKernelDrops.
  void queueLimitIs(size_t frames) { queueLimit_ = frames; }
  // Receive passes run so far (a test sees a flood being spread over several).
  uint64_t rxPasses() const { return rxPasses_; }

 protected:
  bool rxWaiting() override { return !queue_.empty(); }
  void rxSkip() override { queue_.pop_front(); }

 private:
  void rxPassRunNow();

  std::string endpoint_;
  SimWire& wire_;
  bool passPosted_ = false;
  uint64_t rxPasses_ = 0;
  size_t queueLimit_ = SIZE_MAX;
  // Posted passes hold it: a mechanism removed meanwhile is not touched.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  bool separateDot1QHdr_;
  std::deque<std::vector<uint8_t>> queue_;
};

// Endpoints are named "node:interface". Linked endpoints hear each other; a test can also
// inject frames at an endpoint and read what each endpoint sent.
class SimWire {
 public:
  struct Sent {
    double time;
    std::string from;
    std::vector<uint8_t> frame;
  };

  explicit SimWire(Scheduler& scheduler) : scheduler_(scheduler) {}

  void link(const std::string& a, const std::string& b);
  void unlink(const std::string& endpoint);
  void inject(const std::string& endpoint, const std::vector<uint8_t>& frame);
  // Copies of a frame that arrive all at once, as a flood finds a socket after a pause.
  void injectBurst(const std::string& endpoint, const std::vector<uint8_t>& frame, size_t copies);
  void recordIs(bool record) { record_ = record; }
  const std::vector<Sent>& sent() const { return sent_; }
  std::vector<Sent> sentBy(const std::string& endpoint) const;
  void sentClear() { sent_.clear(); }

 private:
  friend class SimPam;
  void attach(SimPam* pam) { pams_[pam->endpoint()] = pam; }
  void detach(SimPam* pam);
  void transmit(const SimPam& from, const std::vector<uint8_t>& frame);
  Scheduler& scheduler() const { return scheduler_; }

  Scheduler& scheduler_;
  std::map<std::string, std::string> peers_;
  std::map<std::string, SimPam*> pams_;
  std::vector<Sent> sent_;
  bool record_ = true;
};

// Opens a SimPam named node:interface for each desired interface.
class SimPamManager : public Interface::PamManagerBase {
 public:
  SimPamManager(Ptr<Interface::PamDesiredIntfDir> desired, Ptr<Interface::EthDevPamCollection> pams,
                Ptr<Interface::DeviceIntfStatusDir> devices, Scheduler& scheduler, SimWire& wire,
                std::string node)
      : PamManagerBase(std::move(desired), std::move(pams), std::move(devices), scheduler),
        wire_(wire), node_(std::move(node)) {}

 protected:
  Ptr<Konet::Pam> openPam(const Konet::IntfId& intfId, const Interface::DeviceIntf& device,
                          std::string& error) override;

 private:
  SimWire& wire_;
  std::string node_;
};

}  // namespace Platform
