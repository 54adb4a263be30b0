// SPDX-License-Identifier: MIT
#include "app/image/ink_planes.h"

#include <fmt/format.h>
#include <tiffio.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>
#include <utility>

#include "app/image/kind.h"
#include "app/image/reader.h"
#include "app/image/tiff_file.h"
#include "app/image/tiff_rows.h"
#include "app/support/failure.h"
#include "app/support/input_file.h"
#include "app/support/input_stream.h"
#include "app/support/interrupt.h"
#include "app/support/json.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostPlanes = 64;

// ---------------------------------------------------------------------------------------------
// TIFF

// The texts of a list in which each ends with a zero byte.
std::vector<std::string> SplitNames(std::string_view list) {
  std::vector<std::string> names;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find('\0'), list.size());
    names.emplace_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return names;
}

// The ink names of the directory that the file is at.
std::vector<std::string> InkNamesOf(TIFF* file) {
  const char* list = nullptr;
  if (TIFFGetField(file, TIFFTAG_INKNAMES, &list) == 0 || list == nullptr) return {};
  // The library gives no length, but has seen to it that as many names as inks are there.
  const auto inks = Field<std::uint16_t>(file, TIFFTAG_NUMBEROFINKS, 1);
  const char* end = list;
  for (int i = 0; i < inks; ++i) end += std::strlen(end) + 1;
  return SplitNames({list, static_cast<std::size_t>(end - list)});
}

class TiffInkPlanes : public InkPlanesReader {
 public:
  explicit TiffInkPlanes(const std::string& path) {
    info_.path = path;
    info_.files = {path};
    int directory = 0;
    do {
      AddDirectory(directory++);
    } while (!IsLastTiffDirectory(files_.back().get(), path));
  }

  void ReadRow(std::uint8_t* row) override {
    for (const Part& part : parts_) {
      if (part.samples.bits == 8 && part.inks == 1) {
        part.rows->Read(y_, row);
        row += info_.width;
        continue;
      }
      part.rows->Read(y_, stored_.data());
      const std::size_t step = part.inks;
      for (std::size_t ink = 0; ink < step; ++ink) {
        for (std::size_t x = 0; x < info_.width; ++x) {
          *row++ = static_cast<std::uint8_t>(
              WideSample(stored_.data(), x * step + ink, part.samples) >> 8);
        }
      }
    }
    ++y_;
  }

 private:
  // Planes that lie together: all of a directory or one.
  struct Part {
    Samples samples;
    std::size_t inks = 1;
    std::unique_ptr<StoredRows> rows;
  };

  [[noreturn]] void FailOfKind(std::string_view reason) const {
    throw Failure(fmt::format("{}: no separations: {}", info_.path, reason));
  }

  TIFF* OpenDirectory(int directory) {
    files_.push_back(OpenTiffDirectory(info_.path, directory));
    return files_.back().get();
  }

  void AddDirectory(int directory) {
    if (info_.inks.size() >= kMostPlanes) FailOfKind("too many planes");
    TIFF* file = OpenDirectory(directory);
    const Samples samples = ReadSamples(file);
    const bool separated = samples.photometric == PHOTOMETRIC_SEPARATED;
    if (!separated && (samples.photometric != PHOTOMETRIC_MINISWHITE || samples.perPixel != 1)) {
      FailOfKind("its colours are no inks");
    }
    if ((samples.bits != 8 && samples.bits != 16) || samples.format != SAMPLEFORMAT_UINT) {
      FailOfKind(fmt::format("samples of {} bits instead of 8 or 16", samples.bits));
    }
    const std::vector<std::string> names = InkNamesOf(file);
    if (names.empty()) FailOfKind("its inks have no names");
    if (names.size() != static_cast<std::size_t>(samples.perPixel)) {
      FailOfKind(fmt::format("{} ink names for {} planes", names.size(), samples.perPixel));
    }
    info_.inks.insert(info_.inks.end(), names.begin(), names.end());
    if (info_.inks.size() > kMostPlanes) FailOfKind("too many planes");
    Describe(file, directory);
    const int parts = samples.separate ? samples.perPixel : 1;
    const auto rowBytes = static_cast<std::size_t>(TIFFScanlineSize(file));
    const std::size_t samplesPerRow = names.size() / static_cast<std::size_t>(parts) * info_.width;
    if (rowBytes != samplesPerRow * static_cast<std::size_t>(samples.bits) / 8) {
      FailAsDamaged(info_.path);
    }
    stored_.resize(std::max(stored_.size(), rowBytes));
    for (int i = 0; i < parts; ++i) {
      // A handle each, so that each decodes its strips in order.
      if (i > 0) file = OpenDirectory(directory);
      parts_.push_back({samples, names.size() / static_cast<std::size_t>(parts),
                        OpenStoredRows(file, samples, i, info_.width, info_.height, info_.path)});
    }
  }

