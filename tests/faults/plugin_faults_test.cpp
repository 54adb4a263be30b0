// SPDX-License-Identifier: MIT
//
// Pages of every mode through the elements in a process where the nth allocation fails, and where
// memory holds anything at first.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "color/color_inline.h"
#include "dotmanagement/dot_management.h"
#include "halftone/halftone_module.h"
#include "host/raster.h"
#include "plugin/get_factory.h"
#include "printmode/page_shape.h"
#include "printmode/print_modes.h"
#include "tests/faults/allocator.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

constexpr const char* kGroup = "Standard";
constexpr std::uint32_t kWidth = 75, kRows = 3, kMargin = 3;
constexpr const char* kElements[] = {"EColorInline", "EHalftoneModule", "EDotManagement"};

// ---------------------------------------------------------------------------------------------
// Faults of this thread

long allocations = 0, failingAllocation = 0;
bool failsOn = false;

bool CountAllocation() {
  ++allocations;
  return failingAllocation == 0 ||
         (failsOn ? allocations < failingAllocation : allocations != failingAllocation);
}

// Runs calls of the plug-in's with the fault that is set.
template <class Call>
auto Armed(Call call) {
  faults::SetAllocationGate(CountAllocation);
  auto result = call();
  faults::SetAllocationGate(nullptr);
  return result;
}

void SetFault(long nth, bool andLater) {
  allocations = 0;
  failingAllocation = nth;
  failsOn = andLater;
}

// ---------------------------------------------------------------------------------------------
// A page

// Behind the chain: counts and digests what comes, without memory.
class Paper final : public ZCOM::EObject {
 public:
  explicit Paper(std::uint32_t rowBytes) : pad(this, 0), rowBytes_(rowBytes) {}

  unsigned long DataArrived(ZCOM::QObject* message, unsigned short) override {
    if (message->MessageKind == kErrorMessage) ++errors;
    if (message->MessageKind != kBinaryRasterMessage) return 1;
    const auto& raster = *static_cast<const QRaster*>(message);
    ++rows;
    for (const std::uint32_t field : {raster.Row, raster.EndPixel, raster.Width, raster.RowBytes}) {
      Add(field);
    }
    for (std::uint32_t i = 0; i < rowBytes_; ++i) Add(raster.Data[i]);
    return 1;
  }

  ZCOM::SINKPAD pad;
  std::uint32_t rows = 0, errors = 0;
  std::uint64_t digest = 0xCBF29CE484222325;

 private:
  void Add(std::uint32_t value) { digest = (digest ^ value) * 0x100000001B3; }

  std::uint32_t rowBytes_;
};

struct Page {
  const PrintMode* mode;
  int alternate;

  std::uint32_t Dpi() const {
    return std::min<std::uint32_t>(600, mode->Alternate(alternate).halftoneDpi);
  }
  std::uint32_t SentBytes() const {
    return static_cast<std::uint32_t>(
        PlanesAfter(Stage::Placed, *mode, alternate).Spanned() *
        PlaneBytes(Stage::Placed, *mode, alternate, Dpi(), kWidth + 2 * kMargin));
  }
  std::uint32_t RowsOut(std::uint32_t rows) const {
    return static_cast<std::uint32_t>(rows * RowsPerRow(Stage::Placed, *mode, alternate, 600));
  }
};

void SetUp(const Page& page, QStartPage* start) {
  const std::pair<const char*, unsigned long> settings[] = {
      {"ZRXRasterFormat", 1},
      {"MediaType", 1},
      {"PrintQuality", 1},
      {"PrintableWidth", kWidth},
      {"LeftOverSprayPixels", kMargin},
      {"RightOverSprayPixels", kMargin},
      {"HorizontalInputResolution", page.Dpi()},
      {"VerticalInputResolution", 600},
      {"UseAlternateModes", static_cast<unsigned long>(page.alternate)}};
  for (const auto& [key, value] : settings) start->Properties.SetProperty(key, value, kGroup);
  const std::pair<const char*, unsigned long> second[] = {
      {"CMYKBinaryDescriptor", static_cast<unsigned long>(page.mode->descriptor)},
      {"NumberOfPlanes", NumberOfPlanes(*page.mode, page.alternate)},
      {"Slot1HorizontalRes", page.mode->horizontalDpi},
      {"Slot2HorizontalRes", page.mode->horizontalDpi}};
  for (const auto& [key, value] : second) start->PageProperties.SetProperty(key, value, kGroup);
}

// A file of one table without a directory: ink grows from white to black.
std::string TableFileOf(InkSet inkSet) {
  std::string file(4, 0);
  const int nodes = inkSet == InkSet::Black ? 256 : 17 * 17 * 17;
  for (int plane = 0; plane < PlanesOf(inkSet); ++plane) {
    for (int node = 0; node < nodes; ++node) {
      file += static_cast<char>((nodes - 1 - node) * (255 - 9 * plane) / nodes);
    }
  }
  return file;
}

