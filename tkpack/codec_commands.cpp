// tkpack compress and tkpack decompress: the LZHUF codec on single files, through its
// memory front end so that the bytes can be counted for the progress display.
#include <memory>
#include <string>

#include "lzhuf/lzhuf.h"
#include "support/files.h"
#include "tkpack/command_line.h"
#include "tkpack/commands.h"
#include "tkpack/opened_package.h"
#include "tkpack/progress.h"
#include "tkpack/tool.h"

namespace tk {

namespace {

constexpr const char* kLimitOption = "--limit";

// A file source that reports every block it hands to the codec to the display.
class CountingSource : public LzhufSource {
 public:
  CountingSource(FILE* stream, ProgressDisplay& display, const char* label, int64_t total)
      : inner_(stream), display_(display), label_(label), total_(total) {}

  size_t Read(uint8_t* buffer, size_t capacity) override {
    const size_t count = inner_.Read(buffer, capacity);
    consumed_ += static_cast<int64_t>(count);
    display_.Update(label_, consumed_, total_);
    return count;
  }

 private:
  LzhufFileSource inner_;
  ProgressDisplay& display_;
  const char* label_;
  int64_t total_;
  int64_t consumed_ = 0;
};

// The two files of one codec run, opened unbuffered: the codec reads and writes
// whole blocks. `failedPath` names the file that could not be opened.
struct CodecFiles {
  UniqueFile in;
  UniqueFile out;
  std::string failedPath;

  bool Open(const std::string& inPath, const std::string& outPath) {
    in.reset(OpenFile(inPath.c_str(), "rb"));
    if (!in) {
      failedPath = inPath;
      return false;
    }
    out.reset(OpenFile(outPath.c_str(), "wb"));
    if (!out) {
      failedPath = outPath;
      return false;
    }
    std::setvbuf(in.get(), nullptr, _IONBF, 0);
    std::setvbuf(out.get(), nullptr, _IONBF, 0);
    return true;
  }

  // Closes the output; a failing close is a failed write unless the run failed already.
  int CloseOutput(int result) {
    const bool closed = std::fclose(out.release()) == 0;
    return !closed && (result == kLzhufOk || result == kLzhufEmpty) ? kLzhufWriteFailed : result;
  }
};

int ReportCodecFailure(ToolIo& io, const char* verb, const CommandLine& line, int result,
                       const std::string& failedPath) {
  std::string message = std::string("cannot ") + verb + " " + line.operands[0] + " into " +
                        line.operands[1] + ": " + CodecResultText(result);
  if (!failedPath.empty()) message += ": " + failedPath;
  return ReportFailure(io, message);
}

int ReportSizes(ToolIo& io, const CommandLine& line) {
  std::fprintf(io.out, "%s (%lld bytes) -> %s (%lld bytes)\n", line.operands[0].c_str(),
               static_cast<long long>(FileSize(line.operands[0].c_str())), line.operands[1].c_str(),
               static_cast<long long>(FileSize(line.operands[1].c_str())));
  return kExitSuccess;
}

}  // namespace

namespace {

// The frame both codec commands share: open the two files, code with a progress
// display over the input, close the output, report. `code` runs the codec itself.
template <typename Code>
int RunCodec(const CommandLine& line, ToolIo& io, const char* verb, const char* stage, Code code) {
  CodecFiles files;
  if (!files.Open(line.operands[0], line.operands[1])) {
    return ReportCodecFailure(io, verb, line, kLzhufOpenFailed, files.failedPath);
  }
  const int64_t size = StreamSize(files.in.get());
  auto codec = std::make_unique<LzhufCodec>();
  int result = kLzhufOk;
  {
    ProgressDisplay display(io.err, io.errIsTerminal);
    CountingSource source(files.in.get(), display, stage, size);
    LzhufFileSink sink(files.out.get());
    result = code(*codec, source, static_cast<uint64_t>(size), sink);
  }
  result = files.CloseOutput(result);
  if (result != kLzhufOk) return ReportCodecFailure(io, verb, line, result, "");
  return ReportSizes(io, line);
}

}  // namespace

int RunCompress(const CommandLine& line, ToolIo& io) {
  LzhufEncodeOptions options;
  options.threads = ThreadsOption(line);
  return RunCodec(
      line, io, "compress", "compressing",
      [&options](LzhufCodec& codec, LzhufSource& source, uint64_t size, LzhufSink& sink) {
        return LzhufEncode(codec, source, size, sink, options);
      });
}

int RunDecompress(const CommandLine& line, ToolIo& io) {
  uint64_t limit = 0;  // the parser has checked the number
  ParseByteCount(line.Value(kLimitOption, "0"), limit);
  return RunCodec(line, io, "decompress", "decompressing",
                  [limit](LzhufCodec& codec, LzhufSource& source, uint64_t, LzhufSink& sink) {
                    return LzhufDecode(codec, source, sink, limit);
                  });
}

}  // namespace tk
