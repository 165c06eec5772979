#include "lzhuf/match_tree.h"

namespace tk::lzhuf_detail {

void InitTrees(LzhufCodec& codec) {
  for (int i = kFirstRoot; i <= kN + 256; ++i) codec.right[i] = kNil;
  for (int i = 0; i < kN; ++i) codec.parent[i] = kNil;
}

}  // namespace tk::lzhuf_detail
