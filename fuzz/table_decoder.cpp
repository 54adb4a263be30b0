// SPDX-License-Identifier: MIT
//
// Stored colour tables. The first byte chooses the table that is expected; the rest is stored, as
// it is or scrambled and with a checksum that fits.
#include "app/tables/stored_table.h"
#include "color/table/decoder.h"
#include "color/table/directory.h"
#include "color/table/stored_form.h"
#include "fuzz/fuzz.h"

namespace {

using namespace corvane;

struct Decoded {
  std::vector<std::uint8_t> table;
  unsigned long checksum = 0;
};

// Over bytes that the decoder has to write or leave: `fill` in front of the stored ones.
Decoded Decode(fuzz::Bytes stored, std::size_t expected, std::uint8_t fill) {
  Decoded decoded{std::vector<std::uint8_t>(expected, fill)};
  std::copy(stored.begin(), stored.end(),
            decoded.table.end() - static_cast<std::ptrdiff_t>(stored.size()));
  decoded.checksum =
      DecodeColorTable(decoded.table.data(), expected, static_cast<long>(stored.size()));
  return decoded;
}

}  // namespace

FUZZ_TARGET(table_decoder, input) {
  fuzz::Input parts(input);
  const unsigned kind = parts.Take<std::uint8_t>();
  const std::size_t expected = DecodedTableBytes(kind % 4);
  std::vector<std::uint8_t> stored(parts.Rest().begin(), parts.Rest().end());
  if (stored.size() > expected) return;
  if ((kind & 4) != 0 && stored.size() >= kCodedHeaderBytes) {
    ScrambleCodedTable(stored.data(), static_cast<std::uint32_t>(stored.size()));
  }
  const Decoded first = Decode(stored, expected, 0);
  if ((kind & 8) != 0 && stored.size() >= kCodedHeaderBytes) {
    const std::uint32_t checksum = TableChecksum(first.table.data(), expected);
    for (int i = 0; i < 4; ++i) stored[i] = static_cast<std::uint8_t>(checksum >> (24 - 8 * i));
  }
  const Decoded again = Decode(stored, expected, 0);
  FUZZ_EXPECT(again.checksum == 0 || StoredFormOf(stored.size(), expected) == StoredForm::Coded ||
              stored.size() == expected);
  if (stored.size() >= kCodedHeaderBytes) InspectCodedTable(stored);
  for (const unsigned char mode : {1, 2, 3, 4}) {
    std::vector<std::uint8_t> cube(first.table.begin(), first.table.end());
    cube.resize(kCubeBytes);
    TransposeCube(cube.data(), mode);
  }
}
