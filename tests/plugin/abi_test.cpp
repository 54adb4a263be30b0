// SPDX-License-Identifier: MIT
//
// The binary interface between host and plug-in: sizes, field offsets and virtual slots.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "dotmanagement/raster_filter_base.h"
#include "host/carried_state.h"
#include "host/raster.h"
#include "movement/movement.h"
#include "tests/harness/paths.h"

// The compiler gives the fields of classes with virtual operations defined offsets.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

#define CORVANE_HOW_TO_CHANGE                                                               \
  "a host built before this change would misread the class: undo the change, or raise the " \
  "project's major version, say so in CHANGELOG.md and enter the new value in this table"

namespace {

using corvane::CarriedState;

struct Place {
  const char* what;
  std::size_t actual;
  std::size_t expected64;  // 64-bit Linux and Windows agree
  std::size_t expected32;  // 32-bit Windows

  constexpr std::size_t Expected() const { return sizeof(void*) == 8 ? expected64 : expected32; }
};

struct Fields : Movement {
  static const Place kPlaces[];  // inside the class, where the protected fields can be named
};

#define SIZE(type, ...) \
  { "sizeof " #type, sizeof(type), __VA_ARGS__ }
#define FIELD(type, field, ...) \
  { #type "::" #field, offsetof(type, field), __VA_ARGS__ }
constexpr Place Fields::kPlaces[] = {
    // clang-format off
    SIZE(ZCOM::PROPERTIES, 48, 24),
    SIZE(ZCOM::QObject, 64, 32),                    FIELD(ZCOM::QObject, Properties, 8, 4),
    FIELD(ZCOM::QObject, MessageKind, 56, 28),
    SIZE(ZCOM::SINKPAD, 24, 12),                    FIELD(ZCOM::SINKPAD, Owner, 8, 4),
    FIELD(ZCOM::SINKPAD, Index, 16, 8),
    SIZE(ZCOM::SOURCEPAD, 24, 12),                  FIELD(ZCOM::SOURCEPAD, Owner, 8, 4),
    FIELD(ZCOM::SOURCEPAD, LinkedSinkPad, 16, 8),
    SIZE(ZCOM::EObject, 112, 56),                   FIELD(ZCOM::EObject, Properties, 8, 4),
    FIELD(ZCOM::EObject, HostProperties, 56, 28),
    SIZE(ZCOM::MFColorTable, 32, 24),
    SIZE(QStartPage, 112, 56),                      FIELD(QStartPage, PageProperties, 64, 32),
    SIZE(QError, 64, 32),
    SIZE(QRaster, 104, 68),                         FIELD(QRaster, Reserved, 60, 32),
    FIELD(QRaster, RasterFormat, 64, 36),           FIELD(QRaster, PassThroughValue, 68, 40),
    FIELD(QRaster, Row, 72, 44),                    FIELD(QRaster, FirstPixel, 76, 48),
    FIELD(QRaster, EndPixel, 80, 52),               FIELD(QRaster, Width, 84, 56),
    FIELD(QRaster, RowBytes, 88, 60),               FIELD(QRaster, Data, 96, 64),
    SIZE(QCMYKContoneRaster, 104, 68),
    SIZE(QCMYKBinaryRaster, 104, 68),
    SIZE(Movement, 536, 520),                       FIELD(Fields, m_nLastMove, 8, 4),
    FIELD(Fields, m_nMovesThisPage, 10, 6),         FIELD(Fields, m_nMovesSinceLastSkip, 12, 8),
    FIELD(Fields, m_aMovePattern, 16, 12),          FIELD(Fields, m_nBOPZone, 272, 268),
    FIELD(Fields, m_aBOPMoves, 276, 272),           FIELD(Fields, m_nBOPStart, 404, 400),
    FIELD(Fields, m_nMovePatternLength, 408, 404),  FIELD(Fields, m_nBOPMoveCount, 409, 405),
    FIELD(Fields, m_nModeFactor, 410, 406),         FIELD(Fields, m_pMinNozzle, 416, 408),
    FIELD(Fields, m_pMaxNozzle, 424, 412),          FIELD(Fields, m_aMinNozzle, 432, 416),
    FIELD(Fields, m_aMaxNozzle, 436, 420),          FIELD(Fields, m_nE2ELimit1, 440, 424),
    FIELD(Fields, m_nE2ELimit2, 444, 428),          FIELD(Fields, m_nE2ELimit3, 448, 432),
    FIELD(Fields, m_aE2EMinNozzle, 452, 436),       FIELD(Fields, m_aE2EMaxNozzle, 456, 440),
    FIELD(Fields, m_nE2EMoveCount, 460, 444),       FIELD(Fields, m_aE2EMoves, 464, 448),
    FIELD(Fields, m_nMaxNozzleOffset, 528, 512),    FIELD(Fields, m_bE2EFirstMove, 532, 516),
    // clang-format on
};

// A 32-bit build cannot be run everywhere, so it is held to its column while it is compiled.
constexpr bool AllPlacesHold() {
  for (const Place& place : Fields::kPlaces) {
    if (place.actual != place.Expected()) return false;
  }
  return true;
}
static_assert(sizeof(void*) == 8 || AllPlacesHold(), CORVANE_HOW_TO_CHANGE);

TEST(BinaryInterface, SizesAndFieldsStayWhereTheyAre) {
  for (const Place& place : Fields::kPlaces) {
    EXPECT_EQ(place.actual, place.Expected()) << place.what << ": " << CORVANE_HOW_TO_CHANGE;
  }
}

// The virtual table's entry of an operation: a pointer to a virtual member holds its offset plus 1.
// A destructor takes two entries.
template <class Operation>
std::size_t SlotOf(Operation operation) {
  std::uintptr_t offset;
  std::memcpy(&offset, &operation, sizeof offset);
  return (offset - 1) / sizeof(void*);
}

struct Slot {
  const char* what;
  std::size_t actual, expected;
};

using Ulong = unsigned long;
using Ushort = unsigned short;
using Uchar = unsigned char;
using Location = tagZRXCartridgeLocationType;
using Mode = tagBinaryCMYKDescriptor;

#define SLOT(type, operation, expected) \
  { #type "::" #operation, SlotOf(&type::operation), expected }
// clang-format off
// Of an operation of Movement with the given result and arguments.
#define OVERLOAD(result, operation, expected, ...) \
  { #operation "(" #__VA_ARGS__ ")", \
    SlotOf<result (Movement::*)(__VA_ARGS__)>(&Movement::operation), expected }
const Slot kSlots[] = {
    SLOT(ZCOM::QObject, IsPassThrough, 2),
    SLOT(ZCOM::EObject, Initialize, 2),         SLOT(ZCOM::EObject, DataArrived, 3),
    SLOT(ZCOM::EObject, Run, 4),                SLOT(ZCOM::EObject, GetSinkPadCount, 5),
    SLOT(ZCOM::EObject, GetSinkPad, 6),         SLOT(ZCOM::EObject, GetSourcePadCount, 7),
    SLOT(ZCOM::EObject, GetSourcePad, 8),       SLOT(ZCOM::Factory, CreateElement, 0),
    SLOT(ZCOM::Factory, CreateQObject, 1),      SLOT(ZCOM::Factory, CreateObject, 2),
    SLOT(RasterFilterBase, Initialize, 2),      SLOT(RasterFilterBase, FilterCurrentRaster, 3),
    SLOT(RasterFilterBase, RasterSecondExpansion, 4),
    SLOT(RasterFilterBase, FilterColorPlanes, 5),
    SLOT(RasterFilterBase, FilterBlackPlane, 6),
    SLOT(RasterFilterBase, GetSecondCurrentRaster, 7),
    SLOT(CarriedState, StateBytes, 0),          SLOT(CarriedState, SaveState, 1),
    SLOT(CarriedState, RestoreState, 2),
    SLOT(Movement, GetVerticalMovement, 2),     SLOT(Movement, GetVerticalMovementE2E, 3),
    OVERLOAD(void, InitializeMovement, 4, Ulong*, Uchar, Ushort, Ushort*, Ushort*),
    OVERLOAD(void, InitializeMovement, 5, Ulong*, Uchar, Mode),
    SLOT(Movement, InitializeBOPMovement, 6),
    OVERLOAD(void, InitializeTOPMovement, 7, Ulong, Uchar, Ushort*, Ushort*, Uchar, Ushort*),
    OVERLOAD(void, InitializeTOPMovement, 8, Ushort, Ulong),
    SLOT(Movement, InitializeMidMovement, 9),   SLOT(Movement, InitializeStayMovement, 10),
    SLOT(Movement, InitializeTransitionMovement, 11),
    SLOT(Movement, InitializeFinalMovement, 12), SLOT(Movement, InitializeE2EMovement, 13),
    SLOT(Movement, ResetPrinter, 14),           SLOT(Movement, GetMovesSinceLastSkip, 15),
    OVERLOAD(Ushort, GetMaxNozzle, 16, Location), OVERLOAD(Ushort, GetMaxNozzle, 17),
    OVERLOAD(Ushort, GetMinNozzle, 18, Location), OVERLOAD(Ushort, GetMinNozzle, 19),
    SLOT(Movement, GetMovesThisPage, 20),
};
// clang-format on

TEST(BinaryInterface, VirtualOperationsKeepTheirSlots) {
  for (const Slot& slot : kSlots) {
    EXPECT_EQ(slot.actual, slot.expected) << slot.what << ": " << CORVANE_HOW_TO_CHANGE;
  }
}

// The operations of docs/abi.md in their order.
struct DocumentedSlot {
  std::string what, name;
  std::size_t itanium, microsoft;
};

std::vector<DocumentedSlot> DocumentedSlots() {
  const std::regex row(R"(\| `(?:(?:ZCOM::)?\w+::)?(\w+)(?:\(.*\))?` \| (\d+) \| (\d+) \|)");
  std::vector<DocumentedSlot> slots;
  std::ifstream document(corvane::harness::SourceDirectory() + "/docs/abi.md");
  for (std::string line; std::getline(document, line);) {
    std::smatch parts;
    if (!std::regex_match(line, parts, row)) continue;
    const std::size_t end = line.find('`', 3);
    slots.push_back(
        {line.substr(3, end - 3), parts[1], std::stoul(parts[2]), std::stoul(parts[3])});
  }
  return slots;
}

TEST(BinaryInterface, IsDocumentedAsItIs) {
  const std::vector<DocumentedSlot> documented = DocumentedSlots();
  for (const Slot& slot : kSlots) {
    if (std::string_view(slot.what).starts_with("RasterFilterBase")) continue;  // not for hosts
    const auto found =
        std::find_if(documented.begin(), documented.end(),
                     [&](const DocumentedSlot& row) { return row.what == slot.what; });
    ASSERT_NE(found, documented.end()) << slot.what;
    EXPECT_EQ(found->itanium, slot.actual) << slot.what;
  }
  // The other ABI has one destructor where this one has two, and turns overloads round.
  for (auto first = documented.begin(); first != documented.end();) {
    const auto last = std::find_if(first, documented.end(), [&](const DocumentedSlot& row) {
      return row.name != first->name;
    });
    const bool hasDestructor =
        !first->what.starts_with("ZCOM::Factory::") && !first->what.starts_with("CarriedState::");
    for (auto row = first; row != last; ++row) {
      const std::size_t mirrored = first->itanium + static_cast<std::size_t>(last - 1 - row);
      EXPECT_EQ(row->microsoft, mirrored - (hasDestructor ? 1 : 0)) << row->what;
    }
    first = last;
  }
}

}  // namespace
