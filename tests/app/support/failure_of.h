// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "app/support/failure.h"

namespace corvane {

// The text of the failure that a call ends in.
template <class Call>
std::string FailureOf(Call call) {
  try {
    call();
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "no failure";
}

}  // namespace corvane
