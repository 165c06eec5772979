// The threaded encoder: the match search of every position runs ahead of the coder,
// split by search tree between threads, and the coder reads the matches at the
// positions where its symbols start. The output is the single-threaded encoder's.
//
// The input goes in blocks, a few of them in flight. Every thread inserts, block after
// block, the positions of its own trees (a MatchFinder each) and records their
// matches. The calling thread also reads the blocks and codes each once every thread
// has searched it (parse, adaptive Huffman code, bit output); now and then it has all
// threads stop at a block boundary and moves trees between them, so that each thread
// has as much work as the others, its coding included.
#include <time.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include "lzhuf/engine.h"
#include "lzhuf/match_finder.h"
#include "lzhuf/symbol_coder.h"

namespace tk::lzhuf_detail {

namespace {

// Bytes past a block that the keys of its last positions reach.
constexpr size_t kKeyReach = kF - 1;
// Positions compacted at a time by a finder before it inserts them.
constexpr size_t kChunk = 4096;

// Processor seconds the calling thread has used: what the balance is about, whatever
// else the machine runs meanwhile.
double ThreadSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// A finder's position of input position t.
uint32_t FinderPosition(uint64_t t) { return static_cast<uint32_t>(t + kPresets); }

// One block of input positions and the matches found for them.
struct Block {
  std::unique_ptr<uint8_t[]> bytes;    // the block's bytes, then up to kKeyReach more
  std::unique_ptr<uint16_t[]> scores;  // the match of each position, as MatchScore
  uint64_t start = 0;                  // input position of bytes[0]
  size_t count = 0;                    // positions in the block
  size_t held = 0;                     // bytes in `bytes`
  size_t regular = 0;                  // positions [0, regular) have their keys in `bytes`
  bool last = false;                   // the input ends in this block
  uint32_t sampled[256] = {};          // first bytes of every kSampleStride-th position
};

// Every how many positions a block's first bytes are counted, to foresee the work of
// each tree.
constexpr size_t kSampleStride = 4;

void SampleFirstBytes(Block& block) {
  std::fill(std::begin(block.sampled), std::end(block.sampled), 0);
  for (size_t i = 0; i < block.count; i += kSampleStride) ++block.sampled[block.bytes[i]];
}

// The keys that do not come straight from the input bytes: those of the ten positions
// before the input, and those of the last nine positions, which reach past the end
// of the input into what the ring held before (or never held: see FillRing).
struct EdgeKeys {
  Key presets[kPresets];
  Key tail[kF - 1];
  uint64_t tailStart = 0;  // input position of tail[0]
};

// Reads the input into blocks and keeps the ring exactly as the single-threaded
// encoder would, for the edge keys.
class BlockReader {
 public:
  explicit BlockReader(LzhufSource& source) : source_(source) {
    std::memset(ring_, kRingFill, kStart);
    std::memset(ring_ + kStart, 0, sizeof(ring_) - kStart);
  }

  // Fills `block` with the `capacity` positions after `previous` (none: the first
  // block). The edge keys are complete for every position of a filled block.
  void Fill(Block& block, const Block* previous, size_t capacity);

  bool ended() const { return ended_; }
  uint64_t total() const { return total_; }
  const EdgeKeys& keys() const { return keys_; }

 private:
  void Record(const uint8_t* data, size_t size);
  void MakePresetKeys();
  void MakeTailKeys();

