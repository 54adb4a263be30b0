// SPDX-License-Identifier: MIT
//
// What every element of the factory has in common.
#include "plugin/frame/element_frame.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "plugin/factories.h"
#include "tests/harness/element_harness.h"
#include "tests/harness/paths.h"

namespace corvane {
namespace {

using harness::ElementHarness;

std::string reported;
int reports = 0;

class EveryElement : public testing::TestWithParam<const char*> {
 protected:
  static ZCOM::EObject* Create() {
    std::string name = GetParam();
    return GetFactory()->CreateElement(name.data());
  }

  EveryElement() : harness_(Create()) {
    // Any file that opens serves as a colour table as long as no page starts.
    harness_.host.SetProperty("ColorTableFilename", harness::PluginFile().c_str(), "Standard");
  }

  ElementHarness harness_;
};

TEST_P(EveryElement, HasOnePadOnEachSide) {
  EXPECT_EQ(harness_.Element().GetSourcePadCount(), 0) << "pads are made in Initialize";
  EXPECT_EQ(harness_.Start(), 1u);
  EXPECT_EQ(harness_.Element().GetSourcePadCount(), 1);
  ASSERT_EQ(harness_.Element().GetSinkPadCount(), 1);
  EXPECT_EQ(harness_.Element().GetSinkPad(0)->Owner, &harness_.Element());
  EXPECT_EQ(harness_.Element().GetSinkPad(0)->Index, 0);
  EXPECT_EQ(harness::TextOf(harness_.Element().Properties, "EObjectType"), GetParam());
}

TEST_P(EveryElement, PassesOnWhatIsNotItsWork) {
  harness_.Start();
  EXPECT_EQ(harness_.Element().DataArrived(nullptr, 0), 1u);
  EXPECT_TRUE(harness_.TakeSent().empty());

  const bool isColor = std::string(GetParam()) == "EColorInline";
  const bool isHalftone = std::string(GetParam()) == "EHalftoneModule";
  for (unsigned short kind : {0, 1, 3, 4, 5, 6, 7, 8, 9, 65535}) {
    if ((kind == 5 && isColor) || (kind == 6 && isHalftone)) continue;  // its work
    for (unsigned long answer : {1ul, 0ul}) {
      harness_.next.result = answer;
      QCMYKBinaryRaster message;
      message.MessageKind = kind;
      const unsigned long expected = kind == 1 || kind == 3 || kind == 4 ? answer : 1;
      EXPECT_EQ(harness_.Push(message), expected) << "kind " << kind << ", next gives " << answer;
      const auto sent = harness_.TakeSent();
      ASSERT_EQ(sent.size(), 1u) << "kind " << kind;
      EXPECT_EQ(sent[0].kind, kind);
    }
  }
}

// Changes and then answers what it is sent.
class Changing final : public ZCOM::EObject {
 public:
  unsigned long DataArrived(ZCOM::QObject* message, unsigned short) override {
    message->MessageKind = becomes;
    return 0;
  }
  unsigned short becomes = 0;
};

TEST_P(EveryElement, AnswersForTheKindThatAMessageCameWith) {
  ASSERT_EQ(harness_.Element().Initialize(), 1u);
  Changing next;
  ZCOM::SINKPAD pad(&next, 0);
  harness_.Element().GetSourcePad(0)->Link(&pad);
  for (const auto& [kind, becomes, result] :
       {std::tuple<unsigned short, unsigned short, unsigned long>{9, 1, 1}, {1, 9, 0}}) {
    QCMYKBinaryRaster message;
    message.MessageKind = kind;
    next.becomes = becomes;
    EXPECT_EQ(harness_.Push(message), result) << "kind " << kind;
  }
}

class PassThroughStart final : public QStartPage {
 public:
  unsigned long IsPassThrough() override { return 2; }
};

TEST_P(EveryElement, LeavesPassThroughMessagesUntouched) {
  harness_.Start();
  PassThroughStart start;
  EXPECT_EQ(harness_.Push(start), 1u);
  const auto sent = harness_.TakeSent();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].properties.First(), nullptr);
  harness_.next.result = 0;
  EXPECT_EQ(harness_.Push(start), 0u);
}

TEST_P(EveryElement, ReportsABrokenChain) {
  ASSERT_EQ(harness_.Element().Initialize(), 1u);
  ZCOM::SetErrorMessageHook([](ZCOM::EObject*, const char* text) {
    reported = text;
    ++reports;
  });
  reports = 0;
  EXPECT_EQ(harness_.Push(1), 0u);
  EXPECT_EQ(harness_.Push(9), 1u) << "a result that is always 1 stays 1";
  ZCOM::SetErrorMessageHook(nullptr);
  EXPECT_EQ(reports, 2);
  EXPECT_EQ(reported, "SourcePad: No sink pad (broken pipe)\n");

  ZCOM::SINKPAD ownerless(nullptr, 0);
  harness_.Element().GetSourcePad(0)->Link(&ownerless);
  EXPECT_EQ(harness_.Push(1), 0u);
}

INSTANTIATE_TEST_SUITE_P(Elements, EveryElement,
                         testing::Values("EColorInline", "EHalftoneModule", "EDotManagement"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace corvane
