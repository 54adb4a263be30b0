// SPDX-License-Identifier: MIT
#include "app/commands/preview.h"

#include <cstdint>
#include <string>

#include "app/output/separations.h"
#include "app/page/settings.h"
#include "app/preview/sink.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "app/support/progress.h"

namespace corvane {

PreviewSettings PreviewSettingsOf(const PreviewOptions& options, int media) {
  PreviewSettings settings;
  if (!options.inks.empty()) settings.inks = ReadInkData(options.inks);
  settings.media = media;
  settings.dpi = options.dpi;
  if (!options.zoom.empty()) settings.zoom = ParseZoom(options.zoom);
  if (!options.only.empty()) settings.only = ParseInkList(options.only);
  return settings;
}

int RunPreview(const PreviewCommandOptions& options) {
  if (options.preview.picture.empty() && options.preview.inkMap.empty()) {
    throw UsageFailure("nothing to draw: name a file with --output or --ink-map");
  }
  const int typed = SettingValueOr(kMediaType, options.media, 0);
  SeparationReader reader(options.separations);
  const PreviewSettings settings =
      PreviewSettingsOf(options.preview, (typed != 0 ? typed : reader.Shape().mediaType) - 1);

  CheckOutputNames({options.preview.picture, options.preview.inkMap},
                   {options.separations, options.preview.inks});
  CheckEnding(options.preview.picture, kPngEndings);
  CheckEnding(options.preview.inkMap, kPngEndings);
  OutputStage stage;
  const auto create = [&](const std::string& path) {
    return path.empty() ? nullptr : &stage.CreateSpooled(path);
  };
  PreviewSink sink(settings, create(options.preview.picture), create(options.preview.inkMap));
  sink.StartPage(reader.Shape());
  Progress progress("drawing", reader.Shape().rows, ProgressStyleOf(options.progress, false));
  for (std::uint32_t row = 0; row < reader.Shape().rows; ++row) {
    ThrowIfInterrupted();
    sink.WriteRow(reader.ReadRow());
    progress.Advance(1);
  }
  sink.EndPage();
  progress.Clear();
  stage.Commit();
  const std::string note = Printable(PreviewNote(settings)) + "\n";
  const bool used =
      IsStandardOutput(options.preview.picture) || IsStandardOutput(options.preview.inkMap);
  WriteReportBeside(used, false, note);
  return 0;
}

}  // namespace corvane
