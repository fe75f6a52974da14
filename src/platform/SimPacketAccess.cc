// The simulated wire and its mechanisms.
#include "platform/SimPacketAccess.h"

#include <algorithm>
#include <cstring>

namespace Platform {

SimPam::SimPam(Konet::IntfId intfId, std::string endpoint, SimWire& wire, bool separateDot1QHdr)
    : Pam(std::move(intfId)), endpoint_(std::move(endpoint)), wire_(wire),
      separateDot1QHdr_(separateDot1QHdr) {
  wire_.attach(this);
}

SimPam::~SimPam() {
  *alive_ = false;
  wire_.detach(this);
}

PacketPtr SimPam::rxPkt() {
  rxTakenInc();
  if (queue_.empty()) return nullptr;
  std::vector<uint8_t> frame = std::move(queue_.front());
  queue_.pop_front();
  PacketPtr pkt = PacketPool::instance().alloc();
  if (!pkt) return nullptr;  // no buffer: the frame is lost, as on a socket
  // Like the kernel with auxiliary data: the first 802.1Q tag comes out of the frame.
  if (separateDot1QHdr_ && frame.size() >= 18 && frame[12] == 0x81 && frame[13] == 0x00) {
    pkt->dot1QHdrIs(Packet::Dot1QTag{0x8100, static_cast<uint16_t>(frame[14] << 8 | frame[15])});
    frame.erase(frame.begin() + 12, frame.begin() + 16);
  }
  const size_t n = std::min(frame.size(), pkt->maxSharedData());
  pkt->receivedIs(n);
  std::memcpy(pkt->data(), frame.data(), n);
  rxFramesInc();
  return pkt;
}

void SimPam::txPkt(PacketPtr pkt) {
  txFramesInc();
  wire_.transmit(*this, std::vector<uint8_t>(pkt->data(), pkt->data() + pkt->bytes()));
}

void SimPam::deliver(const std::vector<uint8_t>& frame, size_t copies) {
  const size_t room = queueLimit_ - std::min(queueLimit_, queue_.size());
  for (size_t i = 0; i < std::min(copies, room); ++i) queue_.push_back(frame);
  if (copies > room) rxKernelDropsInc(copies - room);
  if (!passPosted_) rxPassRunNow();
}

void SimPam::rxPassRunNow() {
  const Platform::Ptr<SimPam> self(this);  // a reader may remove the port during the pass
  ++rxPasses_;
  if (!rxPassRun() || !*alive_ || passPosted_) return;
  passPosted_ = true;
  wire_.scheduler().post([this, alive = alive_] {
    if (!*alive) return;
    passPosted_ = false;
    rxPassRunNow();
  });
}

void SimWire::link(const std::string& a, const std::string& b) {
  peers_[a] = b;
  peers_[b] = a;
}

void SimWire::unlink(const std::string& endpoint) {
  if (auto it = peers_.find(endpoint); it != peers_.end()) {
    peers_.erase(it->second);
    peers_.erase(it);
  }
}

void SimWire::inject(const std::string& endpoint, const std::vector<uint8_t>& frame) {
  scheduler_.post([this, endpoint, frame] {
    if (auto it = pams_.find(endpoint); it != pams_.end()) it->second->deliver(frame);
  });
}

void SimWire::injectBurst(const std::string& endpoint, const std::vector<uint8_t>& frame, size_t copies) {
  scheduler_.post([this, endpoint, frame, copies] {
    if (auto it = pams_.find(endpoint); it != pams_.end()) it->second->deliver(frame, copies);
  });
}

std::vector<SimWire::Sent> SimWire::sentBy(const std::string& endpoint) const {
  std::vector<Sent> out;
  for (const Sent& s : sent_) {
    if (s.from == endpoint) out.push_back(s);
  }
  return out;
}

void SimWire::detach(SimPam* pam) {
  if (auto it = pams_.find(pam->endpoint()); it != pams_.end() && it->second == pam) pams_.erase(it);
}

void SimWire::transmit(const SimPam& from, const std::vector<uint8_t>& frame) {
  if (record_) sent_.push_back({scheduler_.now(), from.endpoint(), frame});
  if (auto peer = peers_.find(from.endpoint()); peer != peers_.end()) inject(peer->second, frame);
}

Ptr<Konet::Pam> SimPamManager::openPam(const Konet::IntfId& intfId, const Interface::DeviceIntf&,
                                       std::string&) {
  return make<SimPam>(intfId, node_ + ":" + intfId.name(), wire_, separateDot1QHdr());
}

}  // namespace Platform
