// Walking a TPACKET_V3 ring: block status handshakes with the kernel, frame bounds checked
// against the block so that a corrupt offset never leads outside it.
#include "linux/RxRing.h"

#include <linux/if_packet.h>

#include <algorithm>
#include <cstring>

namespace Linux::PacketSocket {
namespace {

tpacket_block_desc* blockAt(uint8_t* ring, const RingGeometry& geometry, size_t block) {
  return reinterpret_cast<tpacket_block_desc*>(ring + block * geometry.blockSize);
}

uint32_t blockStatus(const tpacket_block_desc* block) {
  // Acquire: the frames the kernel wrote before handing the block over are visible.
  return __atomic_load_n(&block->hdr.bh1.block_status, __ATOMIC_ACQUIRE);
}

const tpacket3_hdr* frameHdr(const uint8_t* frame) { return reinterpret_cast<const tpacket3_hdr*>(frame); }

const sockaddr_ll* frameAddr(const uint8_t* frame) {
  return reinterpret_cast<const sockaddr_ll*>(frame + TPACKET_ALIGN(sizeof(tpacket3_hdr)));
}

bool frameFits(const uint8_t* frame, const uint8_t* blockEnd) {
  const tpacket3_hdr* hdr = frameHdr(frame);
  return frame + TPACKET3_HDRLEN <= blockEnd && frame + hdr->tp_mac + hdr->tp_snaplen <= blockEnd;
}

}  // namespace

bool RxRing::waiting() {
  if (!map) return false;
  for (size_t tries = 0; tries <= geometry.blockCount; ++tries) {
    while (framesLeft > 0) {
      if (frameAddr(frame)->sll_pkttype != PACKET_OUTGOING) return true;
      frameNext();
    }
    if (blockHeld) blockRelease();
    tpacket_block_desc* desc = blockAt(map, geometry, block);
    const uint32_t status = blockStatus(desc);
    if (!(status & TP_STATUS_USER)) return false;
    blockHeld = true;
    lastSeq = desc->hdr.bh1.seq_num;
    if (status & TP_STATUS_LOSING) lossSeen = true;
    const size_t half = (block + geometry.blockCount / 2) % geometry.blockCount;
    if (blockStatus(blockAt(map, geometry, half)) & TP_STATUS_USER) halfFull = true;
    const uint32_t first = desc->hdr.bh1.offset_to_first_pkt;
    framesLeft = first < geometry.blockSize ? desc->hdr.bh1.num_pkts : 0;
    frame = reinterpret_cast<uint8_t*>(desc) + first;
    const uint8_t* blockEnd = reinterpret_cast<const uint8_t*>(desc) + geometry.blockSize;
    if (framesLeft > 0 && !frameFits(frame, blockEnd)) framesLeft = 0;
  }
  return false;
}

uint32_t RxRing::framesFilling() const {
  const tpacket_block_desc* desc = blockAt(map, geometry, block);
  if (blockStatus(desc) & TP_STATUS_USER) return 0;
  // A block the kernel has not begun again still holds its count from the round before.
  if (__atomic_load_n(&desc->hdr.bh1.seq_num, __ATOMIC_RELAXED) != lastSeq + 1) return 0;
  return __atomic_load_n(&desc->hdr.bh1.num_pkts, __ATOMIC_RELAXED);
}

uint64_t RxRing::framesHeld() const {
  uint64_t held = framesLeft;
  for (size_t b = 0; b < geometry.blockCount; ++b) {
    if (blockHeld && b == block) continue;
    const tpacket_block_desc* desc = blockAt(map, geometry, b);
    if (blockStatus(desc) & TP_STATUS_USER) held += desc->hdr.bh1.num_pkts;
  }
  return held;
}

void RxRing::frameNext() {
  const uint32_t next = frameHdr(frame)->tp_next_offset;
  --framesLeft;
  frame += next;
  // A frame that would leave the block ends it: the kernel never writes one.
  const uint8_t* blockEnd = reinterpret_cast<const uint8_t*>(blockAt(map, geometry, block)) + geometry.blockSize;
  if (framesLeft > 0 && (next == 0 || !frameFits(frame, blockEnd))) framesLeft = 0;
}

void RxRing::blockRelease() {
  // Every block ours: the kernel had nowhere to put frames and may have dropped some.
  bool full = true;
  for (size_t b = 0; b < geometry.blockCount && full; ++b) {
    full = blockStatus(blockAt(map, geometry, b)) & TP_STATUS_USER;
  }
  if (full) lossSeen = true;
  __atomic_store_n(&blockAt(map, geometry, block)->hdr.bh1.block_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
  blockHeld = false;
  framesLeft = 0;
  block = (block + 1) % geometry.blockCount;
}

int RxRing::frameIfIndex() const { return frameAddr(frame)->sll_ifindex; }

Platform::PacketPtr RxRing::framePacket(size_t maxData, bool separateDot1QHdr) const {
  Platform::PacketPtr pkt = Platform::PacketPool::instance().alloc();
  if (!pkt) return nullptr;
  const tpacket3_hdr* hdr = frameHdr(frame);
  const size_t n = std::min<size_t>({hdr->tp_snaplen, maxData, pkt->maxSharedData()});
  pkt->receivedIs(n);
  std::memcpy(pkt->data(), frame + hdr->tp_mac, n);
  if (separateDot1QHdr && (hdr->tp_status & TP_STATUS_VLAN_VALID)) {
    const uint16_t tpid = (hdr->tp_status & TP_STATUS_VLAN_TPID_VALID) ? hdr->hv1.tp_vlan_tpid : 0x8100;
    pkt->dot1QHdrIs(Platform::Packet::Dot1QTag{tpid, static_cast<uint16_t>(hdr->hv1.tp_vlan_tci)});
  }
  return pkt;
}

}  // namespace Linux::PacketSocket
