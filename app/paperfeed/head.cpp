// SPDX-License-Identifier: MIT
#include "app/paperfeed/head.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "app/support/failure.h"
#include "app/support/json.h"

namespace corvane {
namespace {

using Json = nlohmann::json;

// One JSON object whose members are taken one by one; what is left over is unknown.
class Members {
 public:
  Members(const Json& object, std::string where) : rest_(object), where_(std::move(where)) {
    if (!object.is_object()) throw Failure(where_ + ": not an object");
  }

  template <typename Number>
  void Take(const char* name, Number& value, Number lowest, Number highest) {
    const auto member = rest_.find(name);
    if (member == rest_.end()) return;
    const bool fits =
        std::is_integral_v<Number> ? member->is_number_integer() : member->is_number();
    if (!fits || member->get<double>() < lowest || member->get<double>() > highest) {
      throw Failure(fmt::format("{}: \"{}\" is not a {} from {} to {}", where_, name,
                                std::is_integral_v<Number> ? "whole number" : "number", lowest,
                                highest));
    }
    value = member->get<Number>();
    rest_.erase(member);
  }

  void Take(const char* name, std::string& value) {
    const auto member = rest_.find(name);
    if (member == rest_.end()) return;
    if (!member->is_string()) throw Failure(fmt::format("{}: \"{}\" is not a text", where_, name));
    value = member->get<std::string>();
    rest_.erase(member);
  }

  Json TakeArray(const char* name) {
    const auto member = rest_.find(name);
    if (member == rest_.end()) return nullptr;
    if (!member->is_array()) throw Failure(fmt::format("{}: \"{}\" is not a list", where_, name));
    Json array = *member;
    rest_.erase(member);
    return array;
  }

  void ExpectNoMore() const {
    if (rest_.empty()) return;
    throw Failure(fmt::format("{}: unknown member \"{}\"", where_, rest_.begin().key()));
  }

 private:
  Json rest_;
  std::string where_;
};

std::vector<Cartridge> ReadCartridges(const Json& array, const std::string& where) {
  std::vector<Cartridge> cartridges;
  bool taken[2] = {false, false};
  for (const Json& entry : array) {
    const std::string which = fmt::format("{}: cartridge {}", where, cartridges.size() + 1);
    Members members(entry, which);
    Cartridge cartridge;
    members.Take("name", cartridge.name);
    members.Take("location", cartridge.location, 0, 1);
    members.Take("firstNozzle", cartridge.firstNozzle, 0, 1000);
    members.ExpectNoMore();
    if (std::exchange(taken[cartridge.location], true)) {
      throw Failure(fmt::format("{}: location {} is taken", which, cartridge.location));
    }
    cartridges.push_back(cartridge);
  }
  if (cartridges.empty()) throw Failure(where + ": no cartridge");
  return cartridges;
}

}  // namespace

Printhead ReadPrinthead(const std::filesystem::path& file) {
  const std::string where = file.string();
  const Json json = ReadJsonFile(file);

  Printhead head;
  head.name = file.stem().string();
  Members members(json, where);
  members.Take("name", head.name);
  members.Take("nozzlesPerColumn", head.nozzlesPerColumn, 1, 20000);
  members.Take("nozzlesPerInch", head.nozzlesPerInch, 1, 4800);
  members.Take("feedRollerMm", head.feedRollerMm, 0.0, 1000.0);
  members.Take("exitRollerMm", head.exitRollerMm, 0.0, 1000.0);
  members.Take("topMarginMm", head.topMarginMm, 0.0, 1000.0);
  members.Take("bottomMarginMm", head.bottomMarginMm, 0.0, 1000.0);
  members.Take("bottomNozzles", head.bottomNozzles, 1, 20000);
  const Json cartridges = members.TakeArray("cartridges");
  if (!cartridges.is_null()) head.cartridges = ReadCartridges(cartridges, where);
  members.ExpectNoMore();
  return head;
}

}  // namespace corvane