// What became of a page.
struct Outcome {
  bool made = false, ready = false, started = false, ended = false;
  std::uint32_t rowsTaken = 0, rowsOut = 0;
  std::uint64_t digest = 0;
};

class Chain {
 public:
  Chain(const Page& page, ZCOM::PROPERTIES* host) : page_(page), host_(host) {}

  // Everything that a host does for a page: with `copies` the elements go in the middle of it and
  // their copies print on.
  Outcome Print(bool copies = false) {
    Outcome outcome;
    outcome.made = Make();
    outcome.ready = outcome.made && Initialize();
    if (!outcome.ready) return outcome;
    Paper paper(page_.SentBytes());
    elements_.back()->GetSourcePad(0)->Link(&paper.pad);
    QStartPage start;
    SetUp(page_, &start);
    const unsigned long result = Send(start);
    outcome.started = result != 0 && paper.errors == 0;
    for (std::uint32_t y = 0; y < kRows; ++y) {
      if (copies && y == 1 && !Copy(&paper.pad)) return outcome;
      outcome.rowsTaken += SendRow(y) != 0 ? 1 : 0;
    }
    ZCOM::QObject end(kEndPageMessage), endOfJob(kEndJobMessage);
    Send(end);
    Send(endOfJob);
    outcome.ended = true;
    outcome.rowsOut = paper.rows;
    outcome.digest = paper.digest;
    return outcome;
  }

 private:
  using Element = std::unique_ptr<ZCOM::EObject>;

  bool Make() {
    for (std::size_t i = 0; i < std::size(kElements); ++i) {
      std::string name = kElements[i];
      elements_[i] = Element(Armed([&] { return GetFactory()->CreateElement(name.data()); }));
      if (!elements_[i]) return false;
      elements_[i]->HostProperties = host_;
    }
    return true;
  }

  bool Initialize() {
    for (const Element& element : elements_) {
      if (Armed([&] { return element->Initialize(); }) == 0) return false;
    }
    Link();
    return true;
  }

  void Link() {
    for (std::size_t i = 1; i < elements_.size(); ++i) {
      elements_[i - 1]->GetSourcePad(0)->Link(elements_[i]->GetSinkPad(0));
    }
  }

  unsigned long Send(ZCOM::QObject& message) {
    return Armed([&] { return elements_[0]->DataArrived(&message, 0); });
  }

  unsigned long SendRow(std::uint32_t y) {
    unsigned char row[3 * kWidth];
    for (std::uint32_t x = 0; x < sizeof row; ++x) {
      row[x] = static_cast<unsigned char>(x * 5 + y * 40);
    }
    QRaster raster;
    raster.RasterFormat = 1;
    raster.EndPixel = raster.Width = kWidth;
    raster.RowBytes = sizeof row;
    raster.Row = y;
    raster.Data = row;
    return Send(raster);
  }

  // False when an element has no copy or one without pads, as it may be where memory is short.
  bool Copy(ZCOM::SINKPAD* last) {
    elements_[0] = Armed([&] {
      return Element(new (std::nothrow) EColorInline(static_cast<EColorInline&>(*elements_[0])));
    });
    elements_[1] = Armed([&] {
      return Element(new (std::nothrow)
                         EHalftoneModule(static_cast<EHalftoneModule&>(*elements_[1])));
    });
    elements_[2] = Armed([&] {
      return Element(new (std::nothrow)
                         ECorvaneDotManagement(static_cast<ECorvaneDotManagement&>(*elements_[2])));
    });
    const bool copied = std::all_of(elements_.begin(), elements_.end(), [](const auto& element) {
      return element && element->GetSourcePadCount() > 0 && element->GetSinkPadCount() > 0;
    });
    if (!copied) return false;
    Link();
    elements_.back()->GetSourcePad(0)->Link(last);
    return true;
  }

  const Page& page_;
  ZCOM::PROPERTIES* host_;
  std::array<Element, std::size(kElements)> elements_;
};

std::vector<Page> AllPages() {
  std::vector<Page> pages;
  for (const PrintMode& mode : kPrintModes) {
    for (int alternate = 0; alternate < kAlternateModes; ++alternate) {
      pages.push_back({&mode, alternate});
    }
  }
  return pages;
}

class PluginFaults : public testing::Test {
 protected:
  PluginFaults() {
    testing::internal::CaptureStderr();  // an element says which table it could not open
  }
  ~PluginFaults() override {
    faults::FillMemoryWith(-1);
    testing::internal::GetCapturedStderr();
  }

