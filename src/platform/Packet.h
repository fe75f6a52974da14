// Packet buffers from a fixed pool: head room for headers to prepend, tail room given back
// after building, a separately delivered 802.1Q tag, and allocation that can fail.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace Platform {

class PacketPool;

class Packet {
 public:
  struct Dot1QTag {
    uint16_t tpid = 0x8100;
    uint16_t tci = 0;  // priority, DEI and the VLAN id in the low 12 bits
    uint16_t vlanId() const { return tci & 0x0fff; }
  };

  uint8_t* data() { return buffer_ + head_; }
  const uint8_t* data() const { return buffer_ + head_; }
  size_t bytes() const { return tail_ - head_; }
  // Room for frame data from the start of the data area, not counting head room.
  size_t maxSharedData() const { return capacity_ - kHeadRoom; }

  // Grows the packet by n bytes at the front; returns the new start.
  uint8_t* prepend(size_t n);
  // Grows the packet by n bytes at the end; returns where they start.
  uint8_t* append(size_t n);
  // Shrinks from the front without copying (strip a header).
  void stripHead(size_t n);
  // Shrinks from the end (give back what a builder did not use).
  void trimTail(size_t n);
  // Sets the length of a freshly received frame; zeroes the slack after it.
  void receivedIs(size_t n);
  void clear();

  const std::optional<Dot1QTag>& dot1QHdr() const { return dot1QHdr_; }
  void dot1QHdrIs(std::optional<Dot1QTag> tag) { dot1QHdr_ = tag; }

  // Head room reserved in front of the data area.
  static constexpr size_t kHeadRoom = 64;
  // Zeroed bytes kept readable after every frame.
  static constexpr size_t kSlack = 16;

 private:
  friend class PacketPool;
  friend struct PacketRelease;
  Packet(uint8_t* buffer, size_t capacity) : buffer_(buffer), capacity_(capacity) { clear(); }
  PacketPool* pool_ = nullptr;
  uint8_t* buffer_;
  size_t capacity_;  // head room + data, slack not included
  size_t head_ = 0;
  size_t tail_ = 0;
  std::optional<Dot1QTag> dot1QHdr_;
};

struct PacketRelease {
  void operator()(Packet* p) const;
};
using PacketPtr = std::unique_ptr<Packet, PacketRelease>;

// A process-wide pool of equal packets. alloc() fails (null) when every packet is in use.
class PacketPool {
 public:
  PacketPool(size_t perPacketDataSize, size_t count);
  PacketPool(const PacketPool&) = delete;
  PacketPool& operator=(const PacketPool&) = delete;
  ~PacketPool();

  static PacketPool& instance();
  // Rebuilds the process-wide pool (only while no packet of it is out).
  static void instanceIs(size_t perPacketDataSize, size_t count);

  PacketPtr alloc();
  size_t available() const { return free_.size(); }
  size_t perPacketDataSize() const { return dataSize_; }

 private:
  friend struct PacketRelease;
  void release(Packet* p);
  size_t dataSize_;
  std::vector<uint8_t> storage_;
  std::vector<std::unique_ptr<Packet>> packets_;
  std::vector<Packet*> free_;
};

}  // namespace Platform
