// The LZHUF codec that compresses every package file: LZSS over a 4096-byte ring
// (matches of 3 to 10 bytes found through binary search trees) whose symbols are
// coded with an adaptive Huffman code, and whose match distances carry a fixed
// prefix code for their upper six bits.
//
// Compressed layout: 4 bytes holding the uncompressed length (unsigned 32-bit,
// least significant byte first), then the bit stream, most significant bit of each
// byte first, the last byte padded with zero bits. There is no magic number, no
// checksum and no end symbol: the decoder stops once it has produced the stated
// number of bytes, and reads past the end of the stream as zero bytes, so a corrupt
// or truncated stream decodes into garbage of the stated length (up to 9 bytes
// more, as the last match is always completed), never an error.
//
// Thread-safety: the functions keep no shared state; everything lives in the
// caller's LzhufCodec. One codec serves one operation at a time; use one per
// thread to code in parallel. The encoder can itself spread one operation over
// several threads (see Threads below); its output stays the same bytes.
#ifndef TAVIK_LZHUF_LZHUF_H_
#define TAVIK_LZHUF_LZHUF_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <vector>

namespace tk {

// ---- Results -------------------------------------------------------------------

// Every operation returns one of these.
constexpr int kLzhufOk = 0;
// The source or the destination could not be opened (file front end only).
constexpr int kLzhufOpenFailed = 1;
// Nothing to code: the encoder's input is empty (its output is then the 4-byte
// header 00 00 00 00), or a compressed header states a length of 0 (nothing is
// written).
constexpr int kLzhufEmpty = 117;
// The decoder could not read the 4-byte header (fewer than 4 bytes in the source).
constexpr int kLzhufNoHeader = 143;
// A write failed, the final flush of buffered output included.
constexpr int kLzhufWriteFailed = 145;

// ---- Format constants ----------------------------------------------------------

constexpr int kLzhufRingSize = 4096;       // N: the dictionary, positions masked with 0xFFF
constexpr int kLzhufLookahead = 10;        // F: the longest match
constexpr int kLzhufThreshold = 2;         // matches must be longer than this
constexpr int kLzhufNil = kLzhufRingSize;  // no node in the search trees
constexpr int kLzhufSymbols = 256 - kLzhufThreshold + kLzhufLookahead;  // N_CHAR 264
constexpr int kLzhufTreeNodes = 2 * kLzhufSymbols - 1;                  // T 527
constexpr int kLzhufRoot = kLzhufTreeNodes - 1;                         // R 526
constexpr unsigned kLzhufMaxFreq = 0x8000;  // root frequency that forces a rebuild

// Size of the blocks in which the codec reads; it writes blocks of about this
// size, never more than kLzhufMaxWrite bytes at once.
constexpr size_t kLzhufIoBlockSize = 16384;
constexpr size_t kLzhufMaxWrite = kLzhufIoBlockSize + 16;

// ---- State ---------------------------------------------------------------------

// The working state of one coding operation. The caller creates and owns it; the
// constructor does nothing, and each operation resets every part it uses, so one
// object serves any number of operations one after another with results identical
// to a fresh object. The single-threaded codec never allocates: the I/O blocks live
// here too (about 70 KB in all; allocate it rather than placing it on a small stack).
// The threaded encoder allocates its own working memory (see Threads).
struct LzhufCodec {
  LzhufCodec() {}  // deliberately leaves everything uninitialised

