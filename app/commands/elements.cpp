// SPDX-License-Identifier: MIT
#include "app/commands/elements.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

#include "app/support/failure.h"
#include "app/support/json.h"
#include "app/support/output_stage.h"
#include "host/property_names.h"

namespace corvane {
namespace {

using property::Bag;
using property::kProperties;
using property::Property;

// An element as a host creates it, in the order of the chain.
struct Element {
  const char* name;
  const char* takes;
  const char* sends;
  const char* work;
};

constexpr Element kElements[] = {
    {"EColorInline", "RGB rows (kind 5)", "contone rows (kind 6)",
     "turns RGB rows into 1, 7 or 9 contone ink planes through the page's colour tables"},
    {"EHalftoneModule", "contone rows (kind 6)", "binary rows (kind 7)",
     "turns contone rows into binary planes by error diffusion"},
    {"EDotManagement", "binary rows (kind 7)", "binary rows (kind 7)",
     "doubles the resolution of the glossy modes and places every dot"},
};

const char* BagText(Bag bag) {
  switch (bag) {
    case Bag::Host:
      return "the host's bag (HostProperties)";
    case Bag::Element:
      return "the element's bag (Properties)";
    case Bag::Page:
      return "the page start (Properties)";
    case Bag::SecondPage:
      return "the page start's second bag (PageProperties)";
    case Bag::Error:
      return "an error message (Properties)";
  }
  return "";
}

bool Uses(const Property& candidate, std::string_view element) {
  const std::string_view users = candidate.users;
  return users.find(element) != users.npos || users.find("every element") != users.npos;
}

std::string PropertyText(const Property& entry) {
  return fmt::format(
      "{}\n  stands in  {}, group \"{}\"\n  type       {}, default {}\n  use        {}\n"
      "  meaning    {}\n",
      entry.name, BagText(entry.bag), entry.group, entry.type, entry.fallback, entry.users,
      entry.meaning);
}

std::string ElementText(const Element& element) {
  std::string text = fmt::format(
      "{}\n  {}\n  sink pad 0    takes {}; others pass\n  source pad 0  sends {}\n  properties\n",
      element.name, element.work, element.takes, element.sends);
  for (const Property& entry : kProperties) {
    if (Uses(entry, element.name))
      text += fmt::format("    {:<27} {}\n", entry.name, entry.meaning);
  }
  return text;
}

nlohmann::ordered_json ElementsJson() {
  using Json = nlohmann::ordered_json;
  Json elements = Json::array(), properties = Json::array();
  for (const Element& element : kElements) {
    elements.push_back({{"name", element.name},
                        {"work", element.work},
                        {"sinkPads", Json::array({{{"takes", element.takes}}})},
                        {"sourcePads", Json::array({{{"sends", element.sends}}})}});
  }
  for (const Property& entry : kProperties) {
    properties.push_back({{"name", entry.name},
                          {"bag", BagText(entry.bag)},
                          {"group", entry.group},
                          {"type", entry.type},
                          {"default", entry.fallback},
                          {"use", entry.users},
                          {"meaning", entry.meaning}});
  }
  return {{"elements", elements}, {"properties", properties}};
}

std::string Explanation(const std::string& name) {
  for (const Element& element : kElements) {
    if (name == element.name) return ElementText(element);
  }
  const auto* const entry =
      std::ranges::find_if(kProperties, [&](const Property& p) { return name == p.name; });
  if (entry == std::end(kProperties)) {
    throw UsageFailure(name + ": is no element and no property (corvane elements lists them)");
  }
  return PropertyText(*entry);
}

}  // namespace

int RunElements(const ElementsOptions& options) {
  if (options.json) {
    WriteStandardOutput(JsonText(ElementsJson()) + '\n');
  } else if (!options.name.empty()) {
    WriteStandardOutput(Explanation(options.name));
  } else {
    std::string text;
    for (const Element& element : kElements) text += ElementText(element) + '\n';
    WriteStandardOutput(text + "corvane elements NAME tells more of a property.\n");
  }
  return 0;
}

}  // namespace corvane