  LzhufSource& source_;
  uint8_t ring_[kN + kF - 1];
  uint64_t total_ = 0;
  bool ended_ = false;
  bool presetsMade_ = false;
  EdgeKeys keys_;
};

// Writes input bytes where the single-threaded encoder writes them: the first ten
// from the start position on, the rest over the oldest ring positions, the first 9
// ring positions mirrored past the end. The preset keys come from the ring as it is
// once the first ten bytes (or all, when fewer) are in.
void BlockReader::Record(const uint8_t* data, size_t size) {
  for (; size > 0 && total_ < static_cast<uint64_t>(kF); ++data, --size) {
    ring_[kStart + total_] = *data;
    if (++total_ == static_cast<uint64_t>(kF)) MakePresetKeys();
  }
  if (size > static_cast<size_t>(kN)) {  // all but the last kN bytes would be overwritten
    total_ += size - kN;
    data += size - kN;
    size = kN;
  }
  while (size > 0) {
    const size_t slot = static_cast<size_t>(kStart + total_) & kRingMask;
    const size_t part = std::min(size, kN - slot);
    std::memcpy(ring_ + slot, data, part);
    if (slot < kF - 1) std::memcpy(ring_ + kN + slot, data, std::min(part, kF - 1 - slot));
    data += part;
    size -= part;
    total_ += part;
  }
}

void BlockReader::MakePresetKeys() {
  for (int j = 0; j < kPresets; ++j) keys_.presets[j] = KeyAt(ring_, kStart - kPresets + j);
  presetsMade_ = true;
}

// At the end of the input: the ring holds all it will ever hold.
void BlockReader::MakeTailKeys() {
  if (!presetsMade_) MakePresetKeys();
  keys_.tailStart = total_ > kKeyReach ? total_ - kKeyReach : 0;
  for (uint64_t t = keys_.tailStart; t < total_; ++t) {
    keys_.tail[t - keys_.tailStart] = KeyAt(ring_, static_cast<unsigned>(kStart + t) & kRingMask);
  }
}

void BlockReader::Fill(Block& block, const Block* previous, size_t capacity) {
  size_t held = 0;
  block.start = 0;
  if (previous != nullptr) {
    block.start = previous->start + previous->count;
    held = previous->held - previous->count;
    std::memcpy(block.bytes.get(), previous->bytes.get() + previous->count, held);
  }
  const size_t wanted = capacity + kKeyReach;
  while (!ended_ && held < wanted) {
    const size_t got = source_.Read(block.bytes.get() + held, wanted - held);
    if (got == 0) {
      ended_ = true;
      MakeTailKeys();
      break;
    }
    Record(block.bytes.get() + held, got);
    held += got;
  }
  block.held = held;
  block.count = std::min(held, capacity);
  block.last = ended_ && held <= capacity;
  block.regular = block.count;
  SampleFirstBytes(block);
  if (ended_) {
    const uint64_t keyed = keys_.tailStart > block.start ? keys_.tailStart - block.start : 0;
    block.regular = static_cast<size_t>(std::min<uint64_t>(keyed, block.count));
  }
}

// Inserts the positions of `block` that belong to the finder's trees and records
// their matches.
void FindMatches(MatchFinder& finder, Block& block, const EdgeKeys& keys) {
  if (block.start == 0) finder.InsertPresets(keys.presets);
  const uint8_t* const bytes = block.bytes.get();
  uint16_t* const scores = block.scores.get();
  uint16_t own[kChunk];
  for (size_t from = 0; from < block.regular; from += kChunk) {
    const size_t to = std::min(block.regular, from + kChunk);
    size_t count = 0;
    for (size_t i = from; i < to; ++i) {
      own[count] = static_cast<uint16_t>(i - from);
      count += finder.Owns(bytes[i]);
    }
    for (size_t k = 0; k < count; ++k) {
      const size_t i = from + own[k];
      const Key key{bytes[i], LoadBigEndian(bytes + i + 1), bytes[i + kF - 1]};
      scores[i] = static_cast<uint16_t>(finder.Insert(FinderPosition(block.start + i), key));
    }
  }
  for (size_t i = block.regular; i < block.count; ++i) {
    const Key& key = keys.tail[block.start + i - keys.tailStart];
    if (finder.Owns(key.first)) {
      scores[i] = static_cast<uint16_t>(finder.Insert(FinderPosition(block.start + i), key));
    }
  }
  finder.ExpireAll(FinderPosition(block.start + block.count));
}

// Blocks in flight: read, searched by some threads, or waiting to be coded. The
// threads may be this many blocks apart, which evens out the work of single blocks.
constexpr uint64_t kSlots = 8;
constexpr uint64_t kNever = UINT64_MAX;

// Work and time since the balance last looked: per tree the work units its insertions
// took and how many of its positions were sampled meanwhile; per thread the processor
// seconds it spent searching and the units they bought.
struct Tally {
  explicit Tally(int threads) : seconds(static_cast<size_t>(threads)), units(seconds.size()) {}

  void Add(int w, MatchFinder& finder, const Block& block, double searchSeconds) {
    for (unsigned b = 0; b < 256; ++b) {
      if (!finder.Owns(b)) continue;
      const double taken = finder.TakeWork(b);
      work[b] += taken;
      units[static_cast<size_t>(w)] += taken;
      samples[b] += block.sampled[b];
    }
    seconds[static_cast<size_t>(w)] += searchSeconds;
  }

