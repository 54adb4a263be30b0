// SPDX-License-Identifier: MIT
#include "app/commands/placed_page.h"

#include <fmt/format.h>

#include <utility>

#include "app/image/ink_planes.h"
#include "app/image/reader.h"
#include "app/image/srgb.h"
#include "app/image/tags.h"
#include "app/page/placed_image.h"
#include "app/page/planes.h"
#include "app/support/failure.h"

namespace corvane {
namespace {

PlacedImage OpenImageOf(const PageJob& job, PageStream* stream, const Sheet& sheet) {
  std::unique_ptr<ImageReader> image =
      stream != nullptr ? ReaderOfPage(*stream) : OpenImage(job.image, job.page);
  const bool tagged = image->Info().form.tagged;
  PlacedImage placed = OpenPlaced(std::move(image), sheet, job.placing);
  if (tagged && (!job.ownTags || !job.tags.empty())) placed.rows = DropTags(std::move(placed.rows));
  return placed;
}

std::unique_ptr<RowSource> OpenInkRows(const PageJob& job) {
  const PageSettings& settings = job.settings;
  const bool printsBlack = PrintsBlack(*settings.mode, settings.alternateMode);
  std::vector<InkPlane> planes;
  for (const std::string& ink : job.inks) {
    planes.push_back({ink, printsBlack || FindInk(ink) != Ink::K});
  }
  return MakeInkRows(OpenInkPlanes(job.image), planes);
}

}  // namespace

PlacedPage::PlacedPage(const PageJob& job, PageStream* stream, const Sheet& sheet) : sheet_(sheet) {
  if (job.openRows || !job.inks.empty()) {
    OpenSheet(job);
  } else {
    OpenColours(job, stream);
  }
}

void PlacedPage::OpenSheet(const PageJob& job) {
  image_ = job.openRows ? job.openRows() : OpenInkRows(job);
  if (image_->Width() != sheet_.width || image_->Height() != sheet_.height) {
    throw Failure(job.image + ": has changed while it was printed");
  }
  placement_.width = sheet_.width;
  placement_.height = sheet_.height;
  placement_.sameSize = true;
  tagged_ = job.inks.empty() && image_->BytesPerPixel() == 4;
}

void PlacedPage::OpenColours(const PageJob& job, PageStream* stream) {
  PlacedImage image = OpenImageOf(job, stream, sheet_);
  image_ = std::move(image.rows);
  placement_ = image.placement;
  if (!job.tags.empty()) OpenTags(job, image.degrees);
  tagged_ = tags_ || image_->BytesPerPixel() == 4;
  // Resampling knows colours alone.
  if (image_->BytesPerPixel() == 4 && !placement_.sameSize) {
    ColoursAndTags split = SplitTags(std::move(image_));
    image_ = std::move(split.colours);
    TakeTags(std::move(split.tags));
  }
}

void PlacedPage::OpenTags(const PageJob& job, int degrees) {
  std::unique_ptr<ImageReader> mask = OpenImage(job.tags);
  const int orientation = TurnedOrientation(mask->Info().orientation, degrees);
  auto tags = MakeUprightRows(MakeGreyRows(std::move(mask)), orientation);
  if (tags->Width() != image_->Width() || tags->Height() != image_->Height()) {
    throw Failure(fmt::format("{}: {} x {} tags do not fit {} x {} pixels", job.tags, tags->Width(),
                              tags->Height(), image_->Width(), image_->Height()));
  }
  TakeTags(std::move(tags));
}

void PlacedPage::TakeTags(std::unique_ptr<RowSource> tags) {
  tags_ = std::make_unique<PlacedTags>(std::move(tags), placement_, sheet_);
  tagRow_.resize(sheet_.width);
  taggedRow_.resize(std::size_t{4} * sheet_.width);
}

const std::uint8_t* PlacedPage::WithTags(const std::uint8_t* row) {
  tags_->ReadRow(tagRow_.data());
  for (std::size_t x = 0; x < sheet_.width; ++x) {
    for (std::size_t i = 0; i < 3; ++i) taggedRow_[4 * x + i] = row[3 * x + i];
    taggedRow_[4 * x + 3] = tagRow_[x];
  }
  return taggedRow_.data();
}

void PlacedPage::Read(const std::function<void(const std::uint8_t* row)>& receiver) {
  PlaceRows(*image_, placement_, sheet_,
            [&](const std::uint8_t* row) { receiver(tags_ ? WithTags(row) : row); });
}

}  // namespace corvane
