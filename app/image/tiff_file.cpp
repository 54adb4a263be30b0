// SPDX-License-Identifier: MIT
#include "app/image/tiff_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "app/image/jpeg_padding.h"
#include "app/image/reader.h"
#include "app/image/tiff_memory.h"
#include "app/support/failure.h"
#include "app/support/short_memory.h"

namespace corvane {
namespace {

// What the library last complained of on this thread. An array, since nothing may be thrown through
// the library.
thread_local char lastError[256] = "";

void KeepError(const char*, const char* format, va_list arguments) {
  std::vsnprintf(lastError, sizeof lastError, format, arguments);
}

// Some decoders fill up what they cannot decode, say that they are done, and warn. JPEG decoders
// warn once a strip, of whatever comes first, so all that they say counts but for what may stand
// behind the last row.
bool TellsOfDamage(std::string_view decoder, const char* warning) {
  if (decoder == "JPEGLib" || decoder == "LibJpeg") {
    int bytes = 0;
    unsigned marker = 0;
    constexpr unsigned kEnd = 0xD9;
    const int read = std::sscanf(warning, "Corrupt JPEG data: %d extraneous bytes before marker %x",
                                 &bytes, &marker);
    return read != 2 || marker != kEnd || bytes > kMostJpegPadding;
  }
  return decoder.starts_with("Fax") || decoder.starts_with("PackBits");
}

void KeepWarning(const char* decoder, const char* format, va_list arguments) {
  char warning[sizeof lastError];
  std::vsnprintf(warning, sizeof warning, format, arguments);
  if (decoder != nullptr && lastError[0] == '\0' && TellsOfDamage(decoder, warning)) {
    std::memcpy(lastError, warning, sizeof lastError);
  }
}

// Before and after the library reads a directory, of which it leaves out what it has no memory for.
void StartReading() {
  lastError[0] = '\0';
  StartWatchingMemory();
}

void FinishReading(const std::string& path, bool done) {
  if (!done) FailAsDamaged(path);
  ThrowIfMemoryFailed();
}

bool IsPage(TIFF* file) {
  constexpr std::uint32_t kNoPage = FILETYPE_REDUCEDIMAGE | FILETYPE_MASK;
  return (Field<std::uint32_t>(file, TIFFTAG_SUBFILETYPE, 0) & kNoPage) == 0;
}

// A number of the file in its own byte order; nothing when it does not lie in the file or cannot be
// read.
template <typename Number>
std::optional<Number> ReadNumber(TIFF* file, toff_t place) {
  Number number = 0;
  const thandle_t handle = TIFFClientdata(file);
  if (TIFFGetSeekProc(file)(handle, place, SEEK_SET) != place) return std::nullopt;
  if (TIFFGetReadProc(file)(handle, &number, sizeof number) != sizeof number) return std::nullopt;
  if (TIFFIsByteSwapped(file) == 0) return number;
  auto* bytes = reinterpret_cast<std::uint8_t*>(&number);
  std::reverse(bytes, bytes + sizeof number);
  return number;
}

// Where the directory behind the present one lies, 0 for none; nothing when that cannot be read.
// Behind its entries, `Count` many, every directory has the place of the next.
template <typename Count, typename Place>
std::optional<toff_t> ReadNextPlace(TIFF* file, std::uint64_t entryBytes) {
  const toff_t here = TIFFCurrentDirOffset(file);
  const auto entries = ReadNumber<Count>(file, here);
  if (!entries) return std::nullopt;
  return ReadNumber<Place>(file, here + sizeof(Count) + *entries * entryBytes);
}

// Moves to the directory that follows; false behind the last. A directory that is promised and
// cannot be read is a damaged file: its pages must not go missing in silence.
bool NextDirectory(TIFF* file, const std::string& path) {
  if (IsLastTiffDirectory(file, path)) return false;
  StartReading();
  FinishReading(path, TIFFReadDirectory(file) != 0);
  return true;
}

// A file as it was: size and time of change.
using FileState = std::pair<std::uintmax_t, std::filesystem::file_time_type>;

FileState StateOf(const std::string& path) {
  std::error_code ignored;
  return {std::filesystem::file_size(path, ignored),
          std::filesystem::last_write_time(path, ignored)};
}

// Where the pages of long files lie, of those last asked for: going through the chain for every
// page takes a time that grows with the square of their number.
class PagePlaces {
 public:
  // `state` is the file's before it was read.
  void Keep(const std::string& path, const FileState& state, std::vector<toff_t> offsets) {
    if (offsets.size() < kFew) return;
    const std::lock_guard lock(mutex_);
    std::erase_if(files_, [&](const Known& known) { return known.path == path; });
    if (files_.size() == kMostFiles) files_.pop_front();
    files_.push_back({path, state, std::move(offsets)});
  }

  // 0 where it is not known, or the file has changed since.
  toff_t Find(const std::string& path, int page) {
    const std::lock_guard lock(mutex_);
    const Known* const known = Find(path);
    const auto index = static_cast<std::size_t>(page);
    return known != nullptr && index < known->offsets.size() ? known->offsets[index] : 0;
  }

