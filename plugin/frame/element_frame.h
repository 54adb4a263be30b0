// SPDX-License-Identifier: MIT
//
// What the three elements of the chain have in common. One message runs through the whole chain
// before the call that sent it returns:
//
//   host -> EColorInline -> EHalftoneModule -> ECorvaneDotManagement -> host's next stage
//
// element        takes (kind)       sends (kind)       rows in : out    state of a page
// EColorInline   RGB rows (5)       contone rows (6)   1 : repeat count colour tables, row buffer
// EHalftone-     contone rows (6)   binary rows (7)    1 : 1            error lines, row buffer,
//   Module                                                              carried errors, log file
// ECorvaneDot-   binary rows (7)    binary rows (7)    1 : 1, 1 : 2     raster filter
//   Management
//
// kind               EColorInline                EHalftoneModule             ECorvaneDotManagement
// 1 control          pass on                     pass on                     pass on
// 2 page start       set up, pass on; on an      set up, pass on; an error   set up, pass on; 0
//                    error no pass-on, 0         goes ahead of it, 0         with no filter memory
// 3 page end         release tables, pass on     release buffers, pass on,   pass on,
//                                                log the counts              release filter
// 4 job end          release row buffer, pass on pass on                     pass on
// 5 RGB row          convert, send               pass on, 1                  pass on, 1
// 6 contone row      pass on, 1                  halftone, send              pass on, 1
// 7 binary row       pass on, 1                  pass on, 1                  filter and send, or
//                                                                            pass on, 1
// other              pass on, 1                  pass on, 1                  pass on, 1
//
// "pass on" gives the next element's result, "pass on, 1" gives 1 whatever that was. A null message
// gives 1 and sends nothing; a message whose IsPassThrough() is nonzero is only passed on.
//
// Page properties read (group "Standard"; * from the page start's second bag): "CMYKBinary-
// Descriptor"*, "PrintableWidth" and "UseAlternateModes" by all three; the two input resolutions,
// the overspray margins, "NumberOfPlanes"* and the slot resolutions* by those that need them; the
// table indices ("MediaType" and so on), "ZRXRasterFormat" and "Points" by the colour element.
#pragma once

#include <cstdint>

#include "host/framework.h"
#include "host/property_names.h"
#include "host/raster.h"

namespace corvane {

using property::kStandardGroup;

// A page setting of the standard group, 0 when it is missing. The last is the whole width of a row
// in input pixels: the printable width and both overspray margins.
std::int32_t PageInt(const ZCOM::PROPERTIES& bag, const char* key);
std::uint32_t PageNumber(const ZCOM::PROPERTIES& bag, const char* key);
std::uint16_t PageNumber16(const ZCOM::PROPERTIES& bag, const char* key);
std::uint64_t PageWidthWithOverspray(const ZCOM::PROPERTIES& bag);

// Makes the element's source pad and its sink pad (index 0) and registers them.
// Pads that are there already stay. Returns 1 when both exist, otherwise 0; a pad that cannot be
// made is not registered.
unsigned long MakePads(ZCOM::EObject& element);

// Hands the message to the element behind source pad 0 and returns its result. Without a linked
// pad the broken pipe is reported through the pad's owner and the result is 0.
unsigned long ForwardMessage(ZCOM::EObject& element, ZCOM::QObject* message);

// Forwards a message that is not the element's work: the forwarding's result for the kinds 1 to 4,
// otherwise 1 whatever the next element answered.
unsigned long PassOn(ZCOM::EObject& element, ZCOM::QObject* message);

// Makes room in `error` for its entries, the longest text included, so that sending it later takes
// no memory.
void ReserveError(QError& error, const char* longestText);

// Writes the error into `error` and sends it down the chain. The error keeps its other entries.
void SendError(ZCOM::EObject& element, QError& error, int id, const char* text);

}  // namespace corvane
