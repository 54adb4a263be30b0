// SPDX-License-Identifier: MIT
//
// What a print job asks for: the numbers of a page's header, then a PPD file's line or options, a
// line each.
#include "app/page/settings.h"
#include "app/printer/filter.h"
#include "app/printer/head.h"
#include "fuzz/fuzz.h"

namespace {

using namespace corvane;

StreamedPage TakePage(fuzz::Input& input) {
  StreamedPage page;
  page.copies = input.Take<std::int32_t>();
  page.ticket.mediaNumber = input.Take<std::int32_t>();
  page.ticket.quality = input.Take<std::int8_t>();
  page.ticket.mode = input.Take<std::int16_t>();
  page.ticket.alternateMode = input.Take<std::int8_t>();
  page.image.form.colour = input.Choose(2) == 0 ? PixelForm::Colour::Rgb : PixelForm::Colour::Grey;
  return page;
}

FilterCall CallFrom(std::string_view text) {
  FilterCall call;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    const std::string_view name = line.substr(0, line.find('='));
    call.options[std::string(name)] = line.substr(std::min(line.size(), name.size() + 1));
  }
  return call;
}

}  // namespace

FUZZ_TARGET(printer_options, input) {
  fuzz::Input bytes(input);
  StreamedPage page = TakePage(bytes);
  const std::string file = fuzz::FileOf(bytes.Rest());
  fuzz::Succeeds([&] { HeadOfPpd(file); });
  const FilterCall call = CallFrom(fuzz::TextOf(bytes.Rest()));
  if (const auto media = call.options.find("media-type"); media != call.options.end()) {
    page.ticket.mediaType = page.ticket.content = media->second;
  }
  FUZZ_EXPECT(CopiesOf(call, page) >= 1);
  JobWishes wishes;
  if (!fuzz::Succeeds([&] { wishes = WithTicket(WishesOf(call), page); })) return;
  // What a job may ask of a head can be printed with it, and without a mode of its own every job.
  JobWishes usual = wishes;
  usual.mode = usual.alternateMode = 0;
  for (const PrintHead& head : kPrintHeads) {
    PrintOptions options;
    const bool has = fuzz::Succeeds([&] { options = OptionsFor(head, wishes); });
    FUZZ_EXPECT(!has || fuzz::Succeeds([&] { PageSettingsFrom(options); }));
    FUZZ_EXPECT(fuzz::Succeeds([&] { PageSettingsFrom(OptionsFor(head, usual)); }));
  }
}