  // Halves everything: what was seen lately weighs as much as all before.
  void Age() {
    for (int b = 0; b < 256; ++b) {
      work[b] /= 2;
      samples[b] /= 2;
    }
    for (size_t w = 0; w < seconds.size(); ++w) {
      seconds[w] /= 2;
      units[w] /= 2;
    }
  }

  double work[256] = {};
  double samples[256] = {};
  std::vector<double> seconds;
  std::vector<double> units;
};

// Who searches which tree. The work of each tree in the coming blocks is foreseen as
// its positions there (sampled when the block was read) times what one of its
// positions cost lately, and each thread's work in seconds at the rate it searched
// lately; the calling thread is also charged its coding. The heaviest trees are handed
// out first, each to the thread that would be done with it first.
class Balancer {
 public:
  explicit Balancer(int threads) : threads_(threads), rate_(static_cast<size_t>(threads), 1.0) {}

  // The first owners, from the first block's positions alone.
  void Start(const Block& first);

  // Records the caller's coding of a block of `positions` positions in `seconds`.
  void Coded(size_t positions, double seconds) {
    codedPositions_ += static_cast<double>(positions);
    codeSeconds_ += seconds;
  }

  // New owners for the blocks `coming`, from what `tally` saw; true when they promise
  // those blocks done sooner by more than kWorthMoving (moving trees costs a pass over
  // all nodes, and the moved trees are cold). Ages the tally.
  bool Propose(Tally& tally, const std::vector<const Block*>& coming);

  const uint8_t* owner() const { return owner_; }

 private:
  static constexpr double kWorthMoving = 0.9;
  static constexpr double kFirstCoderShare = 0.15;  // of all work, before it is measured
  // A tree's cost per position is taken as if it had also had this many positions at
  // the usual cost: the few positions of a rare tree say little.
  static constexpr double kPriorSamples = 8;

  // Hands the trees out by `work` and returns the largest load, in seconds; `coder` is
  // the caller's coding.
  double Assign(const double* work, double coder, uint8_t* owner) const;
  double LargestLoad(const double* work, double coder, const uint8_t* owner) const;

  int threads_;
  std::vector<double> rate_;  // seconds per work unit of each thread
  double codedPositions_ = 0;
  double codeSeconds_ = 0;
  uint8_t owner_[256] = {};
};

void Balancer::Start(const Block& first) {
  double work[256];
  double total = 0;
  for (int b = 0; b < 256; ++b) total += work[b] = first.sampled[b];
  Assign(work, total * kFirstCoderShare, owner_);
}

double Balancer::LargestLoad(const double* work, double coder, const uint8_t* owner) const {
  std::vector<double> load(static_cast<size_t>(threads_), 0.0);
  load[0] = coder;
  for (int b = 0; b < 256; ++b) load[owner[b]] += work[b] * rate_[owner[b]];
  return *std::max_element(load.begin(), load.end());
}

double Balancer::Assign(const double* work, double coder, uint8_t* owner) const {
  int order[256];
  for (int b = 0; b < 256; ++b) order[b] = b;
  std::sort(order, order + 256,
            [work](int a, int b) { return work[a] > work[b] || (work[a] == work[b] && a < b); });
  std::vector<double> load(static_cast<size_t>(threads_), 0.0);
  load[0] = coder;
  for (int b : order) {
    if (work[b] == 0) break;  // idle trees stay where they are
    size_t best = 0;
    for (size_t w = 1; w < load.size(); ++w) {
      if (load[w] + work[b] * rate_[w] < load[best] + work[b] * rate_[best]) best = w;
    }
    owner[b] = static_cast<uint8_t>(best);
    load[best] += work[b] * rate_[best];
  }
  return *std::max_element(load.begin(), load.end());
}

bool Balancer::Propose(Tally& tally, const std::vector<const Block*>& coming) {
  double samples = 0;
  double units = 0;
  double seconds = 0;
  for (int b = 0; b < 256; ++b) samples += tally.samples[b];
  for (int w = 0; w < threads_; ++w) {
    units += tally.units[w];
    seconds += tally.seconds[w];
  }
  if (units <= 0 || seconds <= 0 || samples <= 0 || codedPositions_ <= 0) return false;
  for (int w = 0; w < threads_; ++w) {
    rate_[w] = tally.units[w] > 0 ? tally.seconds[w] / tally.units[w] : seconds / units;
  }
  const double usual = units / samples;
  double work[256] = {};
  double positions = 0;
  for (const Block* block : coming) {
    positions += static_cast<double>(block->count);
    for (int b = 0; b < 256; ++b) work[b] += block->sampled[b];
  }
  double cost[256];
  for (int b = 0; b < 256; ++b) {
    cost[b] = (tally.work[b] + usual * kPriorSamples) / (tally.samples[b] + kPriorSamples);
    work[b] *= cost[b];
  }
  const double coder = codeSeconds_ / codedPositions_ * positions;
  tally.Age();
  codeSeconds_ /= 2;
  codedPositions_ /= 2;
  uint8_t proposed[256];
  std::memcpy(proposed, owner_, sizeof proposed);
  if (Assign(work, coder, proposed) >= kWorthMoving * LargestLoad(work, coder, owner_)) {
    return false;
  }

  std::memcpy(owner_, proposed, sizeof owner_);
  return true;
}

// Everything the threaded encoder allocates: the block slots, and two sets of finders
// (the set in use and the one the trees move into when they change hands).
struct Workspace {
  Workspace(int threads, size_t blockSize) {
    for (Block& block : slots) {
      block.bytes = std::make_unique<uint8_t[]>(blockSize + kKeyReach);
      block.scores = std::make_unique<uint16_t[]>(blockSize);
    }
    for (auto& set : finderSets) {
      for (int w = 0; w < threads; ++w) set.push_back(std::make_unique<MatchFinder>());
    }
    for (int w = 0; w < threads; ++w) finders.push_back(finderSets[0][w].get());
  }

