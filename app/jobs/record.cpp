// SPDX-License-Identifier: MIT
#include "app/jobs/record.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <nlohmann/json.hpp>
#include <system_error>

#include "app/support/failure.h"
#include "app/support/json.h"
#include "app/support/lines.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

bool AreThere(const fs::path& folder, const std::vector<OutputDigest>& files) {
  for (const OutputDigest& file : files) {
    std::error_code problem;
    if (fs::file_size(folder / file.name, problem) != file.bytes || problem) return false;
  }
  return true;
}

}  // namespace

std::string ToJson(const PageRecord& record) {
  Json json = {{"page", record.page}, {"key", record.key}};
  if (record.failure.empty()) {
    Json files = Json::array(), inks = Json::array();
    for (const OutputDigest& file : record.files) {
      files.push_back({{"name", file.name}, {"bytes", file.bytes}, {"sha256", file.sha256}});
    }
    for (const RecordedInk& ink : record.inks) {
      inks.push_back({{"ink", ink.ink}, {"drops", ink.drops}, {"nanolitres", ink.nanolitres}});
    }
    json["files"] = files;
    json["inks"] = inks;
    if (!record.remarks.empty()) json["remarks"] = record.remarks;
  } else {
    json["failure"] = record.failure;
  }
  json["seconds"] = record.seconds;
  json["host"] = record.host;
  json["finished"] = record.finished;
  if (record.reusedRows > 0) json["reusedRows"] = record.reusedRows;
  if (record.fromCache) json["fromCache"] = true;
  return JsonText(json) + '\n';
}

std::optional<PageRecord> RecordFromJson(const std::string& text) {
  try {
    const nlohmann::json json = ParseJson(text);
    PageRecord record;
    TakeWholeNumber(json, "page", &record.page);
    json.at("key").get_to(record.key);
    if (json.contains("failure")) {
      json.at("failure").get_to(record.failure);
    } else {
      for (const auto& file : json.at("files")) {
        record.files.push_back({file.at("name"), 0, file.at("sha256")});
        TakeWholeNumber(file, "bytes", &record.files.back().bytes);
      }
      for (const auto& ink : json.at("inks")) {
        record.inks.push_back({ink.at("ink"), 0, ink.at("nanolitres")});
        TakeWholeNumber(ink, "drops", &record.inks.back().drops);
      }
      record.remarks = json.value("remarks", record.remarks);
    }
    json.at("seconds").get_to(record.seconds);
    json.at("host").get_to(record.host);
    json.at("finished").get_to(record.finished);
    if (json.contains("reusedRows")) {
      TakeWholeNumber(json, "reusedRows", &record.reusedRows);
    }
    record.fromCache = json.value("fromCache", false);
    return record;
  } catch (const Json::exception&) {
    return std::nullopt;
  } catch (const Failure&) {
    return std::nullopt;
  }
}

std::optional<PageRecord> ReadRecord(const fs::path& path) {
  std::error_code problem;
  if (!fs::exists(path, problem) && !problem) return std::nullopt;
  return RecordFromJson(ReadText(path));
}

fs::path RecordPathOf(const fs::path& output) {
  return fs::path(output).replace_extension(".record.json");
}

PageStanding StandingOf(const fs::path& manifest, const JobPage& page) {
  const fs::path output = ResolvePath(manifest, page.output);
  std::optional<PageRecord> record = ReadRecord(RecordPathOf(output));
  if (!record) return {};
  if (record->key != KeyOf(page)) return {PageState::Missing, {}, true};
  if (!record->failure.empty()) return {PageState::Failed, *std::move(record), false};
  if (!AreThere(output.parent_path(), record->files)) return {};
  return {PageState::Done, *std::move(record), false};
}

std::string UtcNow() {
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::time(nullptr)));
}

}  // namespace corvane
