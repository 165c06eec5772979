// The seed generator of the fuzz targets: every seed is made by the project itself,
// with the builder, the encoder and the decoder, so the corpus follows the formats as
// the code writes them; the minisign files are ones that minisign 0.11 wrote.
//
//   fuzz_seeds OUTDIR     writes OUTDIR/TARGET/NAME for every target
//
// Exits 0 on success, 1 with a message on standard error otherwise.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "lzhuf/lzhuf.h"
#include "package/package.h"

namespace {

using tk::fuzz::ScratchDirectory;
using tk::fuzz::WriteWholeFile;

// A generator of deterministic bytes, so the seeds are the same on every run.
class ByteSource {
 public:
  uint8_t Next() {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<uint8_t>(state_ >> 56);
  }

 private:
  uint64_t state_ = 0x7a5e11;
};

std::string RandomBytes(size_t count, ByteSource& source) {
  std::string bytes;
  for (size_t i = 0; i < count; ++i) bytes.push_back(static_cast<char>(source.Next()));
  return bytes;
}

// Mostly random bytes with a little text between them: over 32 KiB of symbols, so the
// codec's Huffman tree is rebuilt, in an input short enough to mutate quickly.
std::string MixedBytes(ByteSource& source) {
  std::string bytes;
  while (bytes.size() < 36000) {
    bytes += "[File]\nName = lib" + std::to_string(bytes.size()) + ".so\n";
    bytes += RandomBytes(200 + source.Next() % 200, source);
  }
  return bytes;
}

std::string Compress(const std::string& plain) {
  auto codec = std::make_unique<tk::LzhufCodec>();
  std::vector<uint8_t> packed;
  const auto* bytes = reinterpret_cast<const uint8_t*>(plain.data());
  tk::LzhufEncodeBuffer(*codec, std::span(bytes, plain.size()), packed);
  return std::string(packed.begin(), packed.end());
}

bool Fail(const std::string& message) {
  std::fprintf(stderr, "fuzz_seeds: %s\n", message.c_str());
  return false;
}

// The plain record stream that the builder makes of `description` over the seed tree.
bool BuiltStream(const ScratchDirectory& scratch, const char* description, std::string& stream) {
  const std::string descriptionPath = scratch.Path("seed.desc");
  const std::string package = scratch.Path("seed.pkg");
  const std::string plain = scratch.Path("seed.stream");
  if (!WriteWholeFile(descriptionPath, description)) return Fail("cannot write " + descriptionPath);
  tk::TkPackage builder;
  const std::string base = scratch.Path("base");
  if (!builder.BuildPackage(descriptionPath.c_str(), base.c_str(), package.c_str())) {
    return Fail("cannot build " + package + ": " + builder.ErrorText());
  }
  auto codec = std::make_unique<tk::LzhufCodec>();
  if (tk::LzhufDecodeFile(*codec, package.c_str(), plain.c_str(), 0) != tk::kLzhufOk) {
    return Fail("cannot decode " + package);
  }
  stream = tk::fuzz::ReadWholeFile(plain);
  return true;
}

class SeedWriter {
 public:
  explicit SeedWriter(std::string directory) : directory_(std::move(directory)) {}
  bool Write(const char* target, const std::string& name, const std::string& bytes) {
    const std::string path = directory_ + "/" + target + "/" + name;
    return WriteWholeFile(path, bytes) || Fail("cannot write " + path);
  }