  Block& slot(uint64_t block) { return slots[block % kSlots]; }

  // Moves the trees to the owners `owner`, into the other set of finders.
  void Repartition(const uint8_t* owner, uint32_t position) {
    std::vector<MatchFinder*> next;
    for (auto& finder : finderSets[1 - current]) next.push_back(finder.get());
    MatchFinder::Repartition(finders.data(), next.data(), static_cast<int>(next.size()), owner,
                             position);
    finders = next;
    current = 1 - current;
  }

  Block slots[kSlots];
  std::vector<std::unique_ptr<MatchFinder>> finderSets[2];
  std::vector<MatchFinder*> finders;  // the set in use, one per thread
  int current = 0;
};

// What the calling thread and the helpers share; guarded by `mutex`. Thread w searches
// block next[w] (busy[w]) or waits for it to be read; no thread starts block
// `handOver` before the trees have changed hands.
struct Crew {
  std::mutex mutex;
  std::condition_variable toHelpers;  // a block was read, trees changed hands, or stop
  std::condition_variable toCaller;   // a helper finished a block
  bool stop = false;
  bool callerWaits = false;
  uint64_t filled = 0;  // blocks read
  uint64_t handOver = kNever;
  std::vector<uint64_t> next;
  std::vector<char> busy;
  Workspace* space = nullptr;
  const EdgeKeys* keys = nullptr;
  Tally tally;

  explicit Crew(int threads) : tally(threads) {}

  bool Searched(uint64_t block) const {
    for (uint64_t n : next) {
      if (n <= block) return false;
    }
    return true;
  }
};

void HelperLoop(Crew& crew, int w) {
  std::unique_lock<std::mutex> lock(crew.mutex);
  for (;;) {
    crew.toHelpers.wait(lock, [&] {
      return crew.stop || (crew.next[w] < crew.filled && crew.next[w] != crew.handOver);
    });
    if (crew.stop) return;
    Block& block = crew.space->slot(crew.next[w]);
    MatchFinder& finder = *crew.space->finders[w];
    crew.busy[w] = 1;
    lock.unlock();
    const double begin = ThreadSeconds();
    FindMatches(finder, block, *crew.keys);
    const double seconds = ThreadSeconds() - begin;
    lock.lock();
    crew.busy[w] = 0;
    ++crew.next[w];
    crew.tally.Add(w, finder, block, seconds);
    if (crew.callerWaits) crew.toCaller.notify_one();
  }
}

// The coder's side: the parse over the recorded matches.
class BlockCoder {
 public:
  BlockCoder(LzhufCodec& codec, BitWriter& out) : codec_(codec), out_(out) {}