  void Describe(TIFF* file, int directory) {
    const auto width = Field<std::uint32_t>(file, TIFFTAG_IMAGEWIDTH, 0);
    const auto height = Field<std::uint32_t>(file, TIFFTAG_IMAGELENGTH, 0);
    if (Field<std::uint16_t>(file, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) !=
        ORIENTATION_TOPLEFT) {
      FailOfKind("its rows do not begin at the top left");
    }
    const TiffResolution dpi = ResolutionOf(file);
    if (directory == 0) {
      CheckImageSize(info_.path, width, height);
      info_.width = width;
      info_.height = height;
      info_.horizontalDpi = dpi.horizontal;
      info_.verticalDpi = dpi.vertical;
    } else if (width != info_.width || height != info_.height) {
      FailOfKind("its planes differ in size");
    }
  }

  std::vector<TiffFile> files_;
  std::vector<Part> parts_;
  std::vector<std::uint8_t> stored_;
  std::uint32_t y_ = 0;  // of the next row
};

// ---------------------------------------------------------------------------------------------
// Raw rows

class RawInkPlanes : public InkPlanesReader {
 public:
  // `description` is the JSON file.
  explicit RawInkPlanes(const std::string& description) {
    info_.path = description;
    const nlohmann::json page = ReadJsonFile(description);
    try {
      Describe(page);
    } catch (const nlohmann::json::exception&) {
      throw Failure(description + ": is no description of raw separations");
    } catch (const Failure& failure) {
      throw Failure(fmt::format("{}: {}", description, failure.what()));
    }
    CheckImageSize(description, info_.width, info_.height);
    for (const Plane& plane : planes_) {
      if (plane.offset > rowBytes_ || rowBytes_ - plane.offset < info_.width) {
        throw Failure(fmt::format("{}: a plane lies beyond its row", description));
      }
    }
    info_.files = {description, data_};
    file_ = OpenInputFile(data_);
    std::error_code problem;
    const auto size = fs::file_size(data_, problem);
    if (!problem && size != std::uint64_t{rowBytes_} * info_.height) {
      throw Failure(
          fmt::format("{}: has {} bytes, not {} rows of {}", data_, size, info_.height, rowBytes_));
    }
    stored_.resize(rowBytes_);
  }

  void ReadRow(std::uint8_t* row) override {
    if (std::fread(stored_.data(), 1, rowBytes_, file_.get()) != rowBytes_) {
      throw Failure(data_ + ": is cut short");
    }
    for (const Plane& plane : planes_) {
      std::memcpy(row, stored_.data() + plane.offset, info_.width);
      row += info_.width;
    }
  }

 private:
  struct Plane {
    std::size_t offset = 0;
  };