  uint8_t header[4];  // the length field, assembled or read
  // The ring; the 9 bytes past its end mirror positions 0 to 8 so that comparing
  // 10 bytes never wraps.
  uint8_t ring[kLzhufRingSize + kLzhufLookahead - 1];
  // The search trees: the left and right child of node i are children[i][0] and
  // children[i][1], side by side so that one read fetches both. Right children
  // N+1 .. N+256 are the roots, one per first byte; entry N is a scratch slot.
  int16_t children[kLzhufRingSize + 257][2];
  int16_t parent[kLzhufRingSize + 1];  // NIL: not in any tree
  uint64_t textSize;                   // uncompressed bytes
  uint64_t codeSize;                   // compressed bytes written (kept, never reported)
  uint16_t lastCode;                   // low 16 bits of the last symbol's code word
  uint16_t lastCodeLength;             // and its length in bits (kept, never read)
  // The classic 16-bit bit buffers and their counts: reset by every operation;
  // the coding loops keep wider buffers in registers instead.
  uint16_t outBits;
  uint16_t inBits;
  uint8_t outCount;
  uint8_t inCount;
  // Huffman node weights; entry T is the sentinel 0xFFFF, and so are the 7 after
  // it, so that the weights can be searched 8 at a time.
  uint16_t freq[kLzhufTreeNodes + 8];
  int16_t matchPosition;         // the match behind the last symbol coded:
  int16_t matchLength;           //   distance - 1 and length
  int16_t son[kLzhufTreeNodes];  // child of a node; T + c is the leaf of c
  // Parents of the Huffman nodes; entry T + c is the leaf position of symbol c,
  // and the last entry is a scratch slot.
  int16_t prnt[kLzhufTreeNodes + kLzhufSymbols + 1];
  uint8_t inBlock[kLzhufIoBlockSize];  // staging of the bytes read
  // Staging of the bytes to write. The decoder keeps its last 4096 bytes of output
  // in front of the block as the dictionary, and may write 16 bytes past it.
  uint8_t outBlock[kLzhufRingSize + kLzhufIoBlockSize + 16];
};

// ---- Streams of the memory front end -------------------------------------------

// Where the codec reads from: uncompressed bytes when encoding, the compressed
// file (header included) when decoding. Wrapping one lets a caller observe how
// many bytes have been consumed, e.g. for a progress display.
class LzhufSource {
 public:
  virtual ~LzhufSource() = default;
  // Copies up to `capacity` (> 0) bytes into `buffer`; returns how many, 0 only at
  // the end (a read error also counts as the end).
  virtual size_t Read(uint8_t* buffer, size_t capacity) = 0;
};

// Where the codec writes to. It is called with blocks of about kLzhufIoBlockSize
// bytes (at most kLzhufMaxWrite), so wrapping one shows the progress of the output.
class LzhufSink {
 public:
  virtual ~LzhufSink() = default;
  // Takes `size` (> 0) bytes; false when they could not be stored, which ends the
  // operation with kLzhufWriteFailed.
  virtual bool Write(const uint8_t* data, size_t size) = 0;
  // Pushes out anything the sink buffers itself; false on failure (-> 145).
  virtual bool Flush() { return true; }
};

// A source over bytes in memory; the bytes stay the caller's and must outlive it.
class LzhufMemorySource : public LzhufSource {
 public:
  explicit LzhufMemorySource(std::span<const uint8_t> data) : data_(data) {}
  size_t Read(uint8_t* buffer, size_t capacity) override;

 private:
  std::span<const uint8_t> data_;
  size_t offset_ = 0;
};

// A sink that appends to a growable buffer owned by the caller.
class LzhufBufferSink : public LzhufSink {
 public:
  explicit LzhufBufferSink(std::vector<uint8_t>& out) : out_(out) {}
  bool Write(const uint8_t* data, size_t size) override;

 private:
  std::vector<uint8_t>& out_;
};

// A source reading an open stream from its current position; the stream stays the
// caller's (it is neither closed nor rewound).
class LzhufFileSource : public LzhufSource {
 public:
  explicit LzhufFileSource(FILE* stream) : stream_(stream) {}
  size_t Read(uint8_t* buffer, size_t capacity) override;

 private:
  FILE* stream_;
};

// A sink writing to an open stream; Flush() flushes the stream. The stream stays
// the caller's.
class LzhufFileSink : public LzhufSink {
 public:
  explicit LzhufFileSink(FILE* stream) : stream_(stream) {}
  bool Write(const uint8_t* data, size_t size) override;
  bool Flush() override;

