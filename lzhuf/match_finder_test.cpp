// Finders that share the trees out between them, and hand them over now and then, find
// for every position the match that one finder holding all trees finds.
#include "lzhuf/match_finder.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "lzhuf/test_inputs.h"

namespace tk::lzhuf_detail {
namespace {

using test::Bytes;

// The keys of an input's positions with ten spaces before it; the input must go on
// for 9 bytes past the last position asked for.
Key KeyOf(const Bytes& padded, size_t at) {
  return Key{padded[at], LoadBigEndian(&padded[at + 1]), padded[at + kF - 1]};
}

class Finders {
 public:
  Finders(int count, const uint8_t* owner) {
    for (int w = 0; w < count; ++w) {
      sets_[0].push_back(std::make_unique<MatchFinder>());
      sets_[1].push_back(std::make_unique<MatchFinder>());
      sets_[0][w]->Reset();
      sets_[0][w]->SetOwnership(owner, w);
    }
    owner_.assign(owner, owner + 256);
  }

  void InsertPresets(const Key* keys) {
    for (auto& finder : sets_[current_]) finder->InsertPresets(keys);
  }

  unsigned Insert(uint32_t v, const Key& key) {
    return sets_[current_][owner_[key.first]]->Insert(v, key);
  }

  // Every finder expires what ends before `v`, then the trees go to `owner`.
  void Hand(const uint8_t* owner, uint32_t v) {
    std::vector<MatchFinder*> from, to;
    for (auto& finder : sets_[current_]) {
      finder->ExpireAll(v);
      from.push_back(finder.get());
    }
    for (auto& finder : sets_[1 - current_]) to.push_back(finder.get());
    MatchFinder::Repartition(from.data(), to.data(), static_cast<int>(to.size()), owner, v);
    current_ = 1 - current_;
    owner_.assign(owner, owner + 256);
  }

 private:
  std::vector<std::unique_ptr<MatchFinder>> sets_[2];
  std::vector<uint8_t> owner_;
  int current_ = 0;
};

TEST(MatchFinder, SharedAndHandedOverTreesFindTheSameMatches) {
  const Bytes text = test::TextBytes(60000);
  const Bytes skewed = test::SkewedBytes(60000);
  Bytes padded(kPresets, ' ');
  for (size_t i = 0; i < text.size(); ++i) padded.push_back(i / 5000 % 2 ? skewed[i] : text[i]);
  const size_t positions = padded.size() - kF + 1;
  const uint8_t all[256] = {};
  uint8_t byThree[256], shifted[256], lumped[256];
  for (int b = 0; b < 256; ++b) {
    byThree[b] = static_cast<uint8_t>(b % 3);
    shifted[b] = static_cast<uint8_t>((b + 1) % 3);
    lumped[b] = static_cast<uint8_t>(b < 200 ? 0 : 2);  // finder 1 holds none
  }
  Finders one(1, all), three(3, byThree);
  Key presets[kPresets];
  for (int j = 0; j < kPresets; ++j) presets[j] = KeyOf(padded, static_cast<size_t>(j));
  one.InsertPresets(presets);
  three.InsertPresets(presets);
  const uint8_t* const turns[] = {shifted, lumped, byThree};
  size_t differences = 0, matches = 0;
  for (size_t at = kPresets; at < positions; ++at) {
    const uint32_t v = static_cast<uint32_t>(at);
    if (at % 7001 == 0) three.Hand(turns[at / 7001 % 3], v);
    const Key key = KeyOf(padded, at);
    const unsigned expected = one.Insert(v, key);
    differences += three.Insert(v, key) != expected;
    matches += ScoreLength(expected) > kLzhufThreshold;
  }
  EXPECT_EQ(0u, differences);
  EXPECT_GT(matches, positions / 4);  // the input gives the trees something to find
}

// A finder charges each tree the work of its insertions, and hands it out once.
TEST(MatchFinder, ChargesEachTreeItsWork) {
  uint8_t owner[256] = {};
  auto finder = std::make_unique<MatchFinder>();
  finder->Reset();
  finder->SetOwnership(owner, 0);
  const Bytes padded(100, 'a');
  for (uint32_t v = 0; v < 50; ++v) finder->Insert(v, KeyOf(padded, v));
  EXPECT_EQ(50 * MatchFinder::kInsertionWork + 1, finder->TakeWork('a'));
  EXPECT_EQ(0u, finder->TakeWork('a'));
  EXPECT_EQ(0u, finder->TakeWork('b'));
}

}  // namespace
}  // namespace tk::lzhuf_detail
