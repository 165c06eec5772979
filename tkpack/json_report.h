// The --json output of tkpack's reports: one JSON document on standard output, with
// these stable keys (a key whose value is unknown or does not apply is left out):
//
//   list:    {"package", "records": [RECORD...], "summary": {"records", "directories",
//             "files", "content_bytes", "stream_bytes", "package_bytes"}, "error"?}
//   RECORD:  {"index", "offset", "kind", "section", "path", "name", "size"?,
//             "available"?, "with_subdirectories"?, "lines"?}
//            kind: "Dir", "File", "RmDir", "RemoveFile", "Exec", "TextFile", "TextDir",
//            "Header", "Other"; path: where it acts, relative to the installation
//            directory; size/available: a [File]'s announced and present bytes;
//            lines: a HEADER's or other section's lines.
//   verify:  {"package", "records", "ok", "signature"? {"key", "trusted_comment"},
//             "digest" {"state", "expected"?, "actual"?, "message"},
//             "problems": [PROBLEM...]}
//            state: "ok", "absent", "mismatch", "malformed", "unreadable".
//   PROBLEM: {"record"?, "offset"?, "kind"?, "path"?, "message", "text"}
//            (record, offset, kind and path for problems of one record; text is the
//            line the plain report prints).
//   header:  {"package", "lines": [...], "fields": [{"key", "value"}...]}
//   diff:    {"package", "directory", "matches", "differences": [{"kind", "path",
//             "detail"?}...]}  kind: the tags of tree_compare.h ("missing", ...).
//   a command that fails: {"package", "error"} (the message is on standard error too).
//
// Names are bytes. Every string is written as UTF-8; a byte sequence that is not UTF-8
// becomes U+FFFD, and then a name field ("path", "name") comes with a twin ending in
// "_hex" ("path_hex") that holds its exact bytes as lower-case hex.
//
// Thread-safe: pure functions.
#ifndef TAVIK_TKPACK_JSON_REPORT_H_
#define TAVIK_TKPACK_JSON_REPORT_H_

#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "package/record_reader.h"
#include "tkpack/commands.h"
#include "tkpack/digest.h"
#include "tkpack/package_signature.h"
#include "tkpack/record_report.h"
#include "tkpack/tree_compare.h"

namespace tk {

using Json = nlohmann::ordered_json;

// Sets `object[key]` to `bytes`, with the "_hex" twin when they are not UTF-8.
void SetName(Json& object, const std::string& key, const std::string& bytes);

Json RecordJson(const PackageRecord& record);
Json SummaryJson(const ListTotals& totals, int64_t streamBytes, int64_t packageBytes);
Json ProblemJson(const Problem& problem);
Json DigestJson(const DigestCheck& check);
Json SignatureJson(const SignatureFacts& facts);
Json HeaderJson(const std::string& packagePath, const std::vector<std::string>& lines);
Json DifferenceJson(const TreeDifference& difference);

// When a command with --json fails, {"package", "error"} on standard output as well as
// the message on standard error; returns kExitFailure.
int ReportJsonFailure(ToolIo& io, const std::string& packagePath, const std::string& message);

// Writes `document` and a LF to `out`, indented by two, bytes that are not UTF-8
// replaced.
void PrintJson(FILE* out, const Json& document);

}  // namespace tk

#endif  // TAVIK_TKPACK_JSON_REPORT_H_
