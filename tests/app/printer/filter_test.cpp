// SPDX-License-Identifier: MIT
//
// What a filter makes of its command line, the PPD file and the headers of pages.
#include "app/printer/filter.h"

#include <gtest/gtest.h>

#include <fstream>

#include "app/support/failure.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

StreamedPage PageWith(const PageTicket& ticket, PixelForm::Colour colour = PixelForm::Colour::Rgb) {
  StreamedPage page;
  page.image.form.colour = colour;
  page.ticket = ticket;
  return page;
}

TEST(FilterTest, MakesCopiesOnceWhoeverAsksForThem) {
  struct Case {
    const char* file;
    int asked, inHeader, copies;
  };
  for (const Case& c : {Case{"", 1, 1, 1}, Case{"", 3, 1, 1}, Case{"", 3, 3, 3}, Case{"", 1, 2, 2},
                        Case{"file", 3, 1, 3}, Case{"file", 3, 3, 3}, Case{"file", 1, 2, 2},
                        Case{"file", 3, 2, 3}}) {
    FilterCall call;
    call.file = c.file;
    call.copies = c.asked;
    StreamedPage page;
    page.copies = c.inHeader;
    EXPECT_EQ(CopiesOf(call, page), c.copies) << c.file << " " << c.asked << " " << c.inHeader;
  }
}

TEST(FilterTest, PagesOverrideTheJob) {
  FilterCall call;
  call.options = {{"print-quality", "5"},        {"MediaType", "Fine-Art"},
                  {"media-type", "stationery"},  {"corvane-print-mode", "54"},
                  {"CorvaneAlternateMode", "1"}, {"print-content-optimize", "text"}};
  const JobWishes job = WishesOf(call);
  const JobWishes same = WithTicket(job, PageWith({}));
  for (const JobWishes& wishes : {job, same}) {
    EXPECT_EQ(wishes.quality, Quality::High);
    EXPECT_EQ(wishes.media, "fine-art") << "the PPD file's name of an option comes first";
    EXPECT_EQ(wishes.mode, 54);
    EXPECT_EQ(wishes.alternateMode, 1);
    EXPECT_EQ(wishes.content, Content::Graphics);
    EXPECT_FALSE(wishes.monochrome);
  }
  PageTicket ticket;
  ticket.quality = 3;
  ticket.mediaType = "photographic-satin";
  ticket.mode = 12;
  ticket.alternateMode = 2;
  ticket.content = "photo";
  const JobWishes page = WithTicket(job, PageWith(ticket, PixelForm::Colour::Grey));
  EXPECT_EQ(page.quality, Quality::Draft);
  EXPECT_EQ(page.media, "satin");
  EXPECT_EQ(page.mode, 12);
  EXPECT_EQ(page.alternateMode, 2);
  EXPECT_EQ(page.content, Content::Photo);
  EXPECT_TRUE(page.monochrome);
}

TEST(FilterTest, WordsOfOthersChangeNothing) {
  PageTicket ticket;
  ticket.quality = 77;
  ticket.mediaType = "Cardboard";
  ticket.mediaNumber = 3;
  ticket.content = "poster";
  const JobWishes wishes = WithTicket({}, PageWith(ticket));
  EXPECT_EQ(wishes.quality, Quality::Normal);
  EXPECT_EQ(wishes.media, "glossy") << "the number counts where the word is not known";
  EXPECT_EQ(wishes.content, Content::Auto);
  ticket.mediaNumber = 1000;
  EXPECT_EQ(WithTicket({}, PageWith(ticket)).media, "plain");
  ticket.mode = 3;
  EXPECT_THROW(WithTicket({}, PageWith(ticket)), UsageFailure);
}

TEST(FilterTest, ThePpdNamesTheHead) {
  const ScratchFolder folder;
  const auto head = [&](const std::string& text) {
    std::ofstream(folder.File("a.ppd")) << text;
    return HeadOfPpd(folder.File("a.ppd")).name;
  };
  EXPECT_EQ(HeadOfPpd("").name, "corvane-7");
  EXPECT_EQ(head("*PPD-Adobe: \"4.3\"\n*cupsModelNumber: 9\n*cupsManualCopies: True\n"),
            "corvane-9");
  for (const char* text :
       {"", "*PPD-Adobe: \"4.3\"\n", "*cupsModelNumber:\n", "*cupsModelNumber: 5\n"}) {
    EXPECT_THROW(head(text), Failure) << text;
  }
  EXPECT_THROW(HeadOfPpd(folder.File("none.ppd")), Failure);
}

}  // namespace
}  // namespace corvane
