#include "tkpack/json_report.h"

#include <sodium.h>

namespace tk {

namespace {

constexpr int kIndent = 2;

bool IsUtf8(const std::string& bytes) {
  try {
    (void)Json(bytes).dump();
    return true;
  } catch (const Json::type_error&) {
    return false;
  }
}

std::string Hex(const std::string& bytes) {
  std::string hex(bytes.size() * 2 + 1, '\0');
  sodium_bin2hex(hex.data(), hex.size(), reinterpret_cast<const unsigned char*>(bytes.data()),
                 bytes.size());
  hex.pop_back();
  return hex;
}

const char* DigestState(DigestCheck::Result result) {
  switch (result) {
    case DigestCheck::Result::kMatch:
      return "ok";
    case DigestCheck::Result::kMismatch:
      return "mismatch";
    case DigestCheck::Result::kMalformed:
      return "malformed";
    case DigestCheck::Result::kUnreadable:
      return "unreadable";
    case DigestCheck::Result::kAbsent:
      break;
  }
  return "absent";
}

}  // namespace

void SetName(Json& object, const std::string& key, const std::string& bytes) {
  object[key] = bytes;
  if (!IsUtf8(bytes)) object[key + "_hex"] = Hex(bytes);
}

Json RecordJson(const PackageRecord& record) {
  Json json;
  json["index"] = record.index;
  json["offset"] = record.offset;
  json["kind"] = RecordKindText(record);
  json["section"] = record.section;
  SetName(json, "path", RecordTarget(record));
  if (record.kind != RecordKind::kOther) SetName(json, "name", record.name);
  if (record.kind == RecordKind::kFile) {
    json["size"] = record.size;
    json["available"] = record.available;
  }
  if (record.kind == RecordKind::kRmDir) json["with_subdirectories"] = record.withSubdirs;
  if (record.kind == RecordKind::kOther) json["lines"] = record.lines;
  return json;
}

Json SummaryJson(const ListTotals& totals, int64_t streamBytes, int64_t packageBytes) {
  return {{"records", totals.records},   {"directories", totals.directories},
          {"files", totals.files},       {"content_bytes", totals.contentBytes},
          {"stream_bytes", streamBytes}, {"package_bytes", packageBytes}};
}

Json ProblemJson(const Problem& problem) {
  Json json;
  if (problem.record > 0) {
    json["record"] = problem.record;
    json["offset"] = problem.offset;
    json["kind"] = problem.kind;
    SetName(json, "path", problem.target);
  }
  json["message"] = problem.message;
  json["text"] = problem.Text();
  return json;
}

Json DigestJson(const DigestCheck& check) {
  Json json;
  json["state"] = DigestState(check.result);
  if (!check.expected.empty()) json["expected"] = "sha256:" + check.expected;
  if (!check.actual.empty()) json["actual"] = "sha256:" + check.actual;
  json["message"] = DigestCheckText(check);
  return json;
}

Json SignatureJson(const SignatureFacts& facts) {
  return {{"key", facts.keyId}, {"trusted_comment", facts.trustedComment}};
}

Json HeaderJson(const std::string& packagePath, const std::vector<std::string>& lines) {
  Json fields = Json::array();
  for (const std::string& line : lines) {
    const std::size_t equals = line.find('=');
    std::string key = line.substr(0, equals), value = line.substr(equals + 1);
    key.erase(key.find_last_not_of(' ') + 1);
    value.erase(0, value.find_first_not_of(' '));
    fields.push_back({{"key", key}, {"value", value}});
  }
  return {{"package", packagePath}, {"lines", lines}, {"fields", fields}};
}

Json DifferenceJson(const TreeDifference& difference) {
  Json json;
  json["kind"] = DifferenceTag(difference.kind);
  SetName(json, "path", difference.path);
  if (!difference.detail.empty()) json["detail"] = difference.detail;
  return json;
}

int ReportJsonFailure(ToolIo& io, const std::string& packagePath, const std::string& message) {
  PrintJson(io.out, {{"package", packagePath}, {"error", message}});
  return ReportFailure(io, message);
}

void PrintJson(FILE* out, const Json& document) {
  const std::string text = document.dump(kIndent, ' ', false, Json::error_handler_t::replace);
  std::fprintf(out, "%s\n", text.c_str());
}

}  // namespace tk
