// Packet buffer arithmetic and the pool.
#include "platform/Packet.h"

#include <cstring>

#include "platform/Assert.h"

namespace Platform {
namespace {
PacketPool* gPool = nullptr;
std::unique_ptr<PacketPool>& ownedPool() {
  static std::unique_ptr<PacketPool> pool;
  return pool;
}
}  // namespace

uint8_t* Packet::prepend(size_t n) {
  LLDP_ASSERT(n <= head_);
  head_ -= n;
  return data();
}

uint8_t* Packet::append(size_t n) {
  LLDP_ASSERT(tail_ + n <= capacity_);
  uint8_t* at = buffer_ + tail_;
  tail_ += n;
  return at;
}

void Packet::stripHead(size_t n) {
  LLDP_ASSERT(n <= bytes());
  head_ += n;
}

void Packet::trimTail(size_t n) {
  LLDP_ASSERT(n <= bytes());
  tail_ -= n;
}

void Packet::receivedIs(size_t n) {
  head_ = kHeadRoom;
  tail_ = kHeadRoom + std::min(n, capacity_ - kHeadRoom);
  std::memset(buffer_ + tail_, 0, kSlack);
}

void Packet::clear() {
  head_ = tail_ = kHeadRoom;
  dot1QHdr_.reset();
}

PacketPool::PacketPool(size_t perPacketDataSize, size_t count) : dataSize_(perPacketDataSize) {
  const size_t stride = Packet::kHeadRoom + dataSize_ + Packet::kSlack;
  storage_.assign(stride * count, 0);
  for (size_t i = 0; i < count; ++i) {
    packets_.push_back(std::unique_ptr<Packet>(new Packet(storage_.data() + i * stride, Packet::kHeadRoom + dataSize_)));
    packets_.back()->pool_ = this;
    free_.push_back(packets_.back().get());
  }
}

PacketPool::~PacketPool() = default;

PacketPool& PacketPool::instance() {
  if (!gPool) instanceIs(10236, 256);
  return *gPool;
}

void PacketPool::instanceIs(size_t perPacketDataSize, size_t count) {
  auto& owned = ownedPool();
  if (owned && owned->perPacketDataSize() == perPacketDataSize && owned->packets_.size() == count) return;
  LLDP_ASSERT(!owned || owned->free_.size() == owned->packets_.size());
  owned = std::make_unique<PacketPool>(perPacketDataSize, count);
  gPool = owned.get();
}

PacketPtr PacketPool::alloc() {
  if (free_.empty()) return nullptr;
  Packet* p = free_.back();
  free_.pop_back();
  p->clear();
  return PacketPtr(p);
}

void PacketPool::release(Packet* p) { free_.push_back(p); }

void PacketRelease::operator()(Packet* p) const { p->pool_->release(p); }

}  // namespace Platform
