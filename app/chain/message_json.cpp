// SPDX-License-Identifier: MIT
#include "app/chain/message_json.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <type_traits>
#include <utility>

#include "app/support/base64.h"
#include "app/support/failure.h"
#include "app/support/json.h"
#include "host/raster.h"

namespace corvane {
namespace {

using nlohmann::json;

struct RasterField {
  const char* name;
  std::uint32_t QRaster::*value;
};

constexpr RasterField kRasterFields[] = {
    {"RasterFormat", &QRaster::RasterFormat},
    {"PassThroughValue", &QRaster::PassThroughValue},
    {"Row", &QRaster::Row},
    {"FirstPixel", &QRaster::FirstPixel},
    {"EndPixel", &QRaster::EndPixel},
    {"Width", &QRaster::Width},
    {"RowBytes", &QRaster::RowBytes},
};

// A message of any class whose pass-through answer comes from the script.
template <typename Message>
class Scripted final : public Message {
 public:
  Scripted(std::uint16_t kind, std::uint32_t passThrough) : passThrough_(passThrough) {
    this->MessageKind = kind;
  }
  unsigned long IsPassThrough() override { return passThrough_; }

 private:
  std::uint32_t passThrough_;
};

std::unique_ptr<ZCOM::QObject> MakeMessage(std::uint16_t kind, std::uint32_t passThrough) {
  switch (kind) {
    case kStartPageMessage:
      return std::make_unique<Scripted<QStartPage>>(kind, passThrough);
    case kRgbRasterMessage:
      return std::make_unique<Scripted<QRaster>>(kind, passThrough);
    case kContoneRasterMessage:
      return std::make_unique<Scripted<QCMYKContoneRaster>>(kind, passThrough);
    case kBinaryRasterMessage:
      return std::make_unique<Scripted<QCMYKBinaryRaster>>(kind, passThrough);
    case kErrorMessage:
      return std::make_unique<Scripted<QError>>(kind, passThrough);
    default:
      return std::make_unique<Scripted<ZCOM::QObject>>(kind, passThrough);
  }
}

// ---------------------------------------------------------------------------------------------
// Reading

// The member `key`, or null when it is missing or null: the two mean the same in a script.
const json* Member(const json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() || found->is_null() ? nullptr : &*found;
}

void RequireObject(const json& value, std::string_view name) {
  if (!value.is_object()) throw Failure(fmt::format("{} is not an object", name));
}

template <typename Names>
void RefuseOtherKeys(const json& object, std::string_view name, const Names& allowed) {
  for (const auto& member : object.items()) {
    if (std::find(std::begin(allowed), std::end(allowed), member.key()) == std::end(allowed)) {
      throw Failure(fmt::format("{} has an unknown key \"{}\"", name, member.key()));
    }
  }
}

// The framework takes names and values as C strings.
const char* TextOf(const std::string& text, std::string_view name) {
  if (text.find('\0') != std::string::npos) {
    throw Failure(fmt::format("\"{}\" holds a zero character", name));
  }
  return text.c_str();
}

void SetProperty(const std::string& group, const std::string& key, const json& value,
                 ZCOM::PROPERTIES* bag) {
  const char* groupName = TextOf(group, group);
  const char* keyName = TextOf(key, key);
  if (value.is_string()) {
    bag->SetProperty(keyName, TextOf(value.get_ref<const std::string&>(), key), groupName);
    return;
  }
  if (!value.is_number_integer()) {
    throw Failure(fmt::format("\"{}\" is neither an integer nor a string", key));
  }
  using Int = std::numeric_limits<std::int32_t>;
  if (value.is_number_unsigned()) {
    const auto number = value.get<std::uint64_t>();
    if (number > std::numeric_limits<std::uint32_t>::max()) {
      throw Failure(fmt::format("\"{}\" does not fit 32 bits", key));
    }
    if (number > static_cast<std::uint64_t>(Int::max())) {
      bag->SetProperty(keyName, static_cast<unsigned long>(number), groupName);
      return;
    }
  }
  const auto number = value.get<std::int64_t>();
  if (number < Int::min()) throw Failure(fmt::format("\"{}\" does not fit 32 bits", key));
  bag->SetProperty(keyName, static_cast<int>(number), groupName);
}

// A bag is an object of groups, a group an object of entries. A null entry is a missing one.
void ReadProperties(const json& value, std::string_view name, ZCOM::PROPERTIES* bag) {
  RequireObject(value, name);
  for (const auto& group : value.items()) {
    if (group.value().is_null()) continue;
    RequireObject(group.value(), fmt::format("{}: group \"{}\"", name, group.key()));
    for (const auto& entry : group.value().items()) {
      if (!entry.value().is_null()) SetProperty(group.key(), entry.key(), entry.value(), bag);
    }
  }
}

void ReadRaster(const json& value, QRaster* raster) {
  RequireObject(value, "\"raster\"");
  std::vector<std::string> names;
  for (const auto& field : kRasterFields) {
    names.emplace_back(field.name);
    if (Member(value, field.name)) TakeWholeNumber(value, field.name, &(raster->*field.value));
  }
  RefuseOtherKeys(value, "\"raster\"", names);
}

void ReadData(std::string_view text, std::vector<unsigned char>* data) {
  if (!DecodeBase64(text, data)) throw Failure("\"data\" is not base64 text");
}

// A row's data are nearly all of its line. Where they stand last, as they are recorded, this takes
// the member out and returns its text, for reading them as JSON takes longer than all the rest.
std::optional<std::string_view> TakeTrailingData(std::string_view line, std::string* rest) {
  constexpr std::string_view kStart = ",\"data\":\"";  // a string's own quotes have backslashes
  constexpr std::string_view kEnd = "\"}";
  const std::size_t start = line.find(kStart);
  if (start == std::string_view::npos || !line.ends_with(kEnd)) return std::nullopt;
  const std::string_view data = line.substr(start + kStart.size());
  const bool isPlain = data.find('\\') == std::string_view::npos;
  if (!isPlain || data.find('"') != data.size() - kEnd.size()) return std::nullopt;
  *rest = line.substr(0, start);
  *rest += '}';
  return data.substr(0, data.size() - kEnd.size());
}

ScriptMessage ReadMessage(const json& line, std::optional<std::string_view> trailingData) {
  RefuseOtherKeys(line, "the message",
                  std::initializer_list<std::string>{"kind", "properties", "pageProperties",
                                                     "raster", "data", "passThrough", "from"});
  if (!Member(line, "kind")) throw Failure("the message has no \"kind\"");
  std::uint16_t kind = 0;
  TakeWholeNumber(line, "kind", &kind);
  std::uint32_t passThrough = 0;
  if (Member(line, "passThrough")) TakeWholeNumber(line, "passThrough", &passThrough);

  ScriptMessage result{MakeMessage(kind, passThrough), {}};
  if (const json* value = Member(line, "properties")) {
    ReadProperties(*value, "\"properties\"", &result.message->Properties);
  }
  if (const json* value = Member(line, "pageProperties")) {
    if (kind != kStartPageMessage) throw Failure("only kind 2 has \"pageProperties\"");
    ReadProperties(*value, "\"pageProperties\"",
                   &static_cast<QStartPage&>(*result.message).PageProperties);
  }

  QRaster* raster = AsRaster(*result.message);
  const json* rasterValue = Member(line, "raster");
  const json* dataValue = Member(line, "data");
  if (!raster && (rasterValue || dataValue || trailingData)) {
    throw Failure("only kinds 5, 6 and 7 have a \"raster\" and \"data\"");
  }
  if (rasterValue) ReadRaster(*rasterValue, raster);
  if (dataValue && !dataValue->is_string()) throw Failure("\"data\" is not base64 text");
  if (dataValue) ReadData(dataValue->get_ref<const std::string&>(), &result.data);
  if (trailingData) ReadData(*trailingData, &result.data);
  if (raster) raster->Data = result.data.data();
  return result;
}

ChainSetup ReadSetup(const json& line) {
  RefuseOtherKeys(line, "the host line",
                  std::initializer_list<std::string>{"host", "elements", "chain"});
  ChainSetup setup;
  if (const json* value = Member(line, "host")) ReadProperties(*value, "\"host\"", &setup.host);
  if (const json* value = Member(line, "elements")) {
    RequireObject(*value, "\"elements\"");
    RefuseOtherKeys(*value, "\"elements\"", kWholeChain);
    for (const auto& element : value->items()) {
      ReadProperties(element.value(), element.key(), &setup.elementProperties[element.key()]);
    }
  }
  if (const json* value = Member(line, "chain")) {
    if (!value->is_array() || value->empty()) {
      throw Failure("\"chain\" is not a list of element names");
    }
    setup.elements.clear();
    for (const json& name : *value) {
      if (std::find(kWholeChain.begin(), kWholeChain.end(), name) == kWholeChain.end()) {
        throw Failure(fmt::format("\"chain\" names no element with {}", name.dump()));
      }
      setup.elements.push_back(name);
    }
  }
  return setup;
}

// ---------------------------------------------------------------------------------------------
// Writing

void AppendQuoted(std::string_view value, std::string* text) {
  const bool isPlain = std::all_of(value.begin(), value.end(), [](char c) {
    return c >= ' ' && c <= '~' && c != '"' && c != '\\';
  });
  if (isPlain) {
    *text += '"';
    *text += value;
    *text += '"';
    return;
  }
  // Bytes that are no UTF-8 are replaced: JSON has no other form for them.
  *text += JsonText(json(value), -1);
}

// Writes an object: its braces, and the commas between its members.
class ObjectWriter {
 public:
  explicit ObjectWriter(std::string* text) : text_(text) { *text_ += '{'; }
  ~ObjectWriter() { *text_ += '}'; }
  ObjectWriter(const ObjectWriter&) = delete;
  ObjectWriter& operator=(const ObjectWriter&) = delete;

