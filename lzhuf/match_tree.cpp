#include "lzhuf/match_tree.h"

namespace tk::lzhuf_detail {

void InitTrees(LzhufCodec& codec) {
  for (auto& links : codec.children) links[0] = links[1] = kNil;
  for (int i = 0; i <= kN; ++i) codec.parent[i] = kNil;
}

}  // namespace tk::lzhuf_detail
