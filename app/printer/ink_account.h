// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <filesystem>
#include <mutex>
#include <vector>

#include "app/inks/ink_use.h"
#include "printmode/print_mode.h"

namespace corvane {

// How much ink has been printed since each cartridge was set, kept in a file. Several threads may
// use it.
class InkAccount {
 public:
  // A file that is missing begins with full cartridges. Throws Failure for one that is damaged.
  InkAccount(std::filesystem::path file, double cartridgeMillilitres);

  void Take(const std::vector<InkUse>& uses);
  // A full cartridge has been set.
  void Refill(Ink ink);
  // Writes the file. Throws Failure.
  void Save();

  // What is left of a cartridge, per cent; 0 where more was printed than it held.
  int Level(Ink ink) const;

 private:
  std::filesystem::path file_;
  double cartridge_;  // nanolitres
  mutable std::mutex mutex_;
  std::array<double, kInkCount> used_ = {};  // nanolitres
};

}  // namespace corvane