 private:
  FILE* stream_;
};

// ---- Memory front end ----------------------------------------------------------

// Encodes everything `source` yields. `size` is written into the header (its low
// 32 bits) and decides kLzhufEmpty when 0 (nothing is read then); the coding itself
// runs until the source ends. The output (header first) goes to `sink`, whose
// Flush() is called at the end. Returns kLzhufOk, kLzhufEmpty (after writing the
// 4-byte header) or kLzhufWriteFailed.
int LzhufEncode(LzhufCodec& codec, LzhufSource& source, uint64_t size, LzhufSink& sink);

// Decodes the compressed stream of `source` into `sink`. The header's length is
// sign-extended from 32 bits (a header of 2^31 or more states a length near 2^64,
// so pass a limit). `limit` 0 decodes everything; otherwise decoding stops after the
// symbol that brings the output to `limit` bytes or more (a match is always
// completed, so up to limit + 9 bytes come out). Returns kLzhufOk, kLzhufEmpty (a
// length of 0: nothing written), kLzhufNoHeader (nothing written) or
// kLzhufWriteFailed.
int LzhufDecode(LzhufCodec& codec, LzhufSource& source, LzhufSink& sink, uint64_t limit);

// The length stated by a 4-byte header: the top byte's term is a signed 32-bit
// value widened with its sign, so a field of 2^31 or more gives a length near 2^64.
uint64_t LzhufStatedLength(const uint8_t* header);

// Size of that length header at the start of every compressed stream.
constexpr std::size_t kLzhufHeaderBytes = 4;

// The most bytes a compressed stream of `compressedSize` bytes (header included) can
// decode to before its bits run out: every symbol takes at least one bit and gives at
// most one byte per bit (a literal of one bit; a match of at most 10 bytes in at least
// ten bits: its length symbol and a position of three bits and six), plus the last
// symbol. A header that states more is a lie: the decoder would go on reading zero bits.
uint64_t LzhufLargestDecodedSize(uint64_t compressedSize);

// LzhufEncode of a byte span; `out` is cleared and receives the compressed form.
int LzhufEncodeBuffer(LzhufCodec& codec, std::span<const uint8_t> data, std::vector<uint8_t>& out);

// LzhufDecode of a compressed byte span; `out` is cleared and receives the bytes.
int LzhufDecodeBuffer(LzhufCodec& codec, std::span<const uint8_t> compressed,
                      std::vector<uint8_t>& out, uint64_t limit);

// ---- Threads -------------------------------------------------------------------

// How the encoder may use threads. With `threads` 1 (or less) it is the single-threaded
// encoder above. With more, the search for the match of every input position is
// spread over that many threads, the caller's included, by search tree (one per first
// byte), the trees moving between the threads so that each has as much work as the
// others; the calling thread also reads and codes, one block behind the search. The
// output is byte for byte the single-threaded encoder's, and the sources and sinks are
// called from the calling thread only. The threads live for the one call. When they
// cannot be started, or their memory cannot be had, the call codes on one thread:
// never an error.
//
// Memory of a threaded call, allocated when it starts and freed when it ends, whatever
// the size of the input: 190 KB per thread (its share of the search trees, twice, so
// that trees can change hands) and 24 bytes per byte of the block size (eight blocks
// in flight, each with its input and the matches found: 1.5 MiB at the default), plus
// the stacks of the helper threads (a few KB of each used).
struct LzhufEncodeOptions {
  int threads = 1;  // more than kLzhufMaxThreads counts as kLzhufMaxThreads
  // Input bytes searched per block, 1 to kLzhufMaxBlockSize; 0 is kLzhufDefaultBlockSize.
  // The threads meet once per block: small blocks are for tests.
  size_t blockSize = 0;
};

constexpr int kLzhufMaxThreads = 64;
constexpr size_t kLzhufDefaultBlockSize = 64 * 1024;
constexpr size_t kLzhufMaxBlockSize = 1024 * 1024;
// The most threads LzhufAvailableThreads proposes: beyond it the coder, which stays on
// one thread, is the bottleneck.
constexpr int kLzhufThreadsCap = 8;

// The processors this process may run on (its affinity mask), at least 1 and at most
// kLzhufThreadsCap: the thread count for a caller that wants to use the machine.
int LzhufAvailableThreads();

// LzhufEncode with `options`; results and output as LzhufEncode.
int LzhufEncode(LzhufCodec& codec, LzhufSource& source, uint64_t size, LzhufSink& sink,
                const LzhufEncodeOptions& options);

// LzhufEncodeBuffer with `options`.
int LzhufEncodeBuffer(LzhufCodec& codec, std::span<const uint8_t> data, std::vector<uint8_t>& out,
                      const LzhufEncodeOptions& options);

// ---- File front end ------------------------------------------------------------

// Compresses the file `sourcePath` into a new file `destinationPath` (created or
// truncated), both opened through OpenFile. The header holds the source's size as
// found by seeking to its end. Returns:
//   kLzhufOk           done, both files closed;
//   kLzhufOpenFailed   a file could not be opened; whatever was opened is closed,
//                      a destination that was opened stays;
//   kLzhufEmpty        the source is empty; the destination holds 00 00 00 00;
//   kLzhufWriteFailed  a write or the final flush failed; both files closed.
int LzhufEncodeFile(LzhufCodec& codec, const char* sourcePath, const char* destinationPath);

// LzhufEncodeFile with `options` (see Threads); results as LzhufEncodeFile.
int LzhufEncodeFile(LzhufCodec& codec, const char* sourcePath, const char* destinationPath,
                    const LzhufEncodeOptions& options);

// Decompresses the file `sourcePath` into a new file `destinationPath`, `limit` as
// for LzhufDecode. Returns:
//   kLzhufOk           done, both files closed;
//   kLzhufOpenFailed   a file could not be opened; as for LzhufEncodeFile;
//   kLzhufEmpty        the header states 0 bytes; the destination is empty, closed;
//   kLzhufNoHeader     the source holds fewer than 4 bytes. Both files are left
//                      open: two descriptors stay in use, and the streams stay on
//                      the C library's list, so leak checkers stay quiet; the
//                      destination exists and is empty (pinned by
//                      LzhufFiles.EachResultLeavesItsFiles);
//   kLzhufWriteFailed  a write or the final flush failed; both files closed.
int LzhufDecodeFile(LzhufCodec& codec, const char* sourcePath, const char* destinationPath,
                    uint64_t limit);

}  // namespace tk

#endif  // TAVIK_LZHUF_LZHUF_H_
