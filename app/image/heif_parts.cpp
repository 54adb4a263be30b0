// SPDX-License-Identifier: MIT
#include "app/image/heif_parts.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "app/support/failure.h"
#include "app/support/input_stream.h"

namespace corvane {
namespace {

// A grid of tiles in a picture that is turned, with its alpha, is less than half as deep.
constexpr int kMostDeep = 8;
// A grid of 256 by 256 tiles and one of its alpha have this many.
constexpr std::uint64_t kMostParts = 2 * 65536 + 2;
constexpr std::uint64_t kMostReferenceBytes = 1u << 20;

// The boxes of a file (ISO/IEC 14496-12), one after the other.
class Boxes {
 public:
  explicit Boxes(const std::string& path) : input_(path) {}

  struct Box {
    std::string type;
    std::uint64_t bytes = 0;  // of its content; as many as follow where it does not say
  };

  // The next box within `left` bytes, which loses its head; false when there is none.
  bool Next(std::uint64_t& left, Box* box) {
    constexpr std::uint64_t kHead = 8, kLongHead = 16;
    if (left < kHead) return false;
    std::uint64_t head = kHead;
    std::uint64_t size = 0;
    if (!Number(4, &size)) return false;
    box->type.assign(4, '\0');
    if (input_.Read(box->type.data(), 4) < 4) return false;
    if (size == 1) {
      head = kLongHead;
      if (!Number(8, &size)) return false;
    }
    if (size == 0 || size > left) size = left;
    if (size < head) return false;
    left -= head;
    box->bytes = size - head;
    return true;
  }

  // A number in big-endian bytes; false at the end.
  bool Number(std::size_t bytes, std::uint64_t* number) {
    std::uint8_t read[8];
    if (input_.Read(read, bytes) < bytes) return false;
    *number = 0;
    for (std::size_t i = 0; i < bytes; ++i) *number = *number << 8 | read[i];
    return true;
  }

  void Skip(std::uint64_t bytes) { input_.Skip(bytes); }

 private:
  InputStream input_;
};

// Which pictures are decoded with a picture.
class Parts {
 public:
  explicit Parts(const std::string& path) : path_(path), boxes_(path) {
    std::uint64_t left = UINT64_MAX;
    for (Boxes::Box box; boxes_.Next(left, &box); left -= box.bytes) {
      box.type == "meta" ? ReadMeta(box.bytes) : boxes_.Skip(box.bytes);
    }
  }

  void Check() {
    for (const auto& [picture, parts] : parts_) Measure(picture, kMostDeep);
  }

 private:
  [[noreturn]] void Fail() const {
    throw Failure(path_ + ": damaged HEIF picture: its parts have parts without end");
  }

  void ReadMeta(std::uint64_t left) {
    std::uint64_t version = 0;
    if (left < 4 || !boxes_.Number(4, &version)) return;
    left -= 4;
    for (Boxes::Box box; boxes_.Next(left, &box); left -= box.bytes) {
      box.type == "iref" ? ReadReferences(box.bytes) : boxes_.Skip(box.bytes);
    }
    boxes_.Skip(left);
  }

  // The library reads them one after the other, whatever sizes they name.
  void ReadReferences(std::uint64_t left) {
    if (left > kMostReferenceBytes) Fail();
    const auto number = [&](std::size_t bytes, std::uint64_t* value) {
      if (left < bytes || !boxes_.Number(bytes, value)) return false;
      left -= bytes;
      return true;
    };
    std::uint64_t version = 0, from = 0, count = 0;
    if (number(4, &version)) {
      const std::size_t idBytes = version >> 24 == 0 ? 2 : 4;
      Boxes::Box box;
      while (boxes_.Next(left, &box) && number(idBytes, &from) && number(2, &count)) {
        for (std::uint64_t to = 0; count > 0 && number(idBytes, &to); --count) {
          if (box.type == "dimg") parts_[from].push_back(to);
          if (box.type == "auxl") parts_[to].push_back(from);
        }
      }
    }
    // The library would read on where this stops.
    if (left != 0) Fail();
  }

  // What is decoded for a picture, itself included.
  struct Extent {
    std::uint64_t pictures = 1;
    int deep = 1;
  };

  Extent Measure(std::uint64_t picture, int left) {
    if (const auto known = extents_.find(picture); known != extents_.end()) return known->second;
    if (left == 0) Fail();
    Extent extent;
    if (const auto found = parts_.find(picture); found != parts_.end()) {
      for (const std::uint64_t part : found->second) {
        const Extent of = Measure(part, left - 1);
        extent.pictures += of.pictures;
        extent.deep = std::max(extent.deep, of.deep + 1);
        if (extent.pictures > kMostParts || extent.deep > kMostDeep) Fail();
      }
    }
    return extents_[picture] = extent;
  }

  std::string path_;
  Boxes boxes_;
  std::map<std::uint64_t, std::vector<std::uint64_t>> parts_;
  std::map<std::uint64_t, Extent> extents_;
};

}  // namespace

void CheckHeifParts(const std::string& path) { Parts(path).Check(); }

}  // namespace corvane
