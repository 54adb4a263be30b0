// SPDX-License-Identifier: MIT
//
// What the program says at a terminal.
#pragma once

#include <string>
#include <string_view>

namespace corvane {

// Text from elsewhere (a file's name, a tag, what a library says) as it may stand in a line at a
// terminal: UTF-8 stays, control characters and those that turn the direction of writing become
// \n, \t, \r, \x1b or \u202e, and bytes that are no UTF-8 become \xff.
std::string Printable(std::string_view text);

// The same for a text of several lines, whose ends stay.
std::string PrintableLines(std::string_view text);

// JSON text with the characters that Printable escapes and JSON need not escape written as \u009b.
// `json` is valid UTF-8.
std::string PrintableJson(std::string json);

// Writes text to the error stream as it stands. False when the stream does not take it, as on a
// full disk: who only tells how a run goes lets it go on.
bool Tell(std::string_view text);

// One line on the error stream, "corvane: " and the message, made printable.
void Complain(std::string_view message);

}  // namespace corvane
