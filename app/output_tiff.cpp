// SPDX-License-Identifier: MIT
#include "app/output_tiff.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <string>

#include "app/output_strips.h"

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
  kInkNameList = 333,
};

enum Type : std::uint16_t { kAscii = 2, kShort = 3, kLong = 4, kRational = 5, kLong8 = 16 };

constexpr std::uint32_t kOnePageOfMany = 2;
constexpr std::uint16_t kAdobeDeflate = 8;
constexpr std::uint16_t kMinIsWhite = 0;
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
  void Shorts(Tag tag, std::uint16_t a, std::uint16_t b) {
    Add(tag, kShort, 2, Bytes().Put(a).Put(b));
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

TiffSink::TiffSink(StagedFile& file, int threads) : file_(file), threads_(threads) {}

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
    planes_.push_back(std::move(plane));
  }
  const std::uint8_t header[kHeaderBytes] = {};
  file_.Append(header, sizeof header);
  // The strips of all planes of the same width fill at the same row.
  encoder_ = std::make_unique<StripEncoder>(
      threads_, planes_.size(),
      [this](std::size_t plane, const std::uint8_t* data, std::size_t size) {
        planes_[plane].offsets.push_back(file_.Size());
        planes_[plane].sizes.push_back(size);
        file_.Append(data, size);
      });
}

void TiffSink::WriteRow(const std::uint8_t* row) {
  for (std::size_t i = 0; i < planes_.size(); ++i) {
    Plane& plane = planes_[i];
    std::memcpy(plane.strip.data() + plane.rowsHeld * plane.rowBytes, row + page_.planes[i].offset,
                plane.rowBytes);
    if (++plane.rowsHeld == plane.rowsPerStrip) SubmitStrip(i);
  }
}

void TiffSink::SubmitStrip(std::size_t index) {
  Plane& plane = planes_[index];
  plane.strip.resize(plane.rowsHeld * plane.rowBytes);
  encoder_->Submit(index, plane.strip);
  plane.strip.resize(plane.rowBytes * plane.rowsPerStrip);
  plane.rowsHeld = 0;
}

void TiffSink::EndPage() {
  for (std::size_t i = 0; i < planes_.size(); ++i) {
    if (planes_[i].rowsHeld > 0) SubmitStrip(i);
  }
  encoder_->Finish();
  encoder_.reset();
  WriteDirectories();
}

void TiffSink::WriteDirectories() {
  std::uint64_t strips = 0;
  for (const Plane& plane : planes_) strips += plane.offsets.size();
  constexpr std::uint64_t kMostDirectoryBytes = 4096;
  const bool big = file_.Size() + 8 * strips + kMostDirectoryBytes * planes_.size() > kClassicLimit;

  const std::uint8_t padding[8] = {};
  file_.Append(padding, (8 - file_.Size() % 8) % 8);
  std::uint64_t link = big ? 8 : 4;  // where the offset of the next directory belongs
  for (std::size_t i = 0; i < planes_.size(); ++i) {
    const Plane& plane = planes_[i];
    const PlaneShape& shape = page_.planes[i];
    Directory directory(big);
    directory.Long(kNewSubfileType, kOnePageOfMany);
    directory.Long(kImageWidth, shape.width);
    directory.Long(kImageLength, page_.rows);
    directory.Short(kBitsPerSample, static_cast<std::uint16_t>(page_.bitsPerPixel));
    directory.Short(kCompression, kAdobeDeflate);
    directory.Short(kPhotometric, kMinIsWhite);
    directory.Text(kDocumentName, page_.title);
    directory.Text(kImageDescription, fmt::format("Print mode {} {}, alternate mode {}",
                                                  static_cast<int>(page_.mode->descriptor),
                                                  page_.mode->name, page_.alternateMode));
    directory.Offsets(kStripOffsets, plane.offsets);
    directory.Short(kOrientation, 1);
    directory.Short(kSamplesPerPixel, 1);
    directory.Long(kRowsPerStrip, plane.rowsPerStrip);
    directory.Offsets(kStripByteCounts, plane.sizes);
    directory.Rational(kXResolution, shape.horizontalDpi);
    directory.Rational(kYResolution, page_.verticalDpi);
    directory.Short(kPlanarConfiguration, 1);
    directory.Text(kPageName, shape.name);
    directory.Short(kResolutionUnit, kInch);
    directory.Shorts(kPageNumber, static_cast<std::uint16_t>(i),
                     static_cast<std::uint16_t>(planes_.size()));
    directory.Text(kSoftware, "Corvane");
    directory.Text(kInkNameList, shape.name);

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
