// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/support/descriptor.h"

namespace corvane {

// A command that takes what is printed on its standard input, without a shell, with its children in
// a process group of its own. Its members throw DeviceFailure.
class PipeCommand {
 public:
  PipeCommand(std::string name, const std::vector<std::string>& words);
  // Ends the command, if it has not ended.
  ~PipeCommand();
  PipeCommand(const PipeCommand&) = delete;
  PipeCommand& operator=(const PipeCommand&) = delete;

  // Both give false when the command is no longer wanted, which `isCancelled` is asked again and
  // again. Behind the last write the command gets the end of its input and all the time it takes.
  bool Write(const char* data, std::size_t size, const std::function<bool()>& isCancelled);
  bool Finish(const std::function<bool()>& isCancelled);

 private:
  std::optional<int> EndStatus();
  [[noreturn]] void Fail(const std::string& what) const;

  std::string name_;
  Descriptor input_;
  pid_t process_ = -1;
};

}  // namespace corvane
