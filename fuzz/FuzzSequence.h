// The sequence fuzzer's input format, shared by the fuzzer and the seed writer: a run of frames,
// each behind a control byte and a two-byte big-endian length.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Fuzz {

// Control byte: bits 0-1 choose the sender (0 keeps the frame's own Chassis ID, 1 to 3 put one
// of three fixed ones in its place), bits 2-3 the clock step before the frame (0, 1, 30 or 200
// seconds: the last outlives the usual TTLs), bits 4-6 all set trace the frame, bit 7 delivers
// it twice. Few senders and a table of two make refreshes and a full table common.
struct SeqFrame {
  uint8_t control = 0;
  const uint8_t* data = nullptr;
  size_t size = 0;

  int sender() const { return control & 3; }
  double step() const {
    static constexpr double kSteps[] = {0, 1, 30, 200};
    return kSteps[control >> 2 & 3];
  }
  bool traced() const { return (control >> 4 & 7) == 7; }
  bool twice() const { return control & 0x80; }
};

inline constexpr size_t kSeqHeader = 3;
inline constexpr size_t kSeqMaxFrame = 1500;

inline uint8_t seqControl(int sender, int step, bool traced = false, bool twice = false) {
  return static_cast<uint8_t>((sender & 3) | (step & 3) << 2 | (traced ? 0x70 : 0) |
                              (twice ? 0x80 : 0));
}

// Splits an input; a length past the end takes what is left, so every input means something.
inline std::vector<SeqFrame> seqFrames(const uint8_t* data, size_t size) {
  std::vector<SeqFrame> frames;
  while (size >= kSeqHeader) {
    SeqFrame f;
    f.control = data[0];
    const size_t want = static_cast<size_t>(data[1]) << 8 | data[2];
    data += kSeqHeader;
    size -= kSeqHeader;
    f.size = std::min({want, size, kSeqMaxFrame});
    f.data = data;
    data += f.size;
    size -= f.size;
    frames.push_back(f);
  }
  return frames;
}

inline void seqAppend(std::vector<uint8_t>& out, uint8_t control,
                      const std::vector<uint8_t>& frame) {
  out.push_back(control);
  out.push_back(static_cast<uint8_t>(frame.size() >> 8));
  out.push_back(static_cast<uint8_t>(frame.size()));
  out.insert(out.end(), frame.begin(), frame.end());
}

// The frame with its leading Chassis ID TLV replaced by the sender's MAC chassis id; frames
// that do not start with a whole Chassis ID TLV are left as they are.
inline void seqRewriteChassis(int sender, const uint8_t* data, size_t size,
                              std::vector<uint8_t>& out) {
  out.assign(data, data + size);
  if (sender == 0 || size < 2 || data[0] >> 1 != 1) return;
  const size_t tlvSize = 2 + ((static_cast<size_t>(data[0]) & 1) << 8 | data[1]);
  if (tlvSize > size) return;
  const uint8_t chassis[] = {0x02, 0x07, 0x04, 0x00, 0x1c, 0x73,
                             0x00, 0x00, static_cast<uint8_t>(sender)};
  out.assign(chassis, chassis + sizeof chassis);
  out.insert(out.end(), data + tlvSize, data + size);
}

}  // namespace Fuzz
