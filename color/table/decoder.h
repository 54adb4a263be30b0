// SPDX-License-Identifier: MIT
//
// Stored colour tables become tables as they are used.
#pragma once

#include "color/table/stored_form.h"

namespace corvane {

// Decodes in place: the `stored` bytes at the end of the `expected`-byte `buffer` become the table
// at its start. Returns the checksum of the decoded bytes when it is the stored one, else 0; 0 also
// for the 128-byte form, which has no checksum, and for a stored size of 256, which is left alone.
//
// Damaged input never leads outside the buffer: decoding stops at the first row that would read
// beyond the stored bytes or write beyond the buffer, and the rows before it stay.
unsigned long DecodeColorTable(unsigned char* buffer, unsigned long expected, long stored);

// Exchanges two axes of one cube in place: mode 1 the first two, mode 2 the first and the third,
// mode 3 the second and the third. Any other mode changes nothing.
void TransposeCube(unsigned char* cube, unsigned char mode);

}  // namespace corvane
