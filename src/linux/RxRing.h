// A TPACKET_V3 receive ring mapped from its packet socket, and how far reading has got in it:
// blocks the kernel hands over are walked frame by frame, then given back in order.
#pragma once

#include <cstddef>
#include <cstdint>

#include "linux/PacketSocket.h"
#include "platform/Packet.h"

namespace Linux::PacketSocket {

struct RxRing {
  int fd = -1;
  uint8_t* map = nullptr;
  RingGeometry geometry{0, 0};
  size_t block = 0;
  bool blockHeld = false;  // the block being read is ours while its frames are offered
  uint32_t framesLeft = 0;
  uint8_t* frame = nullptr;
  uint64_t lastSeq = 0;  // the kernel numbers the blocks it begins from 1
  // Set while walking, cleared by whoever acts on them: the kernel may have dropped frames (a
  // block marked losing, or every block ours), and half the ring or more was waiting behind a
  // block taken (the kernel fills blocks in order).
  bool lossSeen = false;
  bool halfFull = false;

  size_t bytes() const { return map ? geometry.blockSize * geometry.blockCount : 0; }
  // Positions on the next frame the kernel handed over, skipping our own transmissions where
  // the kernel could not be told to leave them out; false when none waits.
  bool waiting();
  // Frames in the block the kernel is filling, not yet handed over.
  uint32_t framesFilling() const;
  // Frames in blocks handed over and not yet read (those of the held block included).
  uint64_t framesHeld() const;
  void frameNext();
  void blockRelease();
  // The interface the current frame arrived on.
  int frameIfIndex() const;
  // A copy of the current frame (at most maxData bytes; a VLAN tag apart when asked), or null
  // when the pool has no buffer. Does not move on.
  Platform::PacketPtr framePacket(size_t maxData, bool separateDot1QHdr) const;
};

}  // namespace Linux::PacketSocket
