// SPDX-License-Identifier: MIT
//
// What an element keeps from one row of a page to the next, for a host that prints pages which are
// alike in parts: it goes on in the middle of a page without sending the rows before.
#pragma once

#include <cstddef>

namespace corvane {

// A host asks an element for it with dynamic_cast. Its calls belong between two rows of a page.
// What is only counted for a log is no part of the state.
class CarriedState {
 public:
  // Bytes of the state. They do not change while a page runs; 0 for an element that keeps nothing
  // from row to row, and between pages.
  virtual std::size_t StateBytes() const = 0;

  // Writes the state. Pages of the same settings whose states are equal in every byte before some
  // row number go on alike: from equal rows they make equal rows, and end in equal states. This
  // holds for rows that say how their pixels lie and are as wide as those before.
  virtual void SaveState(unsigned char* state) const = 0;

  // Takes over a state that was saved on a page of the same settings, by this element or another.
  virtual void RestoreState(const unsigned char* state) = 0;

 protected:
  CarriedState() = default;
  CarriedState(const CarriedState&) = default;
  CarriedState& operator=(const CarriedState&) = default;
  ~CarriedState() = default;
};

}  // namespace corvane
