// One thread's share of the encoder's dictionary search (internal to lzhuf/): the
// search trees of some of the 256 first bytes, kept exactly as the single-threaded
// encoder keeps them, so that inserting a position yields the same match.
//
// Why this can run apart from the coder: every position is inserted exactly once,
// whatever the parse, and deleted exactly 4087 positions later, so the tree
// operations depend on the input alone; and the trees of different first bytes never
// touch one another. A finder therefore takes the positions of its own trees in order
// and records, for each, the match its insertion yields (see MatchScore in
// match_tree.h), while other finders do the same for other trees.
//
// Nodes are numbered in the order the finder inserts them (modulo kIds), not by ring
// position: the live nodes then sit side by side in memory, and they are deleted in
// the order they were numbered. Each node holds its own 10-byte key, which never
// changes while the node is in a tree (the ring bytes it stands for are overwritten
// only after it is deleted).
//
// Not thread-safe: one finder belongs to one thread at a time.
#ifndef TAVIK_LZHUF_MATCH_FINDER_H_
#define TAVIK_LZHUF_MATCH_FINDER_H_

#include <cstdint>
#include <cstring>

#include "lzhuf/match_tree.h"

namespace tk::lzhuf_detail {

// Positions as the finders count them: input byte t is position t + kPresets, the ten
// spaces inserted before the input are positions 0 to 9.
constexpr int kPresets = kF;
// The node of position v leaves its tree just before position v + kNodeLife enters.
constexpr uint32_t kNodeLife = kN - kF + 1;
// Ring position of finder position v.
inline unsigned SlotOf(uint32_t v) {
  return (static_cast<unsigned>(kStart - kPresets) + v) & kRingMask;
}

class MatchFinder {
 public:
  static constexpr int kIds = kN;  // at most 4087 nodes are ever in use
  static constexpr int kIdMask = kIds - 1;
  static constexpr int kNilId = kIds;
  static constexpr int kFirstRootId = kIds + 1;  // root of tree b: child_[kFirstRootId + b][1]
  static constexpr int kDummyId = kFirstRootId + 256;  // in no tree, ever
  // Work units charged to a tree per insertion, besides one per node visited.
  static constexpr uint32_t kInsertionWork = 3;

  // Empties every tree and owns none.
  void Reset();

  // Takes the trees of the first bytes b with owner[b] == self.
  void SetOwnership(const uint8_t* owner, int self);
  bool Owns(unsigned firstByte) const { return owned_[firstByte] != 0; }

  // Inserts the owned ones of the ten positions before the input, whose keys are
  // `keys` (position 0 first), from the last to the first, as the encoder does.
  void InsertPresets(const Key* keys);

  // Inserts position `v` (of an owned tree, after every owned position before it) with
  // `key`, first deleting the nodes whose life has ended. Returns the match score.
  inline unsigned Insert(uint32_t v, const Key& key) {
    Expire(v);
    const int r = static_cast<int>(newest_ & kIdMask);
    ++newest_;
    return InsertAs(r, v, key);
  }

  // Deletes every node whose life ends before position `v` enters: at the end of a
  // block, so that no node outlives its window however long this finder waits.
  void ExpireAll(uint32_t v);

  // The work units charged to tree b since the last call; resets the count.
  uint32_t TakeWork(unsigned firstByte) {
    const uint32_t work = work_[firstByte];
    work_[firstByte] = 0;
    return work;
  }

  // Makes each of `to[0 .. count)` hold, of all the nodes in `from[0 .. count)`, those
  // of the trees that `owner` gives it, with identical trees. Every finder must have
  // run ExpireAll(v) with the same v. `to` and `from` are distinct finders.
  static void Repartition(MatchFinder* const* from, MatchFinder* const* to, int count,
                          const uint8_t* owner, uint32_t v);

 private:
  inline void TakeParentSlot(int p, int q) {
    const int up = parent_[p];
    child_[up][child_[up][1] == p] = static_cast<int16_t>(q);
    parent_[q] = static_cast<int16_t>(up);
  }

  // As ReplaceNode of match_tree.h.
  inline void ReplaceNode(int p, int r) {
    int16_t* const links = child_[p];
    child_[r][0] = links[0];
    child_[r][1] = links[1];
    parent_[links[0]] = static_cast<int16_t>(r);
    parent_[links[1]] = static_cast<int16_t>(r);
    TakeParentSlot(p, r);
    links[0] = links[1] = parent_[p] = kNilId;
  }

  // As DeleteNode of match_tree.h; a node in no tree (the dummy, a replaced node) has
  // no links, so deleting it changes nothing.
  inline void DeleteNode(int p) {
    const int left = child_[p][0];
    const int right = child_[p][1];
    const bool both = (left != kNilId) & (right != kNilId);
    int q = left == kNilId ? right : left;
    if (both && child_[q][1] != kNilId) [[unlikely]] {
      do {
        q = child_[q][1];
      } while (child_[q][1] != kNilId);
      child_[parent_[q]][1] = child_[q][0];
      parent_[child_[q][0]] = parent_[q];
      child_[q][0] = static_cast<int16_t>(left);
      parent_[left] = static_cast<int16_t>(q);
      child_[q][1] = static_cast<int16_t>(right);
      parent_[right] = static_cast<int16_t>(q);
    } else {
      child_[both ? q : kNilId][1] = static_cast<int16_t>(both ? right : kNilId);
      parent_[both ? right : kNilId] = static_cast<int16_t>(q);
    }
    TakeParentSlot(p, q);
    parent_[p] = kNilId;
  }

