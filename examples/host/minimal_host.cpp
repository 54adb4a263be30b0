// SPDX-License-Identifier: MIT
//
// The smallest complete host: loads the plug-in, prints a 4 x 6 inch page through its chain and
// asks the movement object for the page's feeds.
//
//   minimal_host lib/corvane/corvane.so share/corvane/default.cvt
#include <dlfcn.h>

#include <bitset>
#include <cstdio>
#include <memory>
#include <vector>

#include "host/framework.h"
#include "host/raster.h"
#include "movement/movement.h"
#include "plugin/get_factory.h"

namespace {

constexpr const char* kGroup = "Standard";
constexpr unsigned long kInputDpi = 600;
constexpr unsigned long kWidth = 4 * kInputDpi;   // pixels
constexpr unsigned long kHeight = 6 * kInputDpi;  // rows
constexpr tagBinaryCMYKDescriptor kMode = CcMmYyK_4800x1200_16Pass;

// Where the printhead data arrive: the element behind the last one of the plug-in.
class Printer : public ZCOM::EObject {
 public:
  Printer() { AddSinkPad(new ZCOM::SINKPAD(this, 0)); }

  unsigned long DataArrived(ZCOM::QObject* message, unsigned short) override {
    if (message->MessageKind == kErrorMessage) ReportError(*message);
    if (message->MessageKind == kBinaryRasterMessage) Print(static_cast<QRaster&>(*message));
    return 1;
  }

  void Summarize() const {
    const int planes = corvane::FindPlaneLayout(format_)->planeCount;
    std::printf("%lu rows of %d planes, %lu drops\n", rows_, planes, drops_);
  }
  bool Printed() const { return rows_ > 0 && errors_ == 0; }

 private:
  void ReportError(ZCOM::QObject& error) {
    char text[128] = "";
    error.Properties.GetProperty("ErrorString", text, sizeof text, nullptr, kGroup);
    std::fprintf(stderr, "minimal_host: %s\n", text);
    ++errors_;
  }

  // A driver would keep the row until its swath is due; it must copy it, as it is sent only once.
  void Print(const QRaster& row) {
    format_ = row.RasterFormat;
    ++rows_;
    for (std::uint32_t i = 0; i < row.RowBytes; ++i) drops_ += std::bitset<8>(row.Data[i]).count();
  }

  std::uint32_t format_ = 0;
  unsigned long rows_ = 0;
  unsigned long drops_ = 0;
  int errors_ = 0;
};

QStartPage StartOfPage() {
  QStartPage start;
  start.Properties.SetProperty("ZRXRasterFormat", 1, kGroup);  // RGB, one colour table
  start.Properties.SetProperty("MediaType", 3, kGroup);
  start.Properties.SetProperty("PrintQuality", 3, kGroup);
  start.Properties.SetProperty("PrintableWidth", kWidth, kGroup);
  start.Properties.SetProperty("HorizontalInputResolution", kInputDpi, kGroup);
  start.Properties.SetProperty("VerticalInputResolution", kInputDpi, kGroup);
  start.PageProperties.SetProperty("CMYKBinaryDescriptor", kMode, kGroup);
  start.PageProperties.SetProperty("NumberOfPlanes", 7ul, kGroup);
  start.PageProperties.SetProperty("Slot1HorizontalRes", 4800ul, kGroup);  // or no dot is placed
  return start;
}

// Sends a page of colour ramps into the chain.
bool PrintPage(ZCOM::EObject& chain) {
  QStartPage start = StartOfPage();
  if (!chain.DataArrived(&start, 0)) return false;
  std::vector<unsigned char> pixels(kWidth * 3);
  QRaster row;
  row.MessageKind = kRgbRasterMessage;
  row.RasterFormat = 1;
  row.Width = row.EndPixel = kWidth;
  row.RowBytes = static_cast<std::uint32_t>(pixels.size());
  row.Data = pixels.data();
  for (row.Row = 0; row.Row < kHeight; ++row.Row) {
    for (unsigned long x = 0; x < kWidth; ++x) {
      pixels[3 * x] = static_cast<unsigned char>(x * 255 / (kWidth - 1));
      pixels[3 * x + 1] = static_cast<unsigned char>(row.Row * 255 / (kHeight - 1));
      pixels[3 * x + 2] = 128;
    }
    if (!chain.DataArrived(&row, 0)) return false;
  }
  ZCOM::QObject end(kEndPageMessage);
  return chain.DataArrived(&end, 0) != 0;
}

// Feeds the page in units of 1/1200 inch: 666 nozzles, two units apart, pass over it four times.
void FeedPage(Movement& movement) {
  constexpr long kPageLength = 6 * 1200;
  unsigned long pattern[] = {333};
  unsigned short lowest[] = {0, 0}, highest[] = {665, 665};
  movement.InitializeMovement(pattern, 1, 2, lowest, highest);
  // Short feeds from half an inch before the page's end until its last row has its passes.
  unsigned short bottomMove[] = {79};
  movement.InitializeBOPMovement(bottomMove, 1, 0, 0, kPageLength - 600, kPageLength + 4 * 79);
  std::printf("swaths at:");
  long position = 0;
  for (int passesLeft = 4; passesLeft > 0;) {
    position += movement.GetVerticalMovement(position);
    // Now print the swath with the nozzles from GetMinNozzle(location) to GetMaxNozzle(location).
    std::printf(" %ld", position);
    if (position >= kPageLength) --passesLeft;
  }
  std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
  void* library = argc == 3 ? dlopen(argv[1], RTLD_NOW) : nullptr;
  void* entry = library ? dlsym(library, "GetFactory") : nullptr;
  if (!entry) {
    std::fprintf(stderr, "%s\n", argc == 3 ? dlerror() : "usage: minimal_host PLUGIN COLOR-TABLES");
    return 2;
  }
  ZCOM::PluginFactory* factory = reinterpret_cast<decltype(&GetFactory)>(entry)();

  ZCOM::PROPERTIES shared;  // the host's bag, read by the elements
  shared.SetProperty("ColorTableFilename", argv[2], kGroup);
  Printer printer;
  std::vector<std::unique_ptr<ZCOM::EObject>> chain;
  for (const char* name : {"EColorInline", "EHalftoneModule", "EDotManagement"}) {
    chain.emplace_back(factory->CreateElement(const_cast<char*>(name)));
    chain.back()->HostProperties = &shared;
    if (!chain.back()->Initialize()) return 1;
    if (chain.size() == 1) continue;
    chain[chain.size() - 2]->GetSourcePad(0)->Link(chain.back()->GetSinkPad(0));
  }
  chain.back()->GetSourcePad(0)->Link(printer.GetSinkPad(0));
  if (!PrintPage(*chain.front()) || !printer.Printed()) return 1;
  printer.Summarize();
  char name[] = "CorvaneMovement";
  std::unique_ptr<Movement> movement(static_cast<Movement*>(factory->CreateObject(name)));
  FeedPage(*movement);
}
