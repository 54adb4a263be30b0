// SPDX-License-Identifier: MIT
#include "app/image/pnm.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

#include "app/support/failure.h"

namespace corvane {
namespace {

using Colour = PixelForm::Colour;

constexpr std::size_t kLongestHeader = 16384;
constexpr unsigned kMostValue = 65535;

// What a header says of the samples.
struct Header {
  std::uint32_t width = 0, height = 0;
  unsigned channels = 0;
  unsigned mostValue = 0;
  bool packed = false;  // PBM: eight pixels a byte, 1 is black
  PixelForm form;
};

struct Tuple {
  std::string_view name;
  unsigned channels;
  Colour colour;
  bool alpha, tagged;
};

constexpr Tuple kTuples[] = {
    {"BLACKANDWHITE", 1, Colour::Grey, false, false},
    {"BLACKANDWHITE_ALPHA", 2, Colour::Grey, true, false},
    {"GRAYSCALE", 1, Colour::Grey, false, false},
    {"GRAYSCALE_ALPHA", 2, Colour::Grey, true, false},
    {"RGB", 3, Colour::Rgb, false, false},
    {"RGB_ALPHA", 4, Colour::Rgb, true, false},
    {"RGB_TAG", 4, Colour::Rgb, false, true},
    {"CMYK", 4, Colour::Cmyk, false, false},
};

bool IsSpace(int byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

// Tags are sets of bits where objects show through each other.
constexpr std::uint8_t kImageTag = 2;
std::uint8_t PageTagOf(std::uint8_t tag) {
  return (tag & kImageTag) != 0 ? kPhotoTag : kGraphicsTag;
}

class PnmStream : public PageStream {
 public:
  explicit PnmStream(std::unique_ptr<InputStream> input) : input_(std::move(input)) {}

  bool Next() override {
    PassOverRest();
    page_.number = pages_;
    page_.image = {};
    page_.image.path = fmt::format("{}, page {}", input_->Name(), pages_ + 1);
    if (!FindMark()) return false;
    ++pages_;
    headerBytes_ = 0;
    header_ = {};
    ReadHeader();
    Describe();
    return true;
  }

  void ReadRow(std::uint8_t* row) override {
    if (rowsLeft_ == 0) Fail("holds no more rows");
    --rowsLeft_;
    const bool asStored = !header_.packed && !header_.form.tagged && header_.mostValue == 255;
    if (asStored) {
      if (input_->Read(row, storedBytes_) < storedBytes_) FailShort();
      return;
    }
    const std::span<const std::uint8_t> stored = TakeStored();
    if (stored.size() < storedBytes_) FailShort();
    if (header_.packed) {
      Unpack(stored, row);
    } else if (header_.form.tagged) {
      PutTagsLast(stored, row);
    } else if (header_.form.bits == 16) {
      Widen(stored, row);
    } else {
      for (std::size_t i = 0; i < stored.size(); ++i) row[i] = scaled_[stored[i]];
    }
  }

  void Cancel() override { input_->Cancel(); }

 private:
  [[noreturn]] void Fail(std::string_view what) const {
    throw Failure(fmt::format("{}: {}", page_.image.path, what));
  }
  [[noreturn]] void FailShort() const { Fail("ends before its last row"); }

  // The next row, where it lies in the input unless it is too long for that.
  std::span<const std::uint8_t> TakeStored() {
    if (storedBytes_ <= InputStream::kMostInPlace) return input_->Take(storedBytes_);
    longRow_.resize(storedBytes_);
    return {longRow_.data(), input_->Read(longRow_.data(), storedBytes_)};
  }

  void PassOverRest() {
    const std::uint64_t rest = std::uint64_t{rowsLeft_} * storedBytes_;
    rowsLeft_ = 0;
    if (input_->Skip(rest) < rest) FailShort();
  }

  // Goes to the P of the next header. A line end behind a page is nothing.
  bool FindMark() {
    for (;;) {
      const auto next = input_->Peek(1);
      if (next.empty()) {
        if (pages_ == 0) throw Failure(input_->Name() + ": the file is empty");
        return false;
      }
      if (next[0] == 'P') return true;
      if (pages_ == 0 || !IsSpace(next[0])) Fail("damaged PNM image: another page was expected");
      input_->Skip(1);
    }
  }

  int TakeByte() {
    std::uint8_t byte = 0;
    if (input_->Read(&byte, 1) == 0) Fail("ends in its header");
    if (++headerBytes_ > kLongestHeader) Fail("damaged PNM image: its header does not end");
    return byte;
  }

  void ReadHeader() {
    TakeByte();
    switch (const int kind = TakeByte()) {
      case '1':
      case '2':
      case '3':
        Fail("PNM images of written-out numbers are not read");
      case '4':
        header_.packed = true;
        header_.mostValue = 1;
        header_.channels = 1;
        header_.form.colour = Colour::Grey;
        ReadSides();
        return;
      case '5':
      case '6':
        header_.channels = kind == '5' ? 1 : 3;
        header_.form.colour = kind == '5' ? Colour::Grey : Colour::Rgb;
        ReadSides();
        header_.mostValue = NumberOf(NextWord());
        return;
      case '7':
        ReadPamHeader();
        return;
      default:
        Fail("damaged PNM image: no such kind");
    }
  }

  void ReadSides() {
    header_.width = NumberOf(NextWord());
    header_.height = NumberOf(NextWord());
  }

  // A word with the one space behind it. Comments before it are passed over.
  std::string NextWord() {
    std::string word;
    for (;;) {
      int byte = TakeByte();
      if (byte == '#') {
        while (byte != '\n') byte = TakeByte();
      } else if (!IsSpace(byte)) {
        word += static_cast<char>(byte);
      }
      if (IsSpace(byte) && !word.empty()) return word;
    }
  }

  std::uint32_t NumberOf(std::string_view word) const {
    std::uint32_t value = 0;
    const char* end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, value);
    if (error != std::errc() || stop != end) Fail("damaged PNM image: no number in its header");
    return value;
  }

  void ReadPamHeader() {
    std::string tuple;
    for (std::string word; (word = NextWord()) != "ENDHDR";) {
      if (word == "WIDTH") {
        header_.width = NumberOf(NextWord());
      } else if (word == "HEIGHT") {
        header_.height = NumberOf(NextWord());
      } else if (word == "DEPTH") {
        header_.channels = NumberOf(NextWord());
      } else if (word == "MAXVAL") {
        header_.mostValue = NumberOf(NextWord());
      } else if (word == "TUPLTYPE") {
        tuple = NextWord();
      } else {
        Fail("damaged PAM image: no such word in its header");
      }
    }
    TakeTuple(tuple);
  }

  void TakeTuple(std::string_view name) {
    const auto tuple = std::find_if(std::begin(kTuples), std::end(kTuples), [&](const Tuple& t) {
      // Without a type the number of samples says it.
      return name.empty() ? t.channels == header_.channels : t.name == name;
    });
    if (tuple == std::end(kTuples)) Fail("pixels of this TUPLTYPE are not read");
    if (tuple->channels != header_.channels) Fail("damaged PAM image: DEPTH fits no TUPLTYPE");
    header_.form.colour = tuple->colour;
    header_.form.alpha = tuple->alpha;
    header_.form.tagged = tuple->tagged;
  }

  void Describe() {
    CheckImageSize(page_.image.path, header_.width, header_.height);
    if (header_.mostValue == 0 || header_.mostValue > kMostValue) {
      Fail("damaged PNM image: its largest value is not 1 to 65535");
    }
    if (header_.form.tagged && header_.mostValue != 255) {
      Fail("tagged pixels are read with a MAXVAL of 255 alone");
    }
    header_.form.bits = header_.mostValue > 255 ? 16 : 8;
    const std::size_t samples = std::size_t{header_.width} * header_.channels;
    storedBytes_ = header_.packed ? (samples + 7) / 8 : samples * (header_.form.bits / 8);
    rowsLeft_ = header_.height;
    if (header_.mostValue < 255) FillScale();
    page_.image.width = header_.width;
    page_.image.height = header_.height;
    page_.image.form = header_.form;
  }

  void FillScale() {
    const unsigned most = header_.mostValue;
    for (unsigned value = 0; value < scaled_.size(); ++value) {
      scaled_[value] = static_cast<std::uint8_t>((std::min(value, most) * 255 + most / 2) / most);
    }
  }

  void Unpack(std::span<const std::uint8_t> stored, std::uint8_t* row) const {
    for (std::size_t x = 0; x < header_.width; ++x) {
      row[x] = (stored[x / 8] >> (7 - x % 8) & 1) != 0 ? 0 : 255;
    }
  }

  // A word a pixel: what comes byte by byte takes as long as the halftone's rows.
  static void PutTagsLast(std::span<const std::uint8_t> stored, std::uint8_t* row) {
    static_assert(std::endian::native == std::endian::little);
    for (std::size_t i = 0; i < stored.size(); i += 4) {
      std::uint32_t pixel;
      std::memcpy(&pixel, stored.data() + i, sizeof pixel);
      pixel = pixel >> 8 | std::uint32_t{PageTagOf(static_cast<std::uint8_t>(pixel))} << 24;
      std::memcpy(row + i, &pixel, sizeof pixel);
    }
  }

  // Stored with the high byte first.
  void Widen(std::span<const std::uint8_t> stored, std::uint8_t* row) const {
    const unsigned most = header_.mostValue;
    for (std::size_t i = 0; i < stored.size(); i += 2) {
      const unsigned value = std::min(stored[i] * 256u + stored[i + 1], most);
      const auto wide = static_cast<std::uint16_t>((value * kMostValue + most / 2) / most);
      std::memcpy(row + i, &wide, sizeof wide);
    }
  }

  std::unique_ptr<InputStream> input_;
  int pages_ = 0;
  std::size_t headerBytes_ = 0;
  Header header_;
  std::uint32_t rowsLeft_ = 0;         // of the page
  std::size_t storedBytes_ = 0;        // of a row
  std::vector<std::uint8_t> longRow_;  // one that is not read where it lies
  std::array<std::uint8_t, 256> scaled_{};
};

}  // namespace

std::unique_ptr<PageStream> OpenPnmStream(std::unique_ptr<InputStream> input) {
  return std::make_unique<PnmStream>(std::move(input));
}

}  // namespace corvane
