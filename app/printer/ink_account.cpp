// SPDX-License-Identifier: MIT
#include "app/printer/ink_account.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include "app/support/failure.h"
#include "app/support/json.h"
#include "app/support/output_stage.h"

namespace corvane {
namespace {

constexpr double kNanolitresPerMillilitre = 1e6;

std::size_t At(Ink ink) { return static_cast<std::size_t>(ink); }

}  // namespace

InkAccount::InkAccount(std::filesystem::path file, double cartridgeMillilitres)
    : file_(std::move(file)), cartridge_(cartridgeMillilitres * kNanolitresPerMillilitre) {
  std::error_code ignored;
  if (!std::filesystem::exists(file_, ignored)) return;
  const nlohmann::json account = ReadJsonFile(file_);
  for (int i = 0; i < kInkCount; ++i) {
    const auto used = account.is_object() ? account.find(kInkNames[i]) : account.end();
    if (used == account.end()) continue;
    if (!used->is_number() || used->get<double>() < 0) {
      throw Failure(file_.string() + ": " + kInkNames[i] + " is no amount of ink");
    }
    used_[static_cast<std::size_t>(i)] = used->get<double>();
  }
}

void InkAccount::Take(const std::vector<InkUse>& uses) {
  const std::lock_guard lock(mutex_);
  for (const InkUse& use : uses) used_[At(use.ink)] += use.nanolitres;
}

void InkAccount::Refill(Ink ink) {
  const std::lock_guard lock(mutex_);
  used_[At(ink)] = 0;
}

void InkAccount::Save() {
  nlohmann::ordered_json account = nlohmann::ordered_json::object();
  const std::lock_guard lock(mutex_);
  for (int i = 0; i < kInkCount; ++i) account[kInkNames[i]] = used_[static_cast<std::size_t>(i)];
  WriteOutput(file_, JsonText(account) + "\n");
}

int InkAccount::Level(Ink ink) const {
  const std::lock_guard lock(mutex_);
  const double left = 100 * (1 - used_[At(ink)] / cartridge_);
  return static_cast<int>(std::lround(std::clamp(left, 0.0, 100.0)));
}

}  // namespace corvane
