#include "lzhuf/bit_io.h"

namespace tk::lzhuf_detail {

size_t ReadFull(LzhufSource& source, uint8_t* buffer, size_t capacity) {
  size_t total = 0;
  while (total < capacity) {
    const size_t got = source.Read(buffer + total, capacity - total);
    if (got == 0) break;
    total += got;
  }
  return total;
}

}  // namespace tk::lzhuf_detail