  // How many pages the file has; 0 where it is not known, or the file has changed since.
  int Count(const std::string& path) {
    const std::lock_guard lock(mutex_);
    const Known* const known = Find(path);
    return known == nullptr ? 0 : static_cast<int>(known->offsets.size());
  }

 private:
  static constexpr std::size_t kFew = 16, kMostFiles = 16;
  struct Known {
    std::string path;
    FileState state;
    std::vector<toff_t> offsets;
  };

  const Known* Find(const std::string& path) const {
    const auto known = std::find_if(files_.begin(), files_.end(),
                                    [&](const Known& file) { return file.path == path; });
    return known == files_.end() || known->state != StateOf(path) ? nullptr : &*known;
  }

  std::mutex mutex_;
  std::deque<Known> files_;
};

PagePlaces pagePlaces;

// A file whose header is read as if it led to another directory than to the first. The library
// finds a directory by going through the chain, from whichever it is told to begin with.
class FileFromPage {
 public:
  static TIFF* Open(const std::string& path, toff_t directory) {
    auto self = std::make_unique<FileFromPage>(std::fopen(path.c_str(), "rb"), directory);
    if (!self->file_ || !self->ReadHeader()) return nullptr;
    TIFF* const tiff = TIFFClientOpen(path.c_str(), "rm", self.get(), &Read, &Write, &Seek, &Close,
                                      &Size, nullptr, nullptr);
    if (tiff == nullptr) return nullptr;
    // Stored rows are read beside the library, from the file itself.
    TIFFSetFileno(tiff, fileno(self->file_.get()));
    static_cast<void>(self.release());  // the library closes it
    return tiff;
  }

  FileFromPage(std::FILE* file, toff_t directory)
      : file_(file, &std::fclose), directory_(directory) {}

 private:
  bool ReadHeader() {
    unsigned char head[4] = {};
    if (std::fread(head, 1, sizeof head, file_.get()) != sizeof head) return false;
    std::rewind(file_.get());
    const bool bigEndian = head[0] == 'M';
    const bool big = head[bigEndian ? 3 : 2] == '+';
    start_ = big ? 8 : 4;
    bytes_.resize(big ? 8 : 4);
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
      const std::size_t place = bigEndian ? bytes_.size() - 1 - i : i;
      bytes_[place] = static_cast<unsigned char>(directory_ >> (8 * i));
    }
    return true;
  }

  static FileFromPage& Of(thandle_t handle) { return *static_cast<FileFromPage*>(handle); }

  static tmsize_t Read(thandle_t handle, void* data, tmsize_t size) {
    FileFromPage& self = Of(handle);
    const std::uint64_t from = self.position_;
    const std::size_t got = std::fread(data, 1, static_cast<std::size_t>(size), self.file_.get());
    for (std::size_t i = 0; i < self.bytes_.size(); ++i) {
      const std::uint64_t at = self.start_ + i;
      if (at >= from && at < from + got) {
        static_cast<unsigned char*>(data)[at - from] = self.bytes_[i];
      }
    }
    self.position_ += got;
    return static_cast<tmsize_t>(got);
  }

  static tmsize_t Write(thandle_t, void*, tmsize_t) { return 0; }

  static toff_t Seek(thandle_t handle, toff_t offset, int whence) {
    FileFromPage& self = Of(handle);
    if (fseeko(self.file_.get(), static_cast<off_t>(offset), whence) != 0) {
      return static_cast<toff_t>(-1);
    }
    self.position_ = static_cast<std::uint64_t>(ftello(self.file_.get()));
    return self.position_;
  }

  static toff_t Size(thandle_t handle) {
    FileFromPage& self = Of(handle);
    const std::uint64_t position = self.position_;
    const toff_t size = Seek(handle, 0, SEEK_END);
    Seek(handle, position, SEEK_SET);
    return size;
  }

  static int Close(thandle_t handle) {
    delete &Of(handle);
    return 0;
  }

  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
  toff_t directory_;
  std::uint64_t start_ = 0, position_ = 0;
  std::vector<unsigned char> bytes_;  // of the header's offset, in the file's order
};

void GoToDirectory(TIFF* file, const std::string& path, int directory) {
  StartReading();
  FinishReading(path, TIFFSetDirectory(file, static_cast<tdir_t>(directory)) != 0);
}

// Moves to a page, counted from 0 without reduced images and masks.
void GoToPage(TIFF* file, const std::string& path, int page) {
  int left = page;
  do {
    if (IsPage(file) && left-- == 0) return;
  } while (NextDirectory(file, path));
  // A file of nothing but reduced images still shows its first.
  if (page != 0) FailAsDamaged(path);
  GoToDirectory(file, path, 0);
}

}  // namespace