  bool Expired(uint32_t v) const {
    return (oldest_ != newest_) & (v - pos_[oldest_ & kIdMask] >= kNodeLife);
  }

  // Deletes the nodes whose life ends before `v`. How many there are varies at random
  // from insertion to insertion; the first deletion is made without a branch (the
  // dummy node stands in when there is none), which spares most mispredictions.
  inline void Expire(uint32_t v) {
    const bool first = Expired(v);
    DeleteNode(first ? static_cast<int>(oldest_ & kIdMask) : kDummyId);
    oldest_ += first;
    if (Expired(v)) [[unlikely]] {
      do {
        DeleteNode(static_cast<int>(oldest_ & kIdMask));
        ++oldest_;
      } while (Expired(v));
    }
  }

  // The walk of InsertNode (match_tree.h) over node `r`, with the scores computed on
  // node numbers: among the live nodes, a later number is a later position, so the
  // nearer of two equally long matches still wins. The result is turned back into
  // ring positions at the end.
  inline unsigned InsertAs(int r, uint32_t v, const Key& key) {
    pos_[r] = v;
    head_[r] = key.head;
    first_[r] = static_cast<uint8_t>(key.first);
    last_[r] = static_cast<uint8_t>(key.last);
    const int h = hint_;
    if ((h != kNilId) & (parent_[h] != kNilId) & (head_[h] == key.head) & (first_[h] == key.first) &
        (last_[h] == key.last)) {
      ReplaceNode(h, r);
      hint_ = (h + 1) & kIdMask;
      work_[key.first] += kInsertionWork;
      return RingScore(MatchScore(kF - 1, static_cast<unsigned>(r), static_cast<unsigned>(h)), r,
                       v);
    }
    child_[r][0] = child_[r][1] = kNilId;
    unsigned p = kFirstRootId + key.first;
    int next = child_[p][1];
    bool goRight = true;
    unsigned found = 0;
    uint32_t work = kInsertionWork;
    while (next != kNilId) {
      p = static_cast<unsigned>(next);
      ++work;
      const uint64_t node = head_[p];
      uint32_t pair;
      std::memcpy(&pair, child_[p], sizeof pair);
      if (key.head != node) [[likely]] {
        const unsigned sameBytes = static_cast<unsigned>(__builtin_clzll(key.head ^ node)) >> 3;
        const unsigned score = MatchScore(sameBytes, static_cast<unsigned>(r), p);
        found = score > found ? score : found;
        goRight = key.head > node;
        next = PickLink(key.head, node, pair);
        continue;
      }
      const unsigned key9 = key.last;
      const unsigned node9 = last_[p];
      const unsigned score =
          MatchScore(key9 == node9 ? kF - 1 : kF - 2, static_cast<unsigned>(r), p);
      found = score > found ? score : found;
      if (key9 == node9) {
        ReplaceNode(static_cast<int>(p), r);
        hint_ = static_cast<int>((p + 1) & kIdMask);
        work_[key.first] += work;
        return RingScore(found, r, v);
      }
      goRight = key9 > node9;
      next = PickLink(key9, node9, pair);
    }
    child_[p][goRight] = static_cast<int16_t>(r);
    parent_[r] = static_cast<int16_t>(p);
    hint_ = kNilId;
    work_[key.first] += work;
    return RingScore(found, r, v);
  }

  // A score over node numbers as the same score over ring positions; 0 (no node met)
  // stays 0.
  unsigned RingScore(unsigned score, int r, uint32_t v) const {
    if (score == 0) return 0;
    const int p = (r + static_cast<int>(score & kIdMask)) & kIdMask;
    return (score & ~static_cast<unsigned>(kIdMask)) | ((pos_[p] - v) & kIdMask);
  }

  // Links: the left and right child of entry i are child_[i][0] and child_[i][1]; entry
  // kNilId is a scratch slot (see DeleteNode in match_tree.h), the roots follow it.
  int16_t child_[kDummyId + 1][2];
  int16_t parent_[kDummyId + 1];
  uint64_t head_[kIds + 1];  // bytes 1 to 8 of each node's key; entry kNilId is read, never used
  uint8_t first_[kIds + 1];  // byte 0
  uint8_t last_[kIds + 1];   // byte 9
  uint32_t pos_[kIds];       // the node's position (modulo 2^32)
  uint32_t oldest_;          // number of the oldest node not yet deleted
  uint32_t newest_;          // number of the next node
  int hint_;                 // a node that may hold the next key (see InsertNode)
  uint8_t owned_[256];
  uint32_t work_[256];
  int16_t renumbered_[kIds];  // Repartition's new number of each node
};

}  // namespace tk::lzhuf_detail

#endif  // TAVIK_LZHUF_MATCH_FINDER_H_
