// SPDX-License-Identifier: MIT
#include "fuzz/messages.h"

#include "app/chain/row_bytes.h"
#include "color/color_inline.h"
#include "dotmanagement/dot_management.h"
#include "halftone/halftone_module.h"
#include "host/property_names.h"
#include "host/raster.h"
#include "plugin/get_factory.h"
#include "printmode/print_modes.h"
#include "tests/harness/element_harness.h"
#include "tests/harness/paths.h"

namespace corvane::fuzz {
namespace {

using ElementPointer = std::unique_ptr<ZCOM::EObject>;

constexpr int kMostMessages = 64;
constexpr std::uint64_t kMostRowBytes = 1 << 20;
// Of a page: the elements take as much memory as it says, gigabytes too.
constexpr std::uint32_t kMostPixels = 8192, kMostDpi = 9600;

// Numbers near which sizes wrap.
constexpr std::uint32_t kEdges[] = {0,          1,          0xFF,       0x100,
                                    0xFFFF,     0x10000,    0x7FFFFFFF, 0x80000000,
                                    0xFFFFFFFF, 0x15555556, 0x24924925, 0xFFFFFFF8};
constexpr std::uint32_t kResolutions[] = {0, 150, 300, 600, 1200, 2400};

ElementPointer CopyOf(ZCOM::EObject& element) {
  if (const auto* color = dynamic_cast<EColorInline*>(&element)) {
    return std::make_unique<EColorInline>(*color);
  }
  if (const auto* halftone = dynamic_cast<EHalftoneModule*>(&element)) {
    return std::make_unique<EHalftoneModule>(*halftone);
  }
  return std::make_unique<ECorvaneDotManagement>(
      dynamic_cast<const ECorvaneDotManagement&>(element));
}

class Host {
 public:
  Host(ElementNames names, Bytes bytes) : input_(bytes) {
    const std::string tables = harness::SourceDirectory() + "/fuzz/corpus/table_file/tables";
    bag_.SetProperty(property::kColorTableFilename, tables.c_str(), property::kStandardGroup);
    for (const char* name : names) {
      elements_.emplace_back(GetFactory()->CreateElement(std::string(name).data()));
      ZCOM::EObject& element = *elements_.back();
      element.HostProperties = &bag_;
      FUZZ_EXPECT(element.Initialize() == 1);
    }
    for (std::size_t i = 1; i < elements_.size(); ++i) {
      elements_[i - 1]->GetSourcePad(0)->Link(elements_[i]->GetSinkPad(0));
    }
    elements_.back()->GetSourcePad(0)->Link(&next_.pad);
  }

  void Run() {
    for (int i = 0; i < kMostMessages && !input_.IsEmpty(); ++i) SendNext();
  }

 private:
  void SendNext() {
    switch (input_.Choose(16)) {
      case 0:
      case 1:
        return StartPage();
      case 2:
        return Send(std::make_unique<ZCOM::QObject>(kEndPageMessage));
      case 3:
        return Send(std::make_unique<ZCOM::QObject>(kEndJobMessage));
      case 4:
        return Send(std::make_unique<ZCOM::QObject>(kControlMessage));
      case 5:
        return Send(std::make_unique<QError>());
      case 6:
        return Send(std::make_unique<ZCOM::QObject>(
            static_cast<unsigned short>(9 + input_.Take<std::uint16_t>() % 65000)));
      case 7:
        FUZZ_EXPECT(elements_.front()->DataArrived(nullptr, input_.Take<std::uint16_t>()) == 1);
        return;
      case 8:
        return CopyElement();
      case 9:
      case 10:
        return SendRow(std::make_unique<QCMYKContoneRaster>());
      case 11:
      case 12:
        return SendRow(std::make_unique<QCMYKBinaryRaster>());
      default:
        return SendRow(std::make_unique<QRaster>());
    }
  }

  void Send(std::unique_ptr<ZCOM::QObject> message) {
    elements_.front()->DataArrived(message.get(), 0);
    next_.messages.clear();
  }