  // Sends the symbols that start in `block`; `end` is the input's length if known, else
  // anything past the block's look-ahead.
  void Code(const Block& block, uint64_t end) {
    const uint64_t stop = block.start + block.count;
    while (next_ < stop) {
      const size_t i = static_cast<size_t>(next_ - block.start);
      const int available = static_cast<int>(std::min<uint64_t>(kF, end - next_));
      next_ += static_cast<uint64_t>(
          EncodeStep(codec_, out_, &block.bytes[i], block.scores[i], available));
    }
  }

  // An input that turned out empty: the single-threaded encoder still sends one
  // literal, of the zero byte at the start position.
  void CodeNothing() {
    static constexpr uint8_t kNeverWritten = 0;
    EncodeStep(codec_, out_, &kNeverWritten, 0, 0);
  }

 private:
  LzhufCodec& codec_;
  BitWriter& out_;
  uint64_t next_ = 0;  // where the next symbol starts
};

// The calling thread's part: reading, its own trees, coding, and moving trees between
// the threads.
class Conductor {
 public:
  Conductor(LzhufCodec& codec, LzhufSource& source, BitWriter& out, Workspace& space, Crew& crew,
            int threads, size_t blockSize)
      : reader_(source),
        coder_(codec, out),
        out_(out),
        space_(space),
        crew_(crew),
        balancer_(threads),
        threads_(threads),
        blockSize_(blockSize) {}

  int Run();
  uint64_t consumed() const { return reader_.total(); }

 private:
  enum class Step { kCode, kSearch, kMove, kWait };

  void Start();
  void TopUp();
  void Publish();
  Step NextStep(std::unique_lock<std::mutex>& lock);
  void Search(std::unique_lock<std::mutex>& lock);
  void Code(std::unique_lock<std::mutex>& lock);
  void Move();
  void ConsiderMoving();