void FailAsDamaged(const std::string& path) {
  ThrowIfMemoryFailed();
  throw Failure(
      fmt::format("{}: damaged TIFF image{}{}", path, lastError[0] == '\0' ? "" : ": ", lastError));
}

bool IsLastTiffDirectory(TIFF* file, const std::string& path) {
  if (TIFFLastDirectory(file) == 0) return false;
  // The library takes a place that it cannot read for none.
  constexpr std::uint16_t kBigTiff = 43;
  const auto version = ReadNumber<std::uint16_t>(file, 2);
  const std::optional<toff_t> next = version == kBigTiff
                                         ? ReadNextPlace<std::uint64_t, std::uint64_t>(file, 20)
                                         : ReadNextPlace<std::uint16_t, std::uint32_t>(file, 12);
  // It can be read by now where one read alone has failed.
  if (!version || !next || *next != 0) FailAsDamaged(path);
  return true;
}

TiffFile OpenTiffFile(const std::string& path) {
  static const bool prepared = [] {
    TIFFSetErrorHandler(&KeepError);
    TIFFSetWarningHandler(&KeepWarning);
    KeepMemoryForTiff();
    return true;
  }();
  static_cast<void>(prepared);
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) throw Failure(path + ": is a directory");
  StartReading();
  // Not mapped: the pages of a mapped file would stay in memory until its end.
  TiffFile file(TIFFOpen(path.c_str(), "rm"));
  FinishReading(path, file != nullptr);
  return file;
}

TiffFile OpenTiffDirectory(const std::string& path, int directory) {
  TiffFile file = OpenTiffFile(path);
  if (directory != 0) GoToDirectory(file.get(), path, directory);
  return file;
}

TiffFile OpenTiffPage(const std::string& path, int page) {
  // From where going through the pages before costs as much as listing all.
  constexpr int kFar = 16;
  toff_t place = pagePlaces.Find(path, page);
  if (place == 0 && page >= kFar) {
    CountTiffPages(path);
    place = pagePlaces.Find(path, page);
  }
  if (place == 0) {
    TiffFile file = OpenTiffFile(path);
    GoToPage(file.get(), path, page);
    return file;
  }
  StartReading();
  TiffFile file(FileFromPage::Open(path, place));
  FinishReading(path, file != nullptr);
  return file;
}

void StartDecoding() {
  lastError[0] = '\0';
  StartWatchingMemory();
}

void FinishDecoding(const std::string& path, bool done) {
  if (!done || lastError[0] != '\0') FailAsDamaged(path);
}

TiffResolution ResolutionOf(TIFF* file) {
  float horizontal = 0, vertical = 0;
  const auto unit = Field<std::uint16_t>(file, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
  if (unit == RESUNIT_NONE || TIFFGetField(file, TIFFTAG_XRESOLUTION, &horizontal) == 0 ||
      TIFFGetField(file, TIFFTAG_YRESOLUTION, &vertical) == 0) {
    return {};
  }
  const double perInch = unit == RESUNIT_CENTIMETER ? 2.54 : 1;
  return {static_cast<double>(horizontal) * perInch, static_cast<double>(vertical) * perInch};
}

Samples ReadSamples(TIFF* file) {
  Samples samples;
  samples.perPixel = Field<std::uint16_t>(file, TIFFTAG_SAMPLESPERPIXEL, 1);
  samples.bits = Field<std::uint16_t>(file, TIFFTAG_BITSPERSAMPLE, 1);
  samples.format = Field<std::uint16_t>(file, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
  if (samples.format == SAMPLEFORMAT_VOID) samples.format = SAMPLEFORMAT_UINT;
  const int guess = samples.perPixel >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
  samples.photometric =
      Field<std::uint16_t>(file, TIFFTAG_PHOTOMETRIC, static_cast<std::uint16_t>(guess));
  samples.separate = samples.perPixel > 1 &&
                     Field<std::uint16_t>(file, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) ==
                         PLANARCONFIG_SEPARATE;
  samples.tiled = TIFFIsTiled(file) != 0;
  std::uint16_t count = 0;
  std::uint16_t* kinds = nullptr;
  if (TIFFGetFieldDefaulted(file, TIFFTAG_EXTRASAMPLES, &count, &kinds) != 0 && count > 0) {
    samples.extraCount = count;
    samples.extra = kinds[0];
    samples.spare = std::find(kinds, kinds + count, EXTRASAMPLE_UNSPECIFIED) != kinds + count;
  }
  return samples;
}

int CountTiffPages(const std::string& path) {
  if (const int known = pagePlaces.Count(path)) return known;
  const FileState state = StateOf(path);
  const TiffFile file = OpenTiffFile(path);
  std::vector<toff_t> offsets;
  do {
    if (IsPage(file.get())) offsets.push_back(TIFFCurrentDirOffset(file.get()));
  } while (NextDirectory(file.get(), path));
  const int pages = static_cast<int>(std::max<std::size_t>(offsets.size(), 1));
  pagePlaces.Keep(path, state, std::move(offsets));
  return pages;
}

}  // namespace corvane
