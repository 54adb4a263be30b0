// SPDX-License-Identifier: MIT
#include "app/tables/lookup.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "color/conversion.h"

namespace corvane {
namespace {

// What the program shows of a table is what the plug-in makes of it, to the bit.
TEST(TableLookUp, IsThePluginsConversion) {
  std::mt19937 random(7);
  std::vector<std::uint8_t> rgb(3 * 4096);
  for (std::uint8_t& value : rgb) value = static_cast<std::uint8_t>(random());
  for (std::size_t i = 0; i < 600; ++i) rgb[i] = static_cast<std::uint8_t>(random() % 2 * 255);
  for (std::size_t i = 600; i < 1200; i += 3) rgb[i + 1] = rgb[i + 2] = rgb[i];

  for (const std::size_t planes : {1, 7, 9}) {
    std::vector<std::uint8_t> table(planes == 1 ? 256 : planes * 4913);
    for (std::uint8_t& value : table) value = static_cast<std::uint8_t>(random());
    const auto slots = std::make_unique<ConversionSlots>();
    const std::vector<const unsigned char*> tables(kTags, table.data());
    std::vector<std::uint8_t> converted(planes * rgb.size() / 3);
    ConversionRow row{};
    row.pixels = rgb.data();
    row.end = static_cast<std::uint32_t>(rgb.size() / 3);
    row.planes = converted.data();
    row.planeStride = rgb.size() / 3;
    row.tables = tables.data();
    row.slots = slots.get();
    (planes == 1   ? kPlainConverters.black
     : planes == 7 ? kPlainConverters.sevenInks
                   : kPlainConverters.nineInks)[0](row);

    for (std::size_t x = 0; x < row.end; ++x) {
      const Rgb8 colour = {rgb[3 * x], rgb[3 * x + 1], rgb[3 * x + 2]};
      const Contone contone = LookUp(table, colour);
      const InkAmounts amounts = InterpolatedAmounts(table, colour);
      for (std::size_t plane = 0; plane < planes; ++plane) {
        const std::size_t ink = planes == 1 ? static_cast<std::size_t>(Ink::K) : plane;
        ASSERT_EQ(contone[ink], converted[plane * row.planeStride + x]);
        ASSERT_GE(amounts[ink] * 255, contone[ink]);
        ASSERT_LT(amounts[ink] * 255, contone[ink] + 1);
      }
    }
  }
}

}  // namespace
}  // namespace corvane
