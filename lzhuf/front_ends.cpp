// The memory and file front ends: thin wrappers that set up a source and a sink
// around the engine.
#include <cstdio>

#include "lzhuf/lzhuf.h"
#include "support/files.h"

namespace tk {

namespace {

// Opens the source for reading and the destination for writing; on failure
// closes what was opened and leaves both owners empty.
bool OpenPair(const char* sourcePath, const char* destinationPath, UniqueFile& source,
              UniqueFile& destination) {
  source.reset(OpenFile(sourcePath, "rb"));
  if (!source) return false;
  destination.reset(OpenFile(destinationPath, "wb"));
  if (!destination) {
    source.reset();
    return false;
  }
  // The codec reads and writes whole blocks: the streams' own buffers would only
  // add a copy.
  std::setvbuf(source.get(), nullptr, _IONBF, 0);
  std::setvbuf(destination.get(), nullptr, _IONBF, 0);
  return true;
}

// Size of the stream from its opening position to its end; the position goes back
// to the start.
uint64_t SourceSize(FILE* stream) {
  const int64_t start = TellFile(stream);
  SeekFile(stream, 0, SEEK_END);
  const int64_t end = TellFile(stream);
  SeekFile(stream, 0, SEEK_SET);
  return static_cast<uint64_t>(end - start);
}

// Closes the destination; a failure there is a failed write unless the operation
// has already failed otherwise.
int CloseDestination(UniqueFile& destination, int result) {
  const bool closed = std::fclose(destination.release()) == 0;
  if (!closed && (result == kLzhufOk || result == kLzhufEmpty)) return kLzhufWriteFailed;
  return result;
}

}  // namespace

int LzhufEncodeBuffer(LzhufCodec& codec, std::span<const uint8_t> data, std::vector<uint8_t>& out) {
  out.clear();
  LzhufMemorySource source(data);
  LzhufBufferSink sink(out);
  return LzhufEncode(codec, source, data.size(), sink);
}

int LzhufEncodeBuffer(LzhufCodec& codec, std::span<const uint8_t> data, std::vector<uint8_t>& out,
                      const LzhufEncodeOptions& options) {
  out.clear();
  LzhufMemorySource source(data);
  LzhufBufferSink sink(out);
  return LzhufEncode(codec, source, data.size(), sink, options);
}

int LzhufDecodeBuffer(LzhufCodec& codec, std::span<const uint8_t> compressed,
                      std::vector<uint8_t>& out, uint64_t limit) {
  out.clear();
  LzhufMemorySource source(compressed);
  LzhufBufferSink sink(out);
  return LzhufDecode(codec, source, sink, limit);
}

int LzhufEncodeFile(LzhufCodec& codec, const char* sourcePath, const char* destinationPath) {
  return LzhufEncodeFile(codec, sourcePath, destinationPath, LzhufEncodeOptions());
}

int LzhufEncodeFile(LzhufCodec& codec, const char* sourcePath, const char* destinationPath,
                    const LzhufEncodeOptions& options) {
  UniqueFile source;
  UniqueFile destination;
  if (!OpenPair(sourcePath, destinationPath, source, destination)) return kLzhufOpenFailed;
  const uint64_t size = SourceSize(source.get());
  LzhufFileSource in(source.get());
  LzhufFileSink out(destination.get());
  const int result = LzhufEncode(codec, in, size, out, options);
  return CloseDestination(destination, result);
}

int LzhufDecodeFile(LzhufCodec& codec, const char* sourcePath, const char* destinationPath,
                    uint64_t limit) {
  UniqueFile source;
  UniqueFile destination;
  if (!OpenPair(sourcePath, destinationPath, source, destination)) return kLzhufOpenFailed;
  LzhufFileSource in(source.get());
  LzhufFileSink out(destination.get());
  const int result = LzhufDecode(codec, in, out, limit);
  if (result == kLzhufNoHeader) {
    // Both streams stay open, their two descriptors in use: pinned by
    // LzhufFiles.EachResultLeavesItsFiles.
    (void)source.release();
    (void)destination.release();
    return result;
  }
  return CloseDestination(destination, result);
}

}  // namespace tk
