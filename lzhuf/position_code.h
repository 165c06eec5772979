// The fixed prefix code of match distances (internal to lzhuf/): the upper six
// bits u of a 12-bit distance get a prefix of 3 to 8 bits, shorter for nearer
// matches; the lower six bits follow as they are. Constant tables, thread-safe.
#ifndef TAVIK_LZHUF_POSITION_CODE_H_
#define TAVIK_LZHUF_POSITION_CODE_H_

#include <cstdint>

namespace tk::lzhuf_detail {

constexpr int kPositionLowBits = 6;
constexpr int kPositionGroups = 64;

struct PositionTables {
  uint8_t prefixLength[kPositionGroups];  // bits of the prefix of group u
  uint8_t prefix[kPositionGroups];        // the prefix, left-aligned in 8 bits
  uint8_t groupOfByte[256];               // decoding: the group whose prefix heads a byte
  uint8_t lengthOfByte[256];              //   and the length of that prefix
};

// Prefix lengths: 3 bits for group 0, 4 for 1-3, 5 for 4-11, 6 for 12-23, 7 for
// 24-47 and 8 for 48-63.
constexpr int PrefixLengthOf(int group) {
  if (group < 1) return 3;
  if (group < 4) return 4;
  if (group < 12) return 5;
  if (group < 24) return 6;
  if (group < 48) return 7;
  return 8;
}

// Each group takes the next free prefix of its length, in order of the groups:
// 0x00, 0x20, 0x30, 0x40, 0x50, 0x58 ... 0xFF.
constexpr PositionTables MakePositionTables() {
  PositionTables t{};
  int next = 0;
  for (int u = 0; u < kPositionGroups; ++u) {
    const int length = PrefixLengthOf(u);
    t.prefixLength[u] = static_cast<uint8_t>(length);
    t.prefix[u] = static_cast<uint8_t>(next);
    const int span = 1 << (8 - length);
    for (int i = next; i < next + span; ++i) {
      t.groupOfByte[i] = static_cast<uint8_t>(u);
      t.lengthOfByte[i] = static_cast<uint8_t>(length);
    }
    next += span;
  }
  return t;
}

inline constexpr PositionTables kPositionTables = MakePositionTables();

static_assert(kPositionTables.prefix[4] == 0x50 && kPositionTables.prefix[11] == 0x88);
static_assert(kPositionTables.prefix[12] == 0x90 && kPositionTables.prefix[24] == 0xC0);
static_assert(kPositionTables.prefix[48] == 0xF0 && kPositionTables.prefix[63] == 0xFF);

}  // namespace tk::lzhuf_detail

#endif  // TAVIK_LZHUF_POSITION_CODE_H_
