// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>

#include "host/framework.h"
#include "host/raster.h"
#include "tests/harness/scratch_folder.h"

namespace {

TEST(Elements, GivePadsByIndexAndTheirCopiesPadsOfTheirOwn) {
  auto element = std::make_unique<ZCOM::EObject>();
  ZCOM::SINKPAD next(nullptr, 3);
  auto* pad = new ZCOM::SOURCEPAD(element.get());
  pad->Link(&next);
  EXPECT_EQ(element->AddSourcePad(pad), 1u);
  EXPECT_EQ(element->AddSinkPad(new ZCOM::SINKPAD(element.get(), 0)), 1u);
  EXPECT_EQ(element->GetSourcePadCount(), 1);
  EXPECT_EQ(element->GetSinkPadCount(), 1);
  EXPECT_EQ(element->GetSourcePad(0), pad);
  EXPECT_EQ(element->GetSourcePad(1), nullptr);

  ZCOM::EObject copy(*element);
  ZCOM::EObject assigned;
  assigned = *element;
  assigned = *element;  // pads that are there stay
  element.reset();
  for (ZCOM::EObject* like : {&copy, &assigned}) {
    ASSERT_EQ(like->GetSourcePadCount(), 1);
    ASSERT_EQ(like->GetSinkPadCount(), 1);
    EXPECT_EQ(like->GetSourcePad(0)->Owner, like);
    EXPECT_EQ(like->GetSourcePad(0)->LinkedSinkPad, &next);
    EXPECT_EQ(like->GetSinkPad(0)->Owner, like);
  }
}

std::string reported;

TEST(Elements, ReportThroughTheHook) {
  ZCOM::EObject element;
  ZCOM::SetErrorMessageHook([](ZCOM::EObject*, const char* text) { reported = text; });
  element.ErrorMessage("%s %d\n", "pad", 3);
  ZCOM::SetErrorMessageHook(nullptr);
  EXPECT_EQ(reported, "pad 3\n");
}

TEST(Messages, CarryTheirKinds) {
  EXPECT_EQ(QStartPage().MessageKind, 2);
  EXPECT_EQ(QRaster().MessageKind, 5);
  EXPECT_EQ(QCMYKContoneRaster().MessageKind, 6);
  EXPECT_EQ(QCMYKBinaryRaster().MessageKind, 7);
  EXPECT_EQ(QError().MessageKind, 8);
  EXPECT_EQ(QStartPage().IsPassThrough(), 0u);
}

TEST(Wrappers, PutDiagnosticFilesIntoTheNamedDirectory) {
  const corvane::DiagnosticsFolder folder;
  ZCOM::FILEHANDLE log = ZCOM::fwfopen("C:\\HTLog.txt", "w");
  ASSERT_NE(log, nullptr);
  ZCOM::fwfprintf(log, "n=%d\n", 4);
  EXPECT_EQ(ZCOM::fwfclose(log), 0);
  EXPECT_EQ(folder.Read("HTLog.txt").substr(0, 3), "n=4");
}

TEST(Wrappers, TakeOtherPathsAsTheyStand) {
  const corvane::DiagnosticsFolder folder;
  // A file of drive C on Windows; elsewhere a file of exactly this name in the current directory.
  const char* path = "C:\\corvane_test_log.txt";
  EXPECT_EQ(ZCOM::fwfclose(ZCOM::fwfopen(path, "w")), 0);
  EXPECT_TRUE(std::filesystem::remove(path));
}

TEST(Wrappers, NoteWhatGoesWrongWithDiagnosticFiles) {
  const corvane::DiagnosticsFolder folder;
  EXPECT_EQ(ZCOM::fwfopen(folder.File("none/other.txt").c_str(), "r"), nullptr);
  EXPECT_EQ(ZCOM::DiagnosticsProblem(), 0);
  EXPECT_EQ(ZCOM::fwfopen("c:\\points.bin", "rb"), nullptr);
  EXPECT_EQ(ZCOM::DiagnosticsProblem(), 0) << "nothing to read is nothing lost";
  std::filesystem::create_directory(folder.File("rgb.raw"));
  EXPECT_EQ(ZCOM::fwfopen("c:\\rgb.raw", "wb"), nullptr);
  EXPECT_NE(ZCOM::DiagnosticsProblem(), 0);
  ZCOM::SetDiagnosticsDirectory(nullptr);
  EXPECT_EQ(ZCOM::DiagnosticsProblem(), 0);
#if defined(__linux__)
  ZCOM::FILEHANDLE full = ZCOM::fwfopen("/dev/full", "w");
  ZCOM::fwfprintf(full, "n=%d\n", 4);  // waits in a buffer
  EXPECT_NE(ZCOM::fwfclose(full), 0);
  EXPECT_EQ(ZCOM::DiagnosticsProblem(), ENOSPC);
  ZCOM::SetDiagnosticsDirectory(nullptr);
#endif
}

TEST(Wrappers, TakeANullHandle) {
  char byte = 0;
  EXPECT_EQ(ZCOM::fwfclose(nullptr), 0);
  EXPECT_EQ(ZCOM::fwfprintf(nullptr, "x"), 0);
  EXPECT_EQ(ZCOM::fwfwrite("x", 1, 1, nullptr), 0u);
  EXPECT_EQ(ZCOM::fwfread(&byte, 1, 1, nullptr), 0u);
}

}  // namespace
