// The integrity digest of a package: `tkpack build --digest` writes it, `tkpack verify`
// checks it, and an installer can check it before it applies anything.
//
// A package with a digest holds, right after its version line, a HEADER section of its
// own whose one line is "Digest = sha256:" and 64 lower-case hex digits, so that its plain
// record stream begins with exactly
//   "TAVIK PACKAGE FILE\n1\n[HEADER]\nDigest = sha256:" + 64 digits + "\n"
// (the digits at bytes 46..109, the LF at byte 110); the description's own HEADER lines
// and records follow. The digits are the SHA-256 of the whole plain record stream with
// those 64 digits written as "0" characters. Such a stream is still an ordinary package:
// the engine installs it unchanged and lists the digest line with the header lines.
// The digest guards against damage, not against forgery: anyone can recompute it.
//
// Every function that reads a FILE* leaves its position where it was. Nothing prints.
//
// Thread-safe: no shared state but libsodium's one-time initialisation.
#ifndef TAVIK_TKPACK_DIGEST_H_
#define TAVIK_TKPACK_DIGEST_H_

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "package/package.h"

namespace tk {

// The key of the digest line, and the number of hex digits that follow it.
inline constexpr const char* kDigestKey = "Digest = sha256:";
inline constexpr std::size_t kDigestDigits = 64;

// The bytes a stream with a digest begins with, up to its digits:
// "TAVIK PACKAGE FILE\n1\n[HEADER]\nDigest = sha256:" (46 bytes).
const std::string& DigestPrefix();

// How many bytes of a stream hold its digest line whole: the prefix, the digits and the
// LF (111).
std::size_t DigestLineEnd();

// What the start of a decoded stream says about its digest.
struct DigestLine {
  enum class State { kWellFormed, kMalformed, kAbsent };
  State state = State::kAbsent;
  std::string digits;   // kWellFormed: the 64 digits as written
  std::string problem;  // kMalformed: what is wrong, e.g. "\"Digest = sha256:\" is not ..."
};

// Reads the digest line from `streamStart`, the first DigestLineEnd() bytes of a decoded
// stream (all of a shorter one).
// kWellFormed: the stream begins with DigestPrefix(), 64 lower-case hex digits and a LF.
// kMalformed: it begins with DigestPrefix() but the digits or the LF are not right, or its
//   first 46 bytes differ from DigestPrefix() in exactly one byte ("[HEADEQ]", a version
//   line run into the next line, a tab in the magic line): one damaged byte never turns a
//   package with a digest into one without (pinned by Digest.FindsTheDigestLine).
// kAbsent: anything else, such as a HEADER whose first line is "Version = 5", a first
//   record that is no HEADER, or a stream that ends after its version line. A description
//   whose own HEADER begins with a "Digest = sha256:" line therefore makes a package that
//   counts as carrying a digest.
DigestLine ParseDigestLine(std::string_view streamStart);

// The SHA-256 of `stream` from its byte 0 to its end, read in blocks, with bytes 46..109
// (the digits of a digest line) counted as "0" whatever they hold: 64 lower-case hex
// digits in `digits`. False when the stream cannot be read or libsodium cannot start,
// `digits` then unchanged.
bool ComputeStreamDigest(FILE* stream, std::string& digits);

// The outcome of checking a decoded stream against its digest.
struct DigestCheck {
  enum class Result { kMatch, kMismatch, kAbsent, kMalformed, kUnreadable };
  Result result = Result::kAbsent;
  std::string expected;  // kMatch, kMismatch: the digits the stream holds
  std::string actual;    // kMatch, kMismatch: the digits the stream hashes to
  std::string problem;   // kMalformed: DigestLine::problem
};

// Checks `decodedStream` (a plain record stream open for reading, at any position)
// against its digest line: ParseDigestLine on its first bytes, then ComputeStreamDigest
// when the line is well-formed. kUnreadable when the stream cannot be read.
DigestCheck CheckStreamDigest(FILE* decodedStream);

// True when the compressed package at `packagePath` begins as every package with a digest
// does: the encoder turns the fixed 46 bytes of DigestPrefix() into the same first bytes
// of its bit stream whatever follows, and those bytes (after the 4-byte length) are here
// with at most one of them different. So a damaged byte there, which makes the decoded
// start garbage, still shows that a digest belongs in the package (pinned by
// Digest.EveryDamagedByteIsCaught).
bool CompressedStartShowsDigest(const std::string& packagePath);

// CheckStreamDigest of the package decoded into `decodedStream`, where a digest that is
// absent although CompressedStartShowsDigest(packagePath) is kMalformed.
DigestCheck CheckPackageDigest(const std::string& packagePath, FILE* decodedStream);

// True for kMismatch, kMalformed and kUnreadable: the results that make a package's
// digest a problem.
bool IsDigestProblem(const DigestCheck& check);

// How tkpack reports a check, without the package's name:
//   "digest ok (sha256:X)", "no digest",
//   "digest mismatch: the package says sha256:X, its records hash to sha256:Y",
//   "malformed digest line: " + problem, "digest not checked: the stream cannot be read".
std::string DigestCheckText(const DigestCheck& check);

// The beforeCompression hook of a digest build: computes the digest of the stream at
// `streamPath`, which must begin with a digest line of 64 "0" digits, and writes the
// digits over those zeros in place. "" on success, else the error text, e.g. "No digest
// line at the start of temporary package file x.pkg.tk_temp".
std::string WriteStreamDigest(const std::string& streamPath);

// The build options of `tkpack build --digest`: the leading lines "[HEADER]" and
// "Digest = sha256:" + 64 "0" digits, and WriteStreamDigest before compression.
BuildOptions DigestBuildOptions();

}  // namespace tk

#endif  // TAVIK_TKPACK_DIGEST_H_