  void Describe(const nlohmann::json& page) {
    unsigned bits = 0;
    TakeWholeNumber(page, "bitsPerPixel", &bits);
    if (bits != 8) throw Failure("no separations: their planes have 8 bits a pixel");
    constexpr std::uint64_t kMostRowBytes = std::uint64_t{1} << 30;
    TakeWholeNumber(page, "rowBytes", &rowBytes_);
    const nlohmann::json& planes = page.at("planes");
    if (!planes.is_array() || planes.empty() || planes.size() > kMostPlanes || rowBytes_ == 0 ||
        rowBytes_ > kMostRowBytes) {
      throw Failure("is no description of raw separations");
    }
    data_ = (fs::path(info_.path).parent_path() / page.at("data").get<std::string>()).string();
    TakeWholeNumber(page, "rows", &info_.height);
    TakeWholeNumber(planes[0], "width", &info_.width);
    info_.horizontalDpi = planes[0].at("horizontalDpi").get<double>();
    info_.verticalDpi = page.at("verticalDpi").get<double>();
    for (const nlohmann::json& plane : planes) {
      std::uint32_t width = 0;
      TakeWholeNumber(plane, "width", &width);
      if (width != info_.width) throw Failure("its planes differ in size");
      info_.inks.push_back(plane.at("ink").get<std::string>());
      TakeWholeNumber(plane, "offset", &planes_.emplace_back().offset);
    }
  }

  std::string data_;
  InputFile file_;
  std::size_t rowBytes_ = 0;
  std::vector<Plane> planes_;
  std::vector<std::uint8_t> stored_;
};

// ---------------------------------------------------------------------------------------------

class InkRows : public RowSource {
 public:
  InkRows(std::unique_ptr<InkPlanesReader> planes, const std::vector<InkPlane>& inks)
      : RowSource(planes->Info().width, planes->Info().height, inks.size()),
        planes_(std::move(planes)) {
    const InkPlanesInfo& info = planes_->Info();
    for (const InkPlane& plane : inks) {
      const auto found = std::find(info.inks.begin(), info.inks.end(), plane.ink);
      if (found == info.inks.end()) {
        throw Failure(fmt::format("{}: no ink {}", info.path, plane.ink));
      }
      places_.push_back(
          {static_cast<std::size_t>(found - info.inks.begin()) * info.width, plane.printed});
    }
    stored_.resize(info.inks.size() * info.width);
  }

  void ReadRow(std::uint8_t* row) override {
    ThrowIfInterrupted();
    planes_->ReadRow(stored_.data());
    for (const Place& place : places_) {
      const std::uint8_t* const plane = stored_.data() + place.offset;
      if (!place.printed) CheckEmpty(plane, place);
      std::memcpy(row, plane, Width());
      row += Width();
    }
  }

 private:
  // Of a plane in a stored row.
  struct Place {
    std::size_t offset;
    bool printed;
  };

  void CheckEmpty(const std::uint8_t* plane, const Place& place) const {
    if (std::all_of(plane, plane + Width(), [](std::uint8_t amount) { return amount == 0; })) {
      return;
    }
    const InkPlanesInfo& info = planes_->Info();
    throw Failure(fmt::format("{}: has ink {}, which the print mode does not print", info.path,
                              info.inks[place.offset / info.width]));
  }

  std::unique_ptr<InkPlanesReader> planes_;
  std::vector<Place> places_;
  std::vector<std::uint8_t> stored_;
};

// The description of raw rows: the file itself, or the one beside the rows.
std::string DescriptionOf(const std::string& path) {
  fs::path description(path);
  if (description.extension() != ".json") description.replace_extension(".json");
  std::error_code ignored;
  if (!fs::exists(description, ignored)) {
    throw Failure(fmt::format("{}: no separations: no TIFF file, and without {}", path,
                              description.filename().string()));
  }
  return description.string();
}

}  // namespace

std::unique_ptr<InkPlanesReader> OpenInkPlanes(const std::string& path) {
  std::unique_ptr<InkPlanesReader> planes;
  InputStream input(path);
  const auto kind = KindOf(input);
  if (kind == FileKind::Tiff) {
    planes = std::make_unique<TiffInkPlanes>(path);
  } else {
    planes = std::make_unique<RawInkPlanes>(DescriptionOf(path));
  }
  std::set<std::string> seen;
  for (const std::string& ink : planes->Info().inks) {
    if (!seen.insert(ink).second) throw Failure(fmt::format("{}: has ink {} twice", path, ink));
  }
  return planes;
}

std::unique_ptr<RowSource> MakeInkRows(std::unique_ptr<InkPlanesReader> planes,
                                       const std::vector<InkPlane>& inks) {
  return std::make_unique<InkRows>(std::move(planes), inks);
}

}  // namespace corvane
