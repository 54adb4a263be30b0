// SPDX-License-Identifier: MIT
#include "app/jobs/share.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <string_view>

#include "app/support/failure.h"
#include "app/support/platform.h"

namespace corvane {
namespace {

// What an engine tells the tasks of an array. Variables that it does not have are null.
struct ArrayEngine {
  const char* task;
  const char* count;
  const char* first;
  const char* last;
  const char* step;
};

constexpr ArrayEngine kEngines[] = {
    {"SLURM_ARRAY_TASK_ID", "SLURM_ARRAY_TASK_COUNT", "SLURM_ARRAY_TASK_MIN",
     "SLURM_ARRAY_TASK_MAX", "SLURM_ARRAY_TASK_STEP"},
    {"JOB_COMPLETION_INDEX", nullptr, nullptr, nullptr, nullptr},
    {"AWS_BATCH_JOB_ARRAY_INDEX", "AWS_BATCH_JOB_ARRAY_SIZE", nullptr, nullptr, nullptr},
};

// The number in a variable; nothing when it is not set.
std::optional<int> NumberIn(const char* name, const Environment& environment) {
  const char* value = name == nullptr ? nullptr : environment(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  const std::string_view text = value;
  int number = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (problem != std::errc() || end != text.data() + text.size()) {
    throw UsageFailure(fmt::format("{}={}: is no number", name, text));
  }
  return number;
}

Share Checked(int task, int of) {
  if (of < 1) throw UsageFailure(fmt::format("--of {}: is no number of tasks", of));
  if (task < 0 || task >= of) {
    throw UsageFailure(
        fmt::format("--task {} --of {}: tasks count from 0 to {}", task, of, of - 1));
  }
  return {task, of};
}

Share ShareOfEngine(const ArrayEngine& engine, int id, std::optional<int> of,
                    const Environment& environment) {
  const int step = std::max(1, NumberIn(engine.step, environment).value_or(1));
  const int first = NumberIn(engine.first, environment).value_or(0);
  // With a count of its own the array may be a part of another one, whose tasks count from 0.
  if (of) return Checked(id, *of);
  const std::optional<int> count = NumberIn(engine.count, environment);
  if (!count) {
    throw UsageFailure(fmt::format("{}={}: --of has to tell the number of tasks", engine.task, id));
  }
  const std::optional<int> last = NumberIn(engine.last, environment);
  if (last && *last != first + step * (*count - 1)) {
    throw UsageFailure(
        fmt::format("{}={}: the array has gaps; --of has to tell the number of tasks of the whole",
                    engine.task, id));
  }
  return Checked((id - first) / step, *count);
}

// The whole cores that a container's processor quota is worth.
int QuotaCores() {
  std::ifstream file("/sys/fs/cgroup/cpu.max");
  double quota = 0, period = 0;
  if (!(file >> quota >> period) || period <= 0) return 0;
  return std::max(1, static_cast<int>(std::lround(quota / period)));
}

}  // namespace

Share ShareFrom(std::optional<int> task, std::optional<int> of, const Environment& environment) {
  if (task && !of) throw UsageFailure("--task needs --of, the number of tasks");
  if (task) return Checked(*task, *of);
  for (const ArrayEngine& engine : kEngines) {
    if (const std::optional<int> id = NumberIn(engine.task, environment)) {
      return ShareOfEngine(engine, *id, of, environment);
    }
  }
  if (of) throw UsageFailure("--of needs --task, or the environment of an array's task");
  return {};
}

bool ShareOfPages::Has(const JobPage& page) {
  const double middle = before_ + page.cost / 2;
  before_ += page.cost;
  const double place = totals_.cost > 0 ? middle / totals_.cost : 0;
  return std::clamp(static_cast<int>(place * share_.of), 0, share_.of - 1) == share_.task;
}

int UsableCores(const Environment& environment) {
  int usable = ProcessorCount();
  if (const int quota = QuotaCores()) usable = std::min(usable, quota);
  for (const char* name : {"SLURM_CPUS_PER_TASK", "SLURM_CPUS_ON_NODE"}) {
    if (const std::optional<int> given = NumberIn(name, environment)) {
      usable = std::min(usable, *given);
      break;
    }
  }
  return std::max(1, usable);
}

}  // namespace corvane
