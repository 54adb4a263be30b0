// SPDX-License-Identifier: MIT
//
// Files of binary planes, as corvane preview reads them.
#include "app/commands/preview.h"
#include "fuzz/fuzz.h"
#include "tests/harness/scratch_folder.h"

FUZZ_TARGET(separations, input) {
  using namespace corvane;
  static const ScratchFolder folder;
  PreviewCommandOptions options;
  options.separations = fuzz::FileOf(input);
  options.preview.dpi = 300;  // so that files that say they are metres long are refused
  options.preview.picture = folder.File("preview.png");
  options.preview.inkMap = folder.File("ink.png");
  fuzz::Succeeds([&] { RunPreview(options); });
}
