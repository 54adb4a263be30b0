// SPDX-License-Identifier: MIT
//
// Other programs that do a part of the work, and that are not trusted: what they read may be made
// to harm. A child runs without a shell, in a process group and a session of its own, with no open
// files but those it is given, little of the environment and limits; in a sandbox without network,
// with a read-only system and nobody's files, where bubblewrap is installed and works.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/support/descriptor.h"
#include "app/support/work_folder.h"

namespace corvane {

struct ChildLimits {
  std::uint64_t memoryBytes = std::uint64_t{1} << 30;  // of address space
  double processorSeconds = 120;
};

struct ChildCommand {
  std::string program;  // found as PATH says
  std::string package;  // that it comes in, for who does not have it
  // "--" before the names of files is the caller's.
  std::vector<std::string> arguments = {};
  ChildLimits limits = {};
  // Files that the child may read, from the start, as descriptors kFirstFile and up.
  std::vector<const Descriptor*> files = {};
  // A line by which the child says on its error stream that a part of its work is done. Empty:
  // none.
  std::string partEnd = {};

  static constexpr int kFirstFile = 3;
  // What the child opens to read the file of that place.
  static std::string NameOfFile(std::size_t place);
};

// A child, as long as it is wanted: its end takes the whole group and its temporary files with it.
// It also ends with the thread that has made it.
class Child {
 public:
  // Throws Failure when the program is missing or does not start.
  explicit Child(const ChildCommand& command);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // What the child writes, to be taken once.
  Descriptor TakeOutput() { return std::move(output_); }

  bool Sandboxed() const { return sandboxed_; }

  // What the child has complained of in the next part of its work, lines and all, once that is
  // done; its beginning and its end. Waits so long; nothing: it is not done yet.
  std::optional<std::string> NextPart(int milliseconds);

  // Whether the child has closed its error stream: it ends no more parts than NextPart gives.
  bool IsSilent() const;

  // How long a child has to end by itself: one that is not wanted any more, one that has failed,
  // and one that has nothing more to say.
  static constexpr std::chrono::milliseconds kAtOnce{0}, kSoon{400}, kInTime{5000};

  // Ends the child, when that time is over at the latest, and says how it has ended: empty when it
  // did so by itself and content, else what happened and what it complained of, in one line.
  std::string End(std::chrono::milliseconds most);

  // Whether it has not ended by itself.
  bool WasStopped() const { return wasStopped_; }

  // Whether it was killed, once it has ended, and not by End: as a system does that has no memory
  // left.
  bool WasKilled() const { return killed_; }

  // What it complained of, in one line, once it has ended; of a child with parts, in the last one.
  const std::string& Complaint() const { return complaint_; }

 private:
  class Complaints;

  // A trial of the sandbox.
  Child(const std::string& sandbox, std::vector<std::string> words);
  friend bool SandboxWorks();

  void Start(const std::vector<std::string>& words, const std::vector<const Descriptor*>& given);
  std::string Ending(int status);

  std::string program_;
  ChildLimits limits_;
  std::string partEnd_;
  WorkFolder folder_;  // the child's temporary one
  bool sandboxed_ = false;
  bool killed_ = false;
  pid_t process_ = -1;
  std::string ending_, complaint_;
  bool wasStopped_ = false;
  Descriptor output_;
  std::unique_ptr<Complaints> complaints_;
};

// Whether children run in a sandbox here; found out once.
bool SandboxWorks();

// A text of a stranger in one line of at most `most` bytes: control characters are spaces, what is
// too long loses its middle.
std::string OneLine(const std::string& text, std::size_t most);

}  // namespace corvane
