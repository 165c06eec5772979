// The encoder's dictionary search (internal to lzhuf/): every ring position in the
// window is a node of one of 256 binary search trees, one per first byte, ordered
// by the following 9 bytes. Inserting a position finds the longest earlier match on
// the way down. Not thread-safe: works on the caller's LzhufCodec.
#ifndef TAVIK_LZHUF_MATCH_TREE_H_
#define TAVIK_LZHUF_MATCH_TREE_H_

#include "lzhuf/engine.h"

namespace tk::lzhuf_detail {

// Empties all trees: every root and every parent link becomes NIL.
void InitTrees(LzhufCodec& codec);

// Inserts ring position `r` and leaves the longest match among the nodes passed in
// codec.matchLength (0 when none reaches 3 bytes) and codec.matchPosition (distance
// - 1; nearer wins among equal lengths). A node matching all 10 bytes is replaced
// by `r` and leaves the tree; it is returned (else NIL). `hint` (or NIL) is a node
// that may match all 10 bytes, tried before the walk: after a full match of r - 1
// against q, that is q + 1.
int InsertNode(LzhufCodec& codec, int r, int hint);

// Removes position `p` from its tree; a position in no tree is ignored.
void DeleteNode(LzhufCodec& codec, int p);

}  // namespace tk::lzhuf_detail

#endif  // TAVIK_LZHUF_MATCH_TREE_H_