  // Starts a member; its value is to follow.
  void Key(std::string_view key) {
    if (!first_) *text_ += ',';
    first_ = false;
    AppendQuoted(key, text_);
    *text_ += ':';
  }
  void Add(std::string_view key, std::string_view value) {
    Key(key);
    AppendQuoted(value, text_);
  }
  template <typename Integer, typename = std::enable_if_t<std::is_integral_v<Integer>>>
  void Add(std::string_view key, Integer value) {
    Key(key);
    fmt::format_to(std::back_inserter(*text_), "{}", value);
  }

 private:
  std::string* text_;
  bool first_ = true;
};

void AppendProperties(const ZCOM::PROPERTIES& bag, std::string* text) {
  ObjectWriter groups(text);
  const auto* entry = bag.First();
  while (entry != nullptr) {
    const std::string_view group = entry->Group();
    groups.Key(group);
    ObjectWriter entries(text);
    for (; entry != nullptr && entry->Group() == group; entry = entry->Next()) {
      if (entry->Text() != nullptr) {
        entries.Add(entry->Key(), std::string_view(entry->Text()));
      } else if (entry->IsSigned()) {
        entries.Add(entry->Key(), static_cast<std::int32_t>(entry->Bits()));
      } else {
        entries.Add(entry->Key(), entry->Bits());
      }
    }
  }
}

void AppendRasterFields(const QRaster& raster, std::string* text) {
  ObjectWriter fields(text);
  for (const auto& field : kRasterFields) fields.Add(field.name, raster.*field.value);
}

}  // namespace

QRaster* AsRaster(ZCOM::QObject& message) {
  switch (message.MessageKind) {
    case kRgbRasterMessage:
    case kContoneRasterMessage:
    case kBinaryRasterMessage:
      return static_cast<QRaster*>(&message);
    default:
      return nullptr;
  }
}

std::variant<ChainSetup, ScriptMessage> ParseScriptLine(std::string_view line) {
  std::string rest;
  const std::optional<std::string_view> data = TakeTrailingData(line, &rest);
  const json value = ParseJson(data ? rest : line);
  RequireObject(value, "the line");
  const bool isSetup =
      value.contains("host") || value.contains("elements") || value.contains("chain");
  if (isSetup && !data) return ReadSetup(value);
  return ReadMessage(value, data);
}

void AppendSetupLine(const ChainSetup& setup, std::string* text) {
  {
    ObjectWriter line(text);
    line.Key("host");
    AppendProperties(setup.host, text);
    line.Key("elements");
    {
      ObjectWriter elements(text);
      for (const auto& [name, bag] : setup.elementProperties) {
        elements.Key(name);
        AppendProperties(bag, text);
      }
    }
    line.Key("chain");
    *text += json(setup.elements).dump();
  }
  *text += '\n';
}

void AppendMessageLine(ZCOM::QObject& message, std::string_view from, std::size_t dataBytes,
                       std::string* text) {
  const bool isPageStart = message.MessageKind == kStartPageMessage;
  {
    ObjectWriter line(text);
    if (!from.empty()) line.Add("from", from);
    line.Add("kind", message.MessageKind);
    if (const unsigned long passThrough = message.IsPassThrough()) {
      line.Add("passThrough", passThrough);
    }
    if (isPageStart || message.Properties.First() != nullptr) {
      line.Key("properties");
      AppendProperties(message.Properties, text);
    }
    if (isPageStart) {
      line.Key("pageProperties");
      AppendProperties(static_cast<QStartPage&>(message).PageProperties, text);
    }
    if (const QRaster* raster = AsRaster(message)) {
      line.Key("raster");
      AppendRasterFields(*raster, text);
      line.Key("data");
      *text += '"';
      AppendBase64(raster->Data, dataBytes, text);
      *text += '"';
    }
  }
  *text += '\n';
}

void AppendResultLine(unsigned long result, std::string* text) {
  {
    ObjectWriter line(text);
    line.Add("result", result);
  }
  *text += '\n';
}

}  // namespace corvane