 private:
  std::string directory_;
};

bool WriteCodecSeeds(SeedWriter& out, const std::string& stream) {
  ByteSource source;
  const std::string inputs[][2] = {
      {"one_byte", "A"},
      {"spaces", std::string(10, ' ')},
      {"text", "The package is compressed as a whole.\nThe package is compressed.\n"},
      {"random", RandomBytes(3000, source)},
      {"zeros", std::string(5000, '\0')},
      {"stream", stream},
      {"mixed", MixedBytes(source)},
  };
  for (const auto& input : inputs) {
    if (!out.Write("lzhuf_round_trip", input[0], input[1])) return false;
    if (!out.Write("lzhuf_threads", input[0], input[1])) return false;
    if (input[0] == "mixed") continue;  // too long to be worth decoding at every step
    if (!out.Write("lzhuf_decode", input[0], Compress(input[1]))) return false;
  }
  return out.Write("lzhuf_decode", "empty", Compress("")) &&
         out.Write("lzhuf_decode", "huge_header", "\xff\xff\xff\x7f" + RandomBytes(64, source));
}

bool WriteStreamSeeds(SeedWriter& out, const std::string& stream, const std::string& perl) {
  const std::string header = "TAVIK PACKAGE FILE\n1\n[HEADER]\nVersion = 1\n";
  for (const char* target : {"install_package", "record_walk", "diff_uninstall"}) {
    if (!out.Write(target, "built", stream) || !out.Write(target, "perl", perl) ||
        !out.Write(target, "header", header)) {
      return false;
    }
  }
  // safe_install takes a variant byte first: checked, tree alone, component walk.
  const std::string escape =
      "TAVIK PACKAGE FILE\n1\n[Dir]\nName = out\n\n[File]\nName = x\n"
      "Size = 1\nx\n\n[RmDir]\nName = abs\nWithsubdir = YES\n\n";
  for (const char variant : {'\0', '\1', '\3'}) {
    const std::string tag(1, static_cast<char>('0' + variant));
    if (!out.Write("safe_install", "built" + tag, variant + stream) ||
        !out.Write("safe_install", "escape" + tag, variant + escape)) {
      return false;
    }
  }
  return true;
}

bool WriteTextSeeds(SeedWriter& out) {
  const std::string descriptions[][2] = {
      {"seed", tk::fuzz::kSeedDescription},
      {"perl", tk::fuzz::kPerlSeedDescription},
      {"bad_directory", "[a/../b]\ncopyfile: x\n"},
      {"no_source", "[Bin]\nx=\n"},
  };
  const std::string ini[][2] = {
      {"found", "Main\nName\nnone\n64\n[Main]\r\nName = tavik\r\nPort=8080\r\n"},
      {"cut", "general\nPATH\n/default\n3\n[ General ]\n\tPath  =  /opt/x \n[Other]\nPath=y\n"},
      {"missing", "Main\nkey\ndefault value\n0\n[Main] extra\n;key=1\nkeys=2\n"},
  };
  const std::string strings[][2] = {
      {"url", "path/to file?x=1&y=%41"},
      {"xml", "<a href='x'>\"&amp;\"</a> &lt;"},
      {"blanks", " \t two  blanks\r\n and\tmore "},
  };
  for (const auto& seed : descriptions) {
    if (!out.Write("check_description", seed[0], seed[1])) return false;
  }
  for (const auto& seed : ini) {
    if (!out.Write("read_ini_value", seed[0], seed[1])) return false;
  }
  for (const auto& seed : strings) {
    if (!out.Write("strings", seed[0], seed[1])) return false;
  }
  return true;
}

// A throwaway key pair (the secret key without password, and a second one protected by
// the password "secret"), and "hello\n" signed prehashed and legacy, as minisign wrote
// them.
bool WriteMinisignSeeds(SeedWriter& out) {
  const std::string files[][2] = {
      {"public_key",
       "untrusted comment: minisign public key D92C454D50C27F11\n"
       "RWQRf8JQTUUs2eUtwaJ1AJwDdK4LJBC7420tgA13h6Z5yMnWUygClris\n"},
      {"secret_key",
       "untrusted comment: minisign encrypted secret key\n"
       "RWQAAEIyAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAEX/CUE1FLNlq"
       "YVMiC/t/JIPkLBORu/va5YWZvoC9HQ3vAGyNkIrjROUtwaJ1AJwDdK4LJBC7420tgA13h6Z5yMnWUygClris"
       "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=\n"},
      {"protected_key",
       "untrusted comment: minisign encrypted secret key\n"
       "RWRTY0IyV5Lr8Tsd7GjBlJHvQWrTLIIyk1lrmA2gy7D6Pix6LMYAAAACAAAAAAAAAEAAAAAA0anjesGi2/ik"
       "eSc+NVbJE7p7maOf0+9+M+R0b/ONkn3mOicZhzbcmyCf5k46LuaZMttqBPZKyg4FF10u8sQMZQ9IxLodNxgK"
       "xBZ1mRgrUBCbAc8z6CMLjWD3sSwwowKehk8UBAtIR3U=\n"},
      {"signature",
       "untrusted comment: signature from minisign secret key\n"
       "RUQRf8JQTUUs2W7BuIGaDoGAN27RcC2Ajx91eSOPMM5vj+vqozIyss695f3DK/Bs7OVH3H+CWGUnvaWrOrx+"
       "p32lY3mZWQippAY=\n"
       "trusted comment: timestamp:1795463266\tfile:f.txt\thashed\n"
       "q4G34nXLztA/KHTpmMoVcjjVC618I8hh/D2KOfFfIZcYcISASMvb77CupgwqpFKGjH7o04ryHh2khxsaqQtz"
       "Aw==\n"},
      {"legacy_signature",
       "untrusted comment: signature from minisign secret key\n"
       "RWQRf8JQTUUs2dbX7xLcd4QQKnDhNnG4qWTvypSKxcPrwjG0XRnqcsqtF897UwsamSRbvi0YWyGuKXzUIwrl"
       "uGonNmdnxKd49As=\n"
       "trusted comment: timestamp:1795463266\tfile:g.txt\n"
       "E+mJEDKp1tFx1sFFQOwLMpJpNYgIYFjOSsuaYUwn/Y5ewPBUwVLWsyPD19rTNydO5a6q6RUwtpttWjImaQCi"
       "Bw==\n"}};
  for (const auto& file : files) {
    if (!out.Write("minisign_parse", file[0], file[1])) return false;
  }
  return true;
}

bool WriteAllSeeds(const std::string& directory) {
  ScratchDirectory scratch("seeds");
  tk::fuzz::MakeSourceTree(scratch.Path("base"));
  std::string stream, perl;
  if (!BuiltStream(scratch, tk::fuzz::kSeedDescription, stream) ||
      !BuiltStream(scratch, tk::fuzz::kPerlSeedDescription, perl)) {
    return false;
  }
  SeedWriter out(directory);
  return WriteCodecSeeds(out, stream) && WriteStreamSeeds(out, stream, perl) &&
         WriteTextSeeds(out) && WriteMinisignSeeds(out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2) return WriteAllSeeds(argv[1]) ? 0 : 1;
  std::fprintf(stderr, "usage: fuzz_seeds OUTDIR\n");
  return 1;
}