  void UseTablesOf(const Page& page) {
    const std::string file = folder_.Write("table.cvt", TableFileOf(page.mode->inkSet));
    host_.SetProperty("ColorTableFilename", file.c_str(), kGroup);
  }

  ScratchFolder folder_;
  ZCOM::PROPERTIES host_;
};

// A page either starts and prints as always, or its start's result or an error says that it does
// not.
void ExpectWholeOrRefused(const Outcome& outcome, const Outcome& whole, bool copies) {
  if (!outcome.ended) return;              // an element could not be made, made ready or copied
  if (!outcome.started || copies) return;  // a copy may have no page
  EXPECT_EQ(outcome.rowsTaken, kRows);
  EXPECT_EQ(outcome.rowsOut, whole.rowsOut);
  EXPECT_EQ(outcome.digest, whole.digest);
}

// All of them only where many faults are asked for: modes share kernels and filters.
std::vector<Page> PagesWithFaults() {
  if (std::getenv("CORVANE_FAULTS") != nullptr) return AllPages();
  std::vector<Page> pages;
  for (const int mode : {5, 54, 109}) {
    for (const int alternate : {0, 1}) pages.push_back({FindPrintMode(mode), alternate});
  }
  return pages;
}

TEST_F(PluginFaults, EveryNthAllocationIsAnsweredAndNothingIsLost) {
  long tried = 0;
  for (const Page& page : PagesWithFaults()) {
    UseTablesOf(page);
    for (const bool copies : {false, true}) {
      SetFault(0, false);
      const Outcome whole = Chain(page, &host_).Print(copies);
      const long count = allocations;
      ASSERT_TRUE(whole.started);
      ASSERT_EQ(whole.rowsOut, page.RowsOut(kRows));
      for (long nth = 1; nth <= count; ++nth) {
        for (const bool andLater : {false, true}) {
          SCOPED_TRACE(testing::Message()
                       << "mode " << page.mode->descriptor << "/" << page.alternate
                       << ", allocation " << nth << (andLater ? " and later, " : ", ")
                       << (copies ? "with copies" : "without copies"));
          const std::int64_t before = faults::LiveBlocks();
          SetFault(nth, andLater);
          ++tried;
          const Outcome outcome = Chain(page, &host_).Print(copies);
          EXPECT_EQ(faults::LiveBlocks(), before) << "memory is lost";
          ExpectWholeOrRefused(outcome, whole, copies);
        }
      }
    }
  }
  std::printf("%ld pages with a fault\n", tried);
}

// Behind an element: keeps the last error's text, without memory.
class ErrorReader final : public ZCOM::EObject {
 public:
  unsigned long DataArrived(ZCOM::QObject* message, unsigned short) override {
    if (message->MessageKind == kErrorMessage) {
      message->Properties.GetProperty("ErrorString", text, sizeof text, "", kGroup);
    }
    return 0;
  }
  char text[64] = "";
};

TEST_F(PluginFaults, ACopyHasRoomForTheLongestErrorToo) {
  SetFault(0, false);
  EHalftoneModule original;
  ASSERT_EQ(original.Initialize(), 1u);
  ErrorReader reader;
  ZCOM::SINKPAD pad(&reader, 0);
  original.GetSourcePad(0)->Link(&pad);
  QStartPage noWidth, noMode;
  noWidth.PageProperties.SetProperty("CMYKBinaryDescriptor", 5, kGroup);
  noMode.PageProperties.SetProperty("CMYKBinaryDescriptor", 1, kGroup);
  original.DataArrived(&noWidth, 0);
  ASSERT_STREQ(reader.text, "Can not create Halftone Buffer.");

  EHalftoneModule copy(original);
  copy.GetSourcePad(0)->Link(&pad);
  SetFault(1, true);
  Armed([&] { return copy.DataArrived(&noMode, 0); });
  EXPECT_STREQ(reader.text, "This print mode is not supported yet.");
}

TEST_F(PluginFaults, RowsDoNotShowWhatMemoryHeld) {
  SetFault(0, false);
  for (const Page& page : AllPages()) {
    UseTablesOf(page);
    std::uint64_t digests[2];
    for (const bool copies : {false, true}) {
      for (const int fill : {0x00, 0xA5}) {
        faults::FillMemoryWith(fill);
        const Outcome outcome = Chain(page, &host_).Print(copies);
        ASSERT_EQ(outcome.rowsOut, page.RowsOut(kRows));
        digests[fill == 0 ? 0 : 1] = outcome.digest;
      }
      EXPECT_EQ(digests[0], digests[1])
          << "mode " << page.mode->descriptor << ", alternate mode " << page.alternate;
    }
  }
}

}  // namespace
}  // namespace corvane