  // An element goes, and its copy stands in its place or goes first.
  void CopyElement() {
    const std::size_t at = input_.Choose(elements_.size());
    ElementPointer copy = CopyOf(*elements_[at]);
    if (input_.Choose(2) == 0) return;
    copy->HostProperties = &bag_;
    if (copy->GetSourcePadCount() == 0) return;  // as it may be where memory is short
    if (at > 0) elements_[at - 1]->GetSourcePad(0)->Link(copy->GetSinkPad(0));
    elements_[at] = std::move(copy);
  }

  std::uint32_t Number(std::uint32_t usual) {
    const unsigned kind = input_.Choose(32);
    if (kind == 0) return input_.Take<std::uint32_t>();
    if (kind == 1) return kEdges[input_.Choose(std::size(kEdges))];
    return usual == 0 ? 0 : input_.Take<std::uint16_t>() % usual;
  }

  std::uint32_t Pixels(std::uint32_t usual) { return std::min(Number(usual), kMostPixels); }

  void Set(ZCOM::PROPERTIES& bag, const char* key, std::uint32_t value) {
    bag.SetProperty(key, static_cast<unsigned long>(value), property::kStandardGroup);
  }

  std::uint32_t Resolution() {
    const unsigned choice = input_.Choose(8);
    if (choice < std::size(kResolutions)) return kResolutions[choice];
    return std::min(Number(2401), kMostDpi);
  }

  void StartPage() {
    auto start = std::make_unique<QStartPage>();
    const unsigned mode = input_.Choose(kPrintModes.size() + 1);
    const bool known = mode < kPrintModes.size();
    width_ = Pixels(2048);
    ZCOM::PROPERTIES& page = start->Properties;
    Set(page, property::kPrintableWidth, width_);
    Set(page, property::kZRXRasterFormat, Number(9));
    Set(page, property::kMediaType, Number(8));
    Set(page, property::kPrintQuality, Number(6));
    Set(page, property::kColorPreference, Number(4));
    Set(page, property::kPageIntent, Number(4));
    Set(page, property::kPaperCharacteristics, Number(5));
    Set(page, property::kUseAlternateModes, Number(4));
    Set(page, property::kLeftOverSprayPixels, Pixels(32));
    Set(page, property::kRightOverSprayPixels, Pixels(32));
    Set(page, property::kHorizontalInputResolution, Resolution());
    Set(page, property::kVerticalInputResolution, Resolution());
    Set(page, property::kPoints, Number(2));
    ZCOM::PROPERTIES& second = start->PageProperties;
    Set(second, property::kCMYKBinaryDescriptor,
        known ? static_cast<std::uint32_t>(kPrintModes[mode].descriptor) : Number(256));
    Set(second, property::kNumberOfPlanes, Number(14));
    Set(second, property::kSlot1HorizontalRes, Resolution());
    Set(second, property::kSlot2HorizontalRes, Resolution());
    read_.NotePage(*start);
    Send(std::move(start));
  }

  void SendRow(std::unique_ptr<QRaster> row) {
    row->RasterFormat = Number(9);
    row->PassThroughValue = Number(2);
    row->Row = Number(5000);
    row->Width = input_.Choose(4) == 0 ? Number(2048) : width_;
    row->FirstPixel = Number(8);
    row->EndPixel = input_.Choose(4) == 0 ? Number(4096) : row->Width;
    row->RowBytes = input_.Choose(2) == 0 ? Number(16384) : 0;
    const std::uint64_t bytes = read_.Of(*row);
    if (bytes > kMostRowBytes) return;
    const Bytes pattern = input_.TakeBytes(1 + input_.Choose(64));
    data_ = std::make_unique<unsigned char[]>(bytes);  // ends where the row ends
    for (std::uint64_t i = 0; i < bytes && !pattern.empty(); ++i) {
      data_[i] = static_cast<unsigned char>(pattern[i % pattern.size()] + i / 64);
    }
    row->Data = input_.Choose(16) == 0 ? nullptr : data_.get();
    Send(std::move(row));
  }

  Input input_;
  ZCOM::PROPERTIES bag_;
  harness::RecordingElement next_;
  std::vector<ElementPointer> elements_;
  RowBytesRead read_;
  std::uint32_t width_ = 0;
  std::unique_ptr<unsigned char[]> data_;
};

}  // namespace

void SendMessages(ElementNames elements, Bytes input) { Host(elements, input).Run(); }

}  // namespace corvane::fuzz
