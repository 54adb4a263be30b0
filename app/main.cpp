// SPDX-License-Identifier: MIT
#include <cstdio>
#include <exception>
#include <new>

#include "app/command_line.h"
#include "app/failure.h"
#include "app/interrupt.h"

int main(int argc, char** argv) {
  try {
    return corvane::RunCommandLine(argc, argv);
  } catch (const corvane::UsageFailure& failure) {
    std::fprintf(stderr, "corvane: %s\n", failure.what());
    return 2;
  } catch (const corvane::Interrupted& interrupted) {
    corvane::DieOf(interrupted);
  } catch (const std::bad_alloc&) {
    std::fputs("corvane: out of memory\n", stderr);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "corvane: %s\n", failure.what());
  }
  return 1;
}
