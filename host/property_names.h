// SPDX-License-Identifier: MIT
//
// The properties that hosts and elements exchange: every name, where it stands, its type and what
// it means. docs/properties.md lists them from this table.
#pragma once

#include <cstdint>

namespace corvane::property {

// Groups within a bag.
inline constexpr const char* kStandardGroup = "Standard";
inline constexpr const char* kColorGroup = "EColorInline";
inline constexpr const char* kHalftoneGroup = "EHalftoneModule";

inline constexpr const char* kColorTableFilename = "ColorTableFilename";
inline constexpr const char* kEObjectType = "EObjectType";
inline constexpr const char* kEObjectName = "EObjectName";
inline constexpr const char* kName = "Name";
inline constexpr const char* kSaveRgb = "SaveRgb";
inline constexpr const char* kWriteToFile = "WriteToFile";
inline constexpr const char* kZRXRasterFormat = "ZRXRasterFormat";
inline constexpr const char* kPaperCharacteristics = "PaperCharacteristics";
inline constexpr const char* kMediaType = "MediaType";
inline constexpr const char* kColorPreference = "ColorPreference";
inline constexpr const char* kPageIntent = "PageIntent";
inline constexpr const char* kPrintQuality = "PrintQuality";
inline constexpr const char* kPrintableWidth = "PrintableWidth";
inline constexpr const char* kHorizontalInputResolution = "HorizontalInputResolution";
inline constexpr const char* kVerticalInputResolution = "VerticalInputResolution";
inline constexpr const char* kLeftOverSprayPixels = "LeftOverSprayPixels";
inline constexpr const char* kRightOverSprayPixels = "RightOverSprayPixels";
inline constexpr const char* kUseAlternateModes = "UseAlternateModes";
inline constexpr const char* kPoints = "Points";
inline constexpr const char* kCTOffset = "CTOffset";
inline constexpr const char* kCTOffsetPhoto = "CTOffsetPhoto";
inline constexpr const char* kCTOffsetGraphic = "CTOffsetGraphic";
inline constexpr const char* kCTCompression = "CTCompression";
inline constexpr const char* kCTCompressionKey = "CTCompressionKey";
inline constexpr const char* kCMYKBinaryDescriptor = "CMYKBinaryDescriptor";
inline constexpr const char* kNumberOfPlanes = "NumberOfPlanes";
inline constexpr const char* kSlot1HorizontalRes = "Slot1HorizontalRes";
inline constexpr const char* kSlot2HorizontalRes = "Slot2HorizontalRes";
inline constexpr const char* kErrorID = "ErrorID";
inline constexpr const char* kErrorString = "ErrorString";
inline constexpr const char* kAlgorithmType = "m_eAlgorithmType";

// Whose bag a property stands in.
enum class Bag : std::uint8_t {
  Host,        // the bag that a host shares with its elements
  Element,     // an element's own
  Page,        // the page start's own
  SecondPage,  // `PageProperties` of the page start
  Error,       // an error message's own
};

struct Property {
  const char* name;
  const char* group;
  Bag bag;
  const char* type;      // "text", or how a number is read
  const char* fallback;  // what a missing one reads as; "none" when it stays unread or is not read
  const char* users;
  const char* meaning;
};

// clang-format off
inline constexpr Property kProperties[] = {
    {kColorTableFilename, kStandardGroup, Bag::Host, "text", "none",
     "read by EColorInline", "the colour-table file, at most 255 bytes"},
    {kEObjectType, kStandardGroup, Bag::Element, "text", "none",
     "set by every element", "the element's type"},
    {kEObjectName, kStandardGroup, Bag::Element, "text", "none",
     "set by EColorInline and EHalftoneModule", "the element's name; in an error, the element that reports it"},
    {kName, kStandardGroup, Bag::Element, "text", "none",
     "read by EColorInline, set by EDotManagement", "the element's own name, given on with errors, at most 31 bytes"},
    {kSaveRgb, kColorGroup, Bag::Element, "unsigned 32", "0",
     "read by EColorInline", "not 0: writes the converted rows to rgb.raw"},
    {kWriteToFile, kHalftoneGroup, Bag::Element, "unsigned 32", "0",
     "read by EHalftoneModule", "not 0: writes settings and drop counts to HTLog.txt"},
    {kZRXRasterFormat, kStandardGroup, Bag::Page, "signed 32", "0",
     "read by EColorInline", "1 to 7; 4 and 6: graphics and photographs have a table each"},
    {kPaperCharacteristics, kStandardGroup, Bag::Page, "signed 32", "0",
     "read by EColorInline", "3: seven-ink tables without black"},
    {kMediaType, kStandardGroup, Bag::Page, "signed 32", "0",
     "read by EColorInline", "1 to 6: the medium"},
    {kColorPreference, kStandardGroup, Bag::Page, "signed 32", "0",
     "read by EColorInline", "1 vivid, 2 natural, 3 as the intent"},
    {kPageIntent, kStandardGroup, Bag::Page, "signed 32", "0",
     "read by EColorInline", "2 graphics, else photographs"},
    {kPrintQuality, kStandardGroup, Bag::Page, "signed 32", "0",
     "read by EColorInline", "1 draft to 4 best"},
    {kPrintableWidth, kStandardGroup, Bag::Page, "unsigned 32", "0",
     "read by every element", "pixels of a row, without the overspray"},
    {kHorizontalInputResolution, kStandardGroup, Bag::Page, "unsigned 32", "0",
     "read by EHalftoneModule and EDotManagement", "pixels per inch of the rows, across"},
    {kVerticalInputResolution, kStandardGroup, Bag::Page, "unsigned 32", "0",
     "read by EColorInline", "rows per inch"},
    {kLeftOverSprayPixels, kStandardGroup, Bag::Page, "unsigned 16", "0",
     "read by EHalftoneModule and EDotManagement", "pixels without ink that a row is longer by, at its end"},
    {kRightOverSprayPixels, kStandardGroup, Bag::Page, "unsigned 16", "0",
     "read by EHalftoneModule and EDotManagement", "the same, added to it"},
    {kUseAlternateModes, kStandardGroup, Bag::Page, "unsigned 16", "0",
     "read by every element", "0, 1 or 2: how the glossy modes are printed"},
    {kPoints, kStandardGroup, Bag::Page, "unsigned 32", "0",
     "read by EColorInline", "not 0: prints the chart of points.bin in place of the rows"},
    {kCTOffset, kStandardGroup, Bag::Page, "text", "none",
     "published by EColorInline", "where the table lies behind the directory, decimal"},
    {kCTOffsetPhoto, kStandardGroup, Bag::Page, "text", "none",
     "published by EColorInline", "the same of the table of photographs"},
    {kCTOffsetGraphic, kStandardGroup, Bag::Page, "text", "none",
     "published by EColorInline", "the same of the table of graphics"},
    {kCTCompression, kStandardGroup, Bag::Page, "text", "none",
     "published by EColorInline", "ON for a coded table, OFF for one stored as it is"},
    {kCTCompressionKey, kStandardGroup, Bag::Page, "text", "none",
     "published by EColorInline", "checksum of a coded table, 0x and eight digits; 0 for a damaged one"},
    {kCMYKBinaryDescriptor, kStandardGroup, Bag::SecondPage, "signed 32", "0",
     "read by every element", "the print mode"},
    {kNumberOfPlanes, kStandardGroup, Bag::SecondPage, "unsigned 32", "0",
     "read by EDotManagement", "planes of the page; its low 8 bits count"},
    {kSlot1HorizontalRes, kStandardGroup, Bag::SecondPage, "unsigned 32", "0",
     "read by EDotManagement", "dots per inch of the colour slot, across"},
    {kSlot2HorizontalRes, kStandardGroup, Bag::SecondPage, "unsigned 32", "0",
     "read by EDotManagement", "dots per inch of the black slot, for pages of one plane"},
    {kErrorID, kStandardGroup, Bag::Error, "signed 32", "none",
     "set by the element that reports", "the error's number"},
    {kErrorString, kStandardGroup, Bag::Error, "text", "none",
     "set by the element that reports", "the error's text"},
    {kAlgorithmType, kStandardGroup, Bag::Error, "unsigned 32", "none",
     "set by EColorInline", "with error 44: the ink set that is none"},
};
// clang-format on

}  // namespace corvane::property
