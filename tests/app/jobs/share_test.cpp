// SPDX-License-Identifier: MIT
#include "app/jobs/share.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "tests/app/support/failure_of.h"

namespace corvane {
namespace {

using Variables = std::map<std::string, std::string>;

Environment EnvironmentOf(const Variables& variables) {
  return [&variables](const char* name) {
    const auto found = variables.find(name);
    return found == variables.end() ? nullptr : found->second.c_str();
  };
}

// "K/M", or what is wrong.
std::string ShareIn(const Variables& variables, std::optional<int> task = {},
                    std::optional<int> of = {}) {
  std::string share;
  const std::string failure = FailureOf([&] {
    const Share found = ShareFrom(task, of, EnvironmentOf(variables));
    share = std::to_string(found.task) + "/" + std::to_string(found.of);
  });
  return share.empty() ? failure : share;
}

Variables Slurm(const std::string& id, const std::string& count, const std::string& first,
                const std::string& last, const std::string& step) {
  return {{"SLURM_ARRAY_TASK_ID", id},
          {"SLURM_ARRAY_TASK_COUNT", count},
          {"SLURM_ARRAY_TASK_MIN", first},
          {"SLURM_ARRAY_TASK_MAX", last},
          {"SLURM_ARRAY_TASK_STEP", step}};
}

TEST(Share, ComesFromTheArraysOfEngines) {
  EXPECT_EQ(ShareIn({}), "0/1");
  EXPECT_EQ(ShareIn(Slurm("5", "64", "0", "63", "1")), "5/64");
  EXPECT_EQ(ShareIn(Slurm("64", "64", "1", "64", "1")), "63/64");
  EXPECT_EQ(ShareIn(Slurm("8", "5", "0", "16", "4")), "2/5");
  EXPECT_EQ(ShareIn(Slurm("7", "2", "5", "7", "1"), {}, 64), "7/64");
  EXPECT_EQ(ShareIn({{"JOB_COMPLETION_INDEX", "3"}}, {}, 8), "3/8");
  EXPECT_EQ(ShareIn({{"AWS_BATCH_JOB_ARRAY_INDEX", "3"}, {"AWS_BATCH_JOB_ARRAY_SIZE", "4"}}),
            "3/4");
  EXPECT_EQ(ShareIn(Slurm("5", "64", "0", "63", "1"), 1, 2), "1/2");

  EXPECT_THAT(ShareIn(Slurm("7", "2", "5", "7", "1")), testing::HasSubstr("the array has gaps"));
  EXPECT_THAT(ShareIn({{"JOB_COMPLETION_INDEX", "3"}}), testing::HasSubstr("--of has to tell"));
  EXPECT_THAT(ShareIn({{"JOB_COMPLETION_INDEX", "x3"}}), testing::HasSubstr("is no number"));
  EXPECT_THAT(ShareIn({{"JOB_COMPLETION_INDEX", "8"}}, {}, 8), testing::HasSubstr("from 0 to 7"));
  EXPECT_THAT(ShareIn({}, 1), testing::HasSubstr("--task needs --of"));
  EXPECT_THAT(ShareIn({}, {}, 4), testing::HasSubstr("--of needs --task"));
}

// Every page has one task, tasks have stretches of pages, and none has more than its part of the
// cost and one page.
TEST(Share, CutsEvenStretches) {
  std::vector<JobPage> pages(97);
  JobTotals totals;
  for (std::size_t i = 0; i < pages.size(); ++i) {
    pages[i].cost = 1 + static_cast<double>(i * i % 13);
    totals.cost += pages[i].cost;
  }
  totals.pages = pages.size();
  for (const int of : {1, 2, 7, 97, 200}) {
    std::vector<int> takers(pages.size(), 0);
    for (int task = 0; task < of; ++task) {
      ShareOfPages share({task, of}, totals);
      double cost = 0;
      int changes = 0;
      bool before = false;
      for (std::size_t i = 0; i < pages.size(); ++i) {
        const bool has = share.Has(pages[i]);
        changes += has != before ? 1 : 0;
        before = has;
        takers[i] += has ? 1 : 0;
        cost += has ? pages[i].cost : 0;
      }
      EXPECT_LE(cost, totals.cost / of + 13) << task << " of " << of;
      EXPECT_LE(changes, 2);
    }
    EXPECT_THAT(takers, testing::Each(1)) << of;
  }
}

TEST(UsableCores, AreWhatTheClusterGives) {
  const int all = UsableCores(EnvironmentOf({}));
  EXPECT_GE(all, 1);
  EXPECT_EQ(UsableCores(EnvironmentOf({{"SLURM_CPUS_PER_TASK", "1"}})), 1);
  EXPECT_EQ(UsableCores(EnvironmentOf({{"SLURM_CPUS_ON_NODE", "4096"}})), all);
}

}  // namespace
}  // namespace corvane
