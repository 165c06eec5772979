#include "lzhuf/match_finder.h"

#include <algorithm>

namespace tk::lzhuf_detail {

void MatchFinder::Reset() {
  for (auto& links : child_) links[0] = links[1] = kNilId;
  std::fill(std::begin(parent_), std::end(parent_), static_cast<int16_t>(kNilId));
  oldest_ = newest_ = 0;
  hint_ = kNilId;
  std::fill(std::begin(owned_), std::end(owned_), 0);
  std::fill(std::begin(work_), std::end(work_), 0);
}

void MatchFinder::SetOwnership(const uint8_t* owner, int self) {
  for (int b = 0; b < 256; ++b) owned_[b] = owner[b] == self;
}

void MatchFinder::InsertPresets(const Key* keys) {
  // Numbers go in the order of the positions, so that the nodes leave in that order;
  // the insertions go from the last position to the first.
  int id[kPresets];
  for (int j = 0; j < kPresets; ++j) {
    id[j] = Owns(keys[j].first) ? static_cast<int>(newest_++ & kIdMask) : kNilId;
  }
  for (int j = kPresets - 1; j >= 0; --j) {
    hint_ = kNilId;
    if (id[j] != kNilId) InsertAs(id[j], static_cast<uint32_t>(j), keys[j]);
  }
  hint_ = kNilId;
}

void MatchFinder::ExpireAll(uint32_t v) {
  while (Expired(v)) {
    DeleteNode(static_cast<int>(oldest_ & kIdMask));
    ++oldest_;
  }
}

namespace {

// Where the node of each live position is: finder and node number, -1 for none.
struct NodeAt {
  int8_t finder;
  int16_t id;
};

}  // namespace

void MatchFinder::Repartition(MatchFinder* const* from, MatchFinder* const* to, int count,
                              const uint8_t* owner, uint32_t v) {
  // The live positions are the last kNodeLife - 1 before v: distinct modulo kN.
  NodeAt at[kN];
  for (auto& node : at) node.finder = -1;
  for (int w = 0; w < count; ++w) {
    const MatchFinder& f = *from[w];
    for (uint32_t n = f.oldest_; n != f.newest_; ++n) {
      const int id = static_cast<int>(n & kIdMask);
      if (f.parent_[id] != kNilId)
        at[f.pos_[id] & kRingMask] = {static_cast<int8_t>(w), static_cast<int16_t>(id)};
    }
  }
  for (int w = 0; w < count; ++w) {
    to[w]->Reset();
    to[w]->SetOwnership(owner, w);
  }
  // New numbers in the order of the positions, with keys and positions copied.
  for (uint32_t p = v - (kNodeLife - 1); p != v; ++p) {
    const NodeAt node = at[p & kRingMask];
    if (node.finder < 0) continue;
    MatchFinder& src = *from[node.finder];
    MatchFinder& dst = *to[owner[src.first_[node.id]]];
    const int id = static_cast<int>(dst.newest_++);
    src.renumbered_[node.id] = static_cast<int16_t>(id);
    dst.pos_[id] = src.pos_[node.id];
    dst.head_[id] = src.head_[node.id];
    dst.first_[id] = src.first_[node.id];
    dst.last_[id] = src.last_[node.id];
  }
  // Links, renumbered; NIL and the roots keep their entries.
  auto renumber = [](const MatchFinder& src, int link) {
    return link < kIds ? src.renumbered_[link] : static_cast<int16_t>(link);
  };
  for (uint32_t p = v - (kNodeLife - 1); p != v; ++p) {
    const NodeAt node = at[p & kRingMask];
    if (node.finder < 0) continue;
    const MatchFinder& src = *from[node.finder];
    MatchFinder& dst = *to[owner[src.first_[node.id]]];
    const int id = src.renumbered_[node.id];
    dst.child_[id][0] = renumber(src, src.child_[node.id][0]);
    dst.child_[id][1] = renumber(src, src.child_[node.id][1]);
    dst.parent_[id] = renumber(src, src.parent_[node.id]);
  }
  for (int b = 0; b < 256; ++b) {
    const int root = kFirstRootId + b;
    for (int w = 0; w < count; ++w) {
      if (from[w]->Owns(b))
        to[owner[b]]->child_[root][1] = renumber(*from[w], from[w]->child_[root][1]);
    }
  }
}

}  // namespace tk::lzhuf_detail