  BlockReader reader_;
  BlockCoder coder_;
  BitWriter& out_;
  Workspace& space_;
  Crew& crew_;
  Balancer balancer_;
  int threads_;
  size_t blockSize_;
  uint64_t read_ = 0;      // blocks read (the helpers see them once published)
  uint64_t coded_ = 0;     // blocks coded
  bool lastRead_ = false;  // the block with the end of the input is read
  bool finished_ = false;  // the last block is coded
};

// Reads blocks while there are free slots. Filling happens outside the lock: no other
// thread looks at a slot before `filled` counts it.
void Conductor::TopUp() {
  while (!lastRead_ && read_ - coded_ < kSlots) {
    Block& block = space_.slot(read_);
    reader_.Fill(block, read_ == 0 ? nullptr : &space_.slot(read_ - 1), blockSize_);
    lastRead_ = block.last;
    ++read_;
    Publish();
  }
}

void Conductor::Publish() {
  {
    std::lock_guard<std::mutex> lock(crew_.mutex);
    crew_.filled = read_;
  }
  crew_.toHelpers.notify_all();
}

// Owners from the first block, which is read but not yet published.
void Conductor::Start() {
  balancer_.Start(space_.slot(0));
  for (int w = 0; w < threads_; ++w) {
    space_.finders[w]->Reset();
    space_.finders[w]->SetOwnership(balancer_.owner(), w);
  }
  std::lock_guard<std::mutex> lock(crew_.mutex);
  crew_.keys = &reader_.keys();
}

Conductor::Step Conductor::NextStep(std::unique_lock<std::mutex>& lock) {
  (void)lock;
  // Before trees change hands the caller's own search comes first: the others wait for
  // it at the boundary, while its coding can wait.
  const bool canSearch = crew_.next[0] < crew_.filled && crew_.next[0] != crew_.handOver;
  if (canSearch && crew_.handOver != kNever) return Step::kSearch;
  if (crew_.Searched(coded_)) return Step::kCode;
  if (canSearch) return Step::kSearch;
  if (crew_.handOver != kNever) {
    bool arrived = true;
    for (int w = 0; w < threads_; ++w) arrived &= crew_.next[w] == crew_.handOver && !crew_.busy[w];
    if (arrived) return Step::kMove;
  }
  return Step::kWait;
}

void Conductor::Search(std::unique_lock<std::mutex>& lock) {
  Block& block = space_.slot(crew_.next[0]);
  MatchFinder& finder = *space_.finders[0];
  lock.unlock();
  const double begin = ThreadSeconds();
  FindMatches(finder, block, reader_.keys());
  const double seconds = ThreadSeconds() - begin;
  lock.lock();
  ++crew_.next[0];
  crew_.tally.Add(0, finder, block, seconds);
}

void Conductor::Code(std::unique_lock<std::mutex>& lock) {
  lock.unlock();
  Block& block = space_.slot(coded_);
  const double begin = ThreadSeconds();
  coder_.Code(block, reader_.ended() ? reader_.total() : UINT64_MAX);
  balancer_.Coded(block.count, ThreadSeconds() - begin);
  finished_ = block.last || out_.failed();
  ++coded_;
  if (!finished_) TopUp();
  lock.lock();
  if (!finished_ && crew_.handOver == kNever) ConsiderMoving();
}

// Asks the threads to stop before the first block that none has begun, when the
// balance proposes new owners for the blocks read from there on.
void Conductor::ConsiderMoving() {
  uint64_t from = 0;
  for (int w = 0; w < threads_; ++w) from = std::max(from, crew_.next[w] + (crew_.busy[w] ? 1 : 0));
  if (from >= crew_.filled) return;
  std::vector<const Block*> coming;
  for (uint64_t k = from; k < crew_.filled; ++k) coming.push_back(&space_.slot(k));
  if (balancer_.Propose(crew_.tally, coming)) crew_.handOver = from;
}

void Conductor::Move() {
  const Block& first = space_.slot(crew_.handOver);
  space_.Repartition(balancer_.owner(), FinderPosition(first.start));
  crew_.handOver = kNever;
  crew_.toHelpers.notify_all();
}

int Conductor::Run() {
  Block& first = space_.slot(0);
  reader_.Fill(first, nullptr, blockSize_);
  if (first.count == 0) {
    coder_.CodeNothing();
    return out_.failed() ? kLzhufWriteFailed : kLzhufOk;
  }
  lastRead_ = first.last;
  read_ = 1;
  Start();
  Publish();
  TopUp();
  std::unique_lock<std::mutex> lock(crew_.mutex);
  while (!finished_) {
    switch (NextStep(lock)) {
      case Step::kCode:
        Code(lock);
        break;
      case Step::kSearch:
        Search(lock);
        break;
      case Step::kMove:
        Move();
        break;
      case Step::kWait:
        crew_.callerWaits = true;
        crew_.toCaller.wait(lock);
        crew_.callerWaits = false;
        break;
    }
  }
  return out_.failed() ? kLzhufWriteFailed : kLzhufOk;
}

// Starts the helpers; false (with none left running) when the system refuses one.
bool StartHelpers(Crew& crew, int threads, std::vector<std::thread>& helpers) {
  try {
    for (int w = 1; w < threads; ++w) helpers.emplace_back(HelperLoop, std::ref(crew), w);
    return true;
  } catch (const std::system_error&) {
  }
  {
    std::lock_guard<std::mutex> lock(crew.mutex);
    crew.stop = true;
  }
  crew.toHelpers.notify_all();
  for (std::thread& helper : helpers) helper.join();
  return false;
}

void StopHelpers(Crew& crew, std::vector<std::thread>& helpers) {
  {
    std::lock_guard<std::mutex> lock(crew.mutex);
    crew.stop = true;
  }
  crew.toHelpers.notify_all();
  for (std::thread& helper : helpers) helper.join();
}

}  // namespace

int EncodeBodyThreaded(LzhufCodec& codec, LzhufSource& source, BitWriter& out, int threads,
                       size_t blockSize) {
  std::unique_ptr<Workspace> space;
  Crew crew(threads);
  std::vector<std::thread> helpers;
  try {
    space = std::make_unique<Workspace>(threads, blockSize);
    crew.space = space.get();
    crew.next.assign(static_cast<size_t>(threads), 0);
    crew.busy.assign(static_cast<size_t>(threads), 0);
    helpers.reserve(static_cast<size_t>(threads));
  } catch (const std::bad_alloc&) {
    return kThreadsUnavailable;
  }
  if (!StartHelpers(crew, threads, helpers)) return kThreadsUnavailable;
  StartHuffman(codec);
  Conductor conductor(codec, source, out, *space, crew, threads, blockSize);
  const int result = conductor.Run();
  StopHelpers(crew, helpers);
  codec.textSize = conductor.consumed();
  return result;
}

}  // namespace tk::lzhuf_detail
