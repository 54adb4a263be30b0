// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace corvane {

// What a preview shows and how, as it was typed.
struct PreviewOptions {
  std::string picture;  // PNG file; empty: none
  std::string inkMap;   // PNG file of the ink per area; empty: none
  double dpi = 0;       // of both; 0: what suits them
  std::string zoom;     // part of the page, X,Y,W,H in millimetres; empty: all of it
  std::string inks;     // ink data; empty: the built-in set
  std::string only;     // inks shown, as C,c,K; empty: all
};

struct PreviewCommandOptions {
  std::string separations;  // as `corvane print` writes them
  std::string media;        // empty: the one that the page was printed for
  std::string progress = "auto";
  PreviewOptions preview;
};

// Draws a page from the TIFF file of its planes. Returns the exit status; throws Failure.
int RunPreview(const PreviewCommandOptions& options);

struct PreviewSettings;
// The settings of a preview on a medium, 0..5. Throws Failure.
PreviewSettings PreviewSettingsOf(const PreviewOptions& options, int media);

}  // namespace corvane
