// SPDX-License-Identifier: MIT
#include "app/jobs/manifest.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "app/jobs/digest.h"
#include "app/support/failure.h"
#include "app/support/json.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

std::string Line(const Json& json, const std::string& what) {
  try {
    return json.dump() + '\n';
  } catch (const Json::exception&) {
    throw Failure(what + ": the name is no UTF-8 text, which a manifest needs");
  }
}

JobPage PageFrom(const nlohmann::json& json) {
  JobPage page;
  TakeWholeNumber(json, "page", &page.number);
  json.at("input").get_to(page.input);
  json.at("sha256").get_to(page.inputSha256);
  TakeWholeNumber(json, "bytes", &page.inputBytes);
  TakeWholeNumber(json, "inputPage", &page.inputPage);
  json.at("settings").get_to(page.settings);
  if (json.contains("tags")) json.at("tags").get_to(page.tagsSha256);
  json.at("colorTable").get_to(page.colorTableSha256);
  json.at("output").get_to(page.output);
  json.at("program").get_to(page.program);
  json.at("cost").get_to(page.cost);
  return page;
}

// The last line, however long the file is.
std::string LastLine(std::ifstream& file) {
  constexpr std::streamoff kMost = 4096;
  file.seekg(0, std::ios::end);
  const std::streamoff size = file.tellg();
  if (size < 0) return {};  // of what cannot be gone about in
  const std::streamoff start = std::max<std::streamoff>(0, size - kMost);
  std::string text(static_cast<std::size_t>(size - start), '\0');
  file.seekg(start);
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!file || !text.ends_with('\n')) return {};
  text.pop_back();
  const std::size_t before = text.rfind('\n');
  return before == std::string::npos ? text : text.substr(before + 1);
}

}  // namespace

bool NamesFile(const std::string& setting, const std::string& value) {
  return setting == "color-table" || (setting == "tags" && value != "none");
}

std::string KeyOf(const JobPage& page) {
  Json settings = Json::object();
  for (const auto& [name, value] : page.settings) {
    if (!NamesFile(name, value)) settings[name] = value;
  }
  const Json key = {{"input", page.inputSha256},
                    {"page", page.inputPage},
                    {"settings", settings},
                    {"tags", page.tagsSha256},
                    {"colorTable", page.colorTableSha256},
                    {"program", page.program}};
  return Sha256OfText(key.dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::string FormKeyOf(const JobPage& page) {
  JobPage form = page;
  form.inputSha256.clear();
  form.inputPage = 0;
  form.tagsSha256 = page.settings.contains("tags") ? "any" : "";
  return KeyOf(form);
}

void ManifestWriter::Add(const JobPage& page) {
  ++totals_.pages;
  totals_.cost += page.cost;
  Json json = {{"page", totals_.pages},       {"input", page.input},
               {"sha256", page.inputSha256},  {"bytes", page.inputBytes},
               {"inputPage", page.inputPage}, {"settings", page.settings}};
  if (!page.tagsSha256.empty()) json["tags"] = page.tagsSha256;
  json["colorTable"] = page.colorTableSha256;
  json["output"] = page.output;
  json["program"] = page.program;
  json["cost"] = page.cost;
  file_.Append(Line(json, page.input));
}

void ManifestWriter::Finish() {
  file_.Append(Line({{"pages", totals_.pages}, {"cost", totals_.cost}}, "manifest"));
}

ManifestReader::ManifestReader(const fs::path& path) : path_(path), file_(path, std::ios::binary) {
  if (!file_) FailOfSystem(path.string(), errno);
  try {
    const std::string line = LastLine(file_);
    if (file_.bad()) FailOfSystem(path.string(), errno);
    const nlohmann::json last = ParseJson(line);
    TakeWholeNumber(last, "pages", &totals_.pages);
    last.at("cost").get_to(totals_.cost);
  } catch (const Json::exception&) {
    FailAsNoJob();
  } catch (const TransientFailure&) {
    throw;
  } catch (const Failure&) {
    FailAsNoJob();
  }
  file_.clear();
  file_.seekg(0);
}

bool ManifestReader::Next(JobPage* page) {
  if (line_ == totals_.pages) return false;
  ++line_;
  std::string text;
  if (!std::getline(file_, text)) {
    if (file_.bad()) FailOfSystem(path_.string(), errno);
    Fail("the page is missing");
  }
  try {
    *page = PageFrom(ParseJson(text));
  } catch (const Json::exception& error) {
    Fail(std::string("is no page of a job: ") + error.what());
  } catch (const Failure& error) {
    Fail(std::string("is no page of a job: ") + error.what());
  }
  if (page->number != line_) Fail(fmt::format("holds page {}", page->number));
  if (page->inputPage < 1) Fail("the pages of an input begin with 1");
  return true;
}

void ManifestReader::FailAsNoJob() const {
  throw Failure(path_.string() + ": is no job, or was cut short: its last line is missing");
}

void ManifestReader::Fail(const std::string& what) const {
  throw Failure(fmt::format("{}:{}: {}", path_.string(), line_, what));
}

fs::path ResolvePath(const fs::path& manifest, const std::string& path) {
  return manifest.parent_path() / path;  // which is `path` alone if that is absolute
}

std::string PathForManifest(const fs::path& manifest, const fs::path& path) {
  // Behind a link, ".." is not the folder that the link lies in.
  const auto climbs = [](const fs::path& any) {
    return std::find(any.begin(), any.end(), "..") != any.end();
  };
  const bool followed = climbs(manifest) || climbs(path);
  const auto wholeOf = [&](const fs::path& any) {
    const fs::path absolute = fs::absolute(any);
    return followed ? fs::weakly_canonical(absolute) : absolute.lexically_normal();
  };
  const fs::path folder = wholeOf(fs::absolute(manifest).parent_path());
  const fs::path whole = wholeOf(path);
  const fs::path inside = whole.lexically_relative(folder);
  if (inside.empty() || *inside.begin() == "..") return whole.string();
  // "-" alone is the standard input.
  return inside == "-" ? "./-" : inside.string();
}

}  // namespace corvane
