// SPDX-License-Identifier: MIT
#include "app/output/tiff.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <string>

#include "app/image/tiff_file.h"
#include "app/output/strips.h"
#include "app/page/settings.h"

namespace corvane {
namespace {

constexpr std::size_t kStripBytes = std::size_t{128} << 10;  // before compression

// Room for the header of either kind of file; which one it becomes shows at the end.
constexpr std::size_t kHeaderBytes = 16;
constexpr std::uint64_t kClassicLimit = 0xFFFF'0000;

enum Tag : std::uint16_t {
  kNewSubfileType = 254,
  kImageWidth = 256,
  kImageLength = 257,
  kBitsPerSample = 258,
  kCompression = 259,
  kPhotometric = 262,
  kDocumentName = 269,
  kImageDescription = 270,
  kStripOffsets = 273,
  kOrientation = 274,
  kSamplesPerPixel = 277,
  kRowsPerStrip = 278,
  kStripByteCounts = 279,
  kXResolution = 282,
  kYResolution = 283,
  kPlanarConfiguration = 284,
  kPageName = 285,
  kResolutionUnit = 296,
  kPageNumber = 297,
  kSoftware = 305,
  kInkSet = 332,
  kInkNameList = 333,
  kNumberOfInks = 334,
};

enum Type : std::uint16_t { kAscii = 2, kShort = 3, kLong = 4, kRational = 5, kLong8 = 16 };

constexpr std::uint32_t kOnePageOfMany = 2;
constexpr std::uint16_t kAdobeDeflate = 8;
constexpr std::uint16_t kMinIsWhite = 0;
constexpr std::uint16_t kSeparated = 5;
constexpr std::uint16_t kSamplesTogether = 1, kPlanesApart = 2;
constexpr std::uint16_t kNamedInks = 2;  // and not C, M, Y, K
constexpr std::uint16_t kInch = 2;

// Little-endian numbers, one after the other.
class Bytes {
 public:
  template <typename T>
  Bytes& Put(T value) {
    for (std::size_t i = 0; i < sizeof value; ++i) {
      bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
    return *this;
  }
  void Append(const std::vector<std::uint8_t>& more) {
    bytes_.insert(bytes_.end(), more.begin(), more.end());
  }
  void PadTo(std::size_t size) {
    if (bytes_.size() < size) bytes_.resize(size);
  }
  void Align() { PadTo((bytes_.size() + 7) / 8 * 8); }

  std::size_t Size() const { return bytes_.size(); }
  const std::vector<std::uint8_t>& Get() const { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

// One directory; tags are to be added in ascending order.
class Directory {
 public:
  explicit Directory(bool big) : big_(big) {}

  void Short(Tag tag, std::uint16_t value) { Add(tag, kShort, 1, Bytes().Put(value)); }
  void Shorts(Tag tag, const std::vector<std::uint16_t>& values) {
    Bytes bytes;
    for (const std::uint16_t value : values) bytes.Put(value);
    Add(tag, kShort, values.size(), bytes);
  }
  void Long(Tag tag, std::uint32_t value) { Add(tag, kLong, 1, Bytes().Put(value)); }
  void Text(Tag tag, const std::string& text) {
    Bytes bytes;
    for (const char c : text) bytes.Put(static_cast<std::uint8_t>(c));
    bytes.Put(std::uint8_t{0});
    Add(tag, kAscii, bytes.Size(), bytes);
  }
  void Rational(Tag tag, double value) {
    constexpr std::uint32_t kDenominator = 1000;
    const bool whole = value == std::floor(value);
    const std::uint32_t denominator = whole ? 1 : kDenominator;
    Add(tag, kRational, 1,
        Bytes().Put(static_cast<std::uint32_t>(std::lround(value * denominator))).Put(denominator));
  }
  void Offsets(Tag tag, const std::vector<std::uint64_t>& values) {
    Bytes bytes;
    for (const std::uint64_t value : values) {
      if (big_) {
        bytes.Put(value);
      } else {
        bytes.Put(static_cast<std::uint32_t>(value));
      }
    }
    Add(tag, big_ ? kLong8 : kLong, values.size(), bytes);
  }

  // The directory as it lies at `offset` in the file, with its long values in front of the entries;
  // `start` receives where its entries begin, `link` where the offset of the next directory lies.
  std::vector<std::uint8_t> Serialise(std::uint64_t offset, std::uint64_t& start,
                                      std::uint64_t& link) const {
    const std::size_t room = big_ ? 8 : 4;
    Bytes values, entries;
    if (big_) {
      entries.Put(std::uint64_t{entries_.size()});
    } else {
      entries.Put(static_cast<std::uint16_t>(entries_.size()));
    }
    for (const Entry& entry : entries_) {
      entries.Put(static_cast<std::uint16_t>(entry.tag))
          .Put(static_cast<std::uint16_t>(entry.type));
      PutOffset(entries, entry.count);
      if (entry.value.Size() <= room) {
        Bytes inlined = entry.value;
        inlined.PadTo(room);
        entries.Append(inlined.Get());
      } else {
        PutOffset(entries, offset + values.Size());
        values.Append(entry.value.Get());
        values.Align();
      }
    }
    start = offset + values.Size();
    link = start + entries.Size();
    PutOffset(entries, 0);
    values.Append(entries.Get());
    values.Align();
    return values.Get();
  }

  void PutOffset(Bytes& bytes, std::uint64_t value) const {
    if (big_) {
      bytes.Put(value);
    } else {
      bytes.Put(static_cast<std::uint32_t>(value));
    }
  }

 private:
  struct Entry {
    Tag tag;
    Type type;
    std::uint64_t count;
    Bytes value;
  };

  void Add(Tag tag, Type type, std::uint64_t count, Bytes value) {
    entries_.push_back({tag, type, count, std::move(value)});
  }

  bool big_;
  std::vector<Entry> entries_;
};

// Where the strips of the planes in a directory lie.
struct Strips {
  std::uint32_t rowsPerStrip = 0;
  std::vector<std::uint64_t> offsets, sizes;
};

// The directory of `count` planes from `first`.
Directory DescribePlanes(const PageShape& page, TiffForm form, std::size_t first, std::size_t count,
                         const Strips& strips, bool big) {
  // One ink alone is an image that every reader knows.
  const bool separated = form == TiffForm::Separated && count > 1;
  const PlaneShape& shape = page.planes[first];
  std::string names = shape.name;  // a zero byte between them, as every text has one at its end
  for (std::size_t i = first + 1; i < first + count; ++i) names += '\0' + page.planes[i].name;
  const auto samples = static_cast<std::uint16_t>(count);

  Directory directory(big);
  directory.Long(kNewSubfileType, separated ? 0 : kOnePageOfMany);
  directory.Long(kImageWidth, shape.width);
  directory.Long(kImageLength, page.rows);
  directory.Shorts(kBitsPerSample, std::vector<std::uint16_t>(
                                       count, static_cast<std::uint16_t>(page.bitsPerPixel)));
  directory.Short(kCompression, kAdobeDeflate);
  directory.Short(kPhotometric, separated ? kSeparated : kMinIsWhite);
  directory.Text(kDocumentName, page.title);
  directory.Text(kImageDescription,
                 fmt::format("Print mode {} {}, alternate mode {}, medium {}",
                             static_cast<int>(page.mode->descriptor), page.mode->name,
                             page.alternateMode, SettingText(kMediaType, page.mediaType)));
  directory.Offsets(kStripOffsets, strips.offsets);
  directory.Short(kOrientation, 1);
  directory.Short(kSamplesPerPixel, samples);
  directory.Long(kRowsPerStrip, strips.rowsPerStrip);
  directory.Offsets(kStripByteCounts, strips.sizes);
  directory.Rational(kXResolution, shape.horizontalDpi);
  directory.Rational(kYResolution, page.verticalDpi);
  directory.Short(kPlanarConfiguration, separated ? kPlanesApart : kSamplesTogether);
  if (!separated) directory.Text(kPageName, shape.name);
  directory.Short(kResolutionUnit, kInch);
  if (!separated) {
    directory.Shorts(kPageNumber, {static_cast<std::uint16_t>(first),
                                   static_cast<std::uint16_t>(page.planes.size())});
  }
  directory.Text(kSoftware, kTiffSoftware);
  if (separated) directory.Short(kInkSet, kNamedInks);
  directory.Text(kInkNameList, names);
  if (separated) directory.Short(kNumberOfInks, samples);
  return directory;
}

std::vector<std::uint8_t> Header(bool big, std::uint64_t firstDirectory) {
  Bytes bytes;
  bytes.Put(std::uint8_t{'I'}).Put(std::uint8_t{'I'});
  if (big) {
    bytes.Put(std::uint16_t{43}).Put(std::uint16_t{8}).Put(std::uint16_t{0}).Put(firstDirectory);
  } else {
    bytes.Put(std::uint16_t{42}).Put(static_cast<std::uint32_t>(firstDirectory));
  }
  return bytes.Get();
}

}  // namespace

struct TiffSink::KeptStrips : KeptRows {
  std::size_t Bytes() const override {
    std::size_t bytes = 0;
    for (const auto& plane : planes) {
      for (const Compressed& strip : plane)
        bytes += strip->size() + sizeof(Compressed::element_type);
    }
    return bytes;
  }

  std::vector<std::vector<Compressed>> planes;
};

TiffSink::TiffSink(StagedFile& file, int threads, TiffForm form)
    : file_(file), threads_(threads), form_(form) {}

TiffSink::~TiffSink() = default;

void TiffSink::StartPage(const PageShape& page) {
  page_ = page;
  for (const PlaneShape& shape : page.planes) {
    Plane plane;
    plane.rowBytes =
        (std::size_t{shape.width} * static_cast<std::size_t>(page.bitsPerPixel) + 7) / 8;
    plane.rowsPerStrip = static_cast<std::uint32_t>(
        std::clamp<std::size_t>(kStripBytes / plane.rowBytes, 1, std::max(page.rows, 1u)));
    plane.strip.resize(plane.rowBytes * plane.rowsPerStrip);
    if (keeps_) plane.kept.resize((page.rows + plane.rowsPerStrip - 1) / plane.rowsPerStrip);
    planes_.push_back(std::move(plane));
  }
  const std::uint8_t header[kHeaderBytes] = {};
  file_.Append(header, sizeof header);
  // The strips of all planes of the same width fill at the same row.
  encoder_ =
      std::make_unique<StripEncoder>(threads_, planes_.size(),
                                     [this](std::size_t plane, const std::uint8_t* data,
                                            std::size_t size) { WriteStrip(plane, data, size); });
}

void TiffSink::WriteStrip(std::size_t index, const std::uint8_t* data, std::size_t size) {
  Plane& plane = planes_[index];
  if (keeps_) {
    Compressed& kept = plane.kept[plane.sizes.size()];
    if (!kept) kept = std::make_shared<const std::vector<std::uint8_t>>(data, data + size);
  }
  plane.offsets.push_back(file_.Size());
  plane.sizes.push_back(size);
  file_.Append(data, size);
}

void TiffSink::WriteRow(const std::uint8_t* row) {
  for (std::size_t i = 0; i < planes_.size(); ++i) {
    Plane& plane = planes_[i];
    std::memcpy(plane.strip.data() + plane.rowsHeld * plane.rowBytes, row + page_.planes[i].offset,
                plane.rowBytes);
    if (++plane.rowsHeld == plane.rowsPerStrip) SubmitStrip(i);
  }
  ++row_;
}

bool TiffSink::KeepRows() {
  keeps_ = true;
  return true;
}

std::uint32_t TiffSink::EndOfStrip(const Plane& plane) const {
  return std::min(page_.rows, row_ - plane.rowsHeld + plane.rowsPerStrip);
}

// Strips go into the file in the order in which they fill, as they do when rows are written.
void TiffSink::CopyRows(const KeptRows& rows, std::uint32_t end) {
  const auto& from = static_cast<const KeptStrips&>(rows);
  for (std::size_t i = 0; i < planes_.size(); ++i) {
    Plane& plane = planes_[i];
    if (plane.rowsHeld == 0 && EndOfStrip(plane) <= end) {
      plane.copied = from.planes[i][plane.submitted];
    }
  }
  while (row_ < end) {
    std::uint32_t next = end;
    for (const Plane& plane : planes_) next = std::min(next, EndOfStrip(plane));
    const std::uint32_t start = row_;
    row_ = next;
    for (std::size_t i = 0; i < planes_.size(); ++i) {
      Plane& plane = planes_[i];
      if (!plane.copied) CopyToStrip(i, from, next - start);
      plane.rowsHeld += next - start;
      if (plane.rowsHeld == plane.rowsPerStrip) SubmitStrip(i);
      if (plane.rowsHeld == 0 && EndOfStrip(plane) <= end && row_ < end) {
        plane.copied = from.planes[i][plane.submitted];
      }
    }
  }
}

void TiffSink::CopyToStrip(std::size_t index, const KeptStrips& from, std::uint32_t rows) {
  Plane& plane = planes_[index];
  const std::size_t first = plane.submitted * plane.rowsPerStrip;
  opened_.resize(std::min<std::size_t>(plane.rowsPerStrip, page_.rows - first) * plane.rowBytes);
  DecompressStrip(*from.planes[index][plane.submitted], opened_);
  const std::size_t offset = plane.rowsHeld * plane.rowBytes;
  std::memcpy(plane.strip.data() + offset, opened_.data() + offset, rows * plane.rowBytes);
}

std::shared_ptr<const KeptRows> TiffSink::Kept() {
  auto kept = std::make_shared<KeptStrips>();
  for (Plane& plane : planes_) kept->planes.push_back(std::move(plane.kept));
  return kept;
}

void TiffSink::SubmitStrip(std::size_t index) {
  Plane& plane = planes_[index];
  if (plane.copied) {
    plane.kept[plane.submitted] = plane.copied;
    encoder_->SubmitCompressed(index, std::move(plane.copied));
  } else {
    plane.strip.resize(plane.rowsHeld * plane.rowBytes);
    encoder_->Submit(index, plane.strip);
    plane.strip.resize(plane.rowBytes * plane.rowsPerStrip);
  }
  ++plane.submitted;
  plane.rowsHeld = 0;
}

void TiffSink::EndPage() {
  for (std::size_t i = 0; i < planes_.size(); ++i) {
    if (planes_[i].rowsHeld > 0) SubmitStrip(i);
  }
  encoder_->Finish();
  encoder_.reset();
  WriteDirectories();
  file_.Finish();
}

void TiffSink::WriteDirectories() {
  std::uint64_t strips = 0;
  for (const Plane& plane : planes_) strips += plane.offsets.size();
  constexpr std::uint64_t kMostDirectoryBytes = 4096;
  // A strip has an offset and a size.
  const bool big =
      file_.Size() + 16 * strips + kMostDirectoryBytes * planes_.size() > kClassicLimit;

  const std::uint8_t padding[8] = {};
  file_.Append(padding, (8 - file_.Size() % 8) % 8);
  std::uint64_t link = big ? 8 : 4;  // where the offset of the next directory belongs
  const std::size_t perDirectory = form_ == TiffForm::Separated ? planes_.size() : 1;
  for (std::size_t i = 0; i < planes_.size(); i += perDirectory) {
    Strips places{planes_[i].rowsPerStrip, {}, {}};
    for (std::size_t plane = i; plane < i + perDirectory; ++plane) {
      const Plane& held = planes_[plane];
      places.offsets.insert(places.offsets.end(), held.offsets.begin(), held.offsets.end());
      places.sizes.insert(places.sizes.end(), held.sizes.begin(), held.sizes.end());
    }
    const Directory directory = DescribePlanes(page_, form_, i, perDirectory, places, big);
    std::uint64_t start = 0, nextLink = 0;
    const std::vector<std::uint8_t> bytes = directory.Serialise(file_.Size(), start, nextLink);
    file_.Append(bytes.data(), bytes.size());
    if (i == 0) {
      const std::vector<std::uint8_t> header = Header(big, start);
      file_.WriteAt(0, header.data(), header.size());
    } else {
      Bytes offset;
      directory.PutOffset(offset, start);
      file_.WriteAt(link, offset.Get().data(), offset.Size());
    }
    link = nextLink;
  }
}

}  // namespace corvane
