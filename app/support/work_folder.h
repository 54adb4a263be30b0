// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

#include "app/support/abnormal_end.h"
#include "app/support/descriptor.h"

namespace corvane {

// A hidden folder, `.corvane-BOOT-RANDOM`, beside the files that a run writes: they grow in it
// under short names and then move up. Nobody else may enter it, so that no name in it can be a
// trap.
//
// A run that was killed leaves its folder to the next one, which removes it. A living run is known
// by its lock on a file in the folder; the lock ends with the process, whatever ends that. Locks of
// other computers on a network folder may not be seen, so a folder that was not made since this
// computer was started (BOOT) also has to lie untouched for a week.
class WorkFolder : private Cleaner {
 public:
  // Made in `folder`; what dead runs have left there is removed when a process makes its first.
  // Throws Failure naming `file`, for which it is made.
  WorkFolder(const std::filesystem::path& folder, const std::filesystem::path& file);
  ~WorkFolder() override;
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  const std::filesystem::path& Path() const { return path_; }
  // Whether a file in it is the one that keeps it.
  static bool IsLock(const std::filesystem::path& file);
  // Whether a folder is called as one.
  static bool IsNamedAsOne(const std::filesystem::path& folder);

  // A path in it that was not given before.
  std::filesystem::path NextPath() { return path_ / std::to_string(++given_); }

  // Returns when the names in it and beside it are on the medium; false and errno else.
  bool Sync() const { return SyncFolder(path_) && SyncFolder(folder_); }

 private:
  void TakeAway() noexcept override;
  bool TryMake();

  std::filesystem::path folder_, path_;
  std::filesystem::path lockPath_;  // kept, so that clearing up takes no memory
  Descriptor lock_;
  int given_ = 0;
};

}  // namespace corvane
