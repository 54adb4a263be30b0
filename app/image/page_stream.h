// SPDX-License-Identifier: MIT
//
// Inputs that come as a sequence of pages and are read once, from front to back.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "app/image/reader.h"
#include "app/support/input_stream.h"

namespace corvane {

// How a page's header asks for it to be printed; empty and 0: it does not say. Nobody has checked
// it.
struct PageTicket {
  std::string mediaType;  // a word
  int mediaNumber = 0;
  std::string content;  // a word
  int quality = 0;      // 3 draft, 4 normal, 5 high
  int mode = 0;         // a print mode by its number
  int alternateMode = 0;
};

// A page of a stream as its header describes it. `image.path` names the input, and the page where
// the stream has shown more than one.
struct StreamedPage {
  ImageInfo image;
  int number = 0;           // in the input, from 0
  int copies = 1;           // that are asked for
  bool collated = false;    // copies come in sets of all pages
  double mediaWidthMm = 0;  // of the sheet that it is made for; 0: not said
  double mediaHeightMm = 0;
  PageTicket ticket;
};

// One thread at a time may use a stream. Its members throw Failure, naming input and page, when
// the input is damaged; a page that ends early is damaged.
class PageStream {
 public:
  virtual ~PageStream() = default;

  // Goes to the next page; rows of the last one that nobody has read are passed over. False behind
  // the last page.
  virtual bool Next() = 0;

  // The page that Next went to.
  const StreamedPage& Page() const { return page_; }

  // The next row of that page: `Page().image.RowBytes()` bytes.
  virtual void ReadRow(std::uint8_t* row) = 0;

  // Behind the last row that is wanted of that page: waits until it shows whether the page is
  // whole. A stream whose rows tell that by themselves has nothing to wait for.
  virtual void Finish() {}

  // Goes on to a page (from 0) that was not passed yet. Throws Failure when there is none.
  void GoTo(int number);

  // Whether rows are wanted as soon as they are there, as of an input that may come slowly.
  virtual bool IsPrompt() const { return true; }

  // What whoever makes the pages has complained of, although it made them, since this was asked
  // last; empty: nothing. To be asked when a page has been read: a maker that does not say which
  // page it complains of is heard behind the last one.
  virtual std::string TakeRemarks() { return {}; }

  // From any thread: whoever waits for the input gets InputStream::Cancelled.
  virtual void Cancel() = 0;

 protected:
  StreamedPage page_;
};

// The page that a stream is at, until it goes to the next one. The stream must outlive it.
std::unique_ptr<ImageReader> ReaderOfPage(PageStream& stream);

// The stream in a file of a kind for which IsPageStream holds.
std::unique_ptr<PageStream> OpenPageStream(const std::string& path);
// The same from an input that has shown its kind to be one of those.
std::unique_ptr<PageStream> OpenPageStream(std::unique_ptr<InputStream> input);

// One page (from 0) of such a file, for who wants no other: its reader owns the stream.
std::unique_ptr<ImageReader> OpenStreamPage(const std::string& path, int page);

// The pages of such a file as their headers describe them, and how many they are.
std::vector<StreamedPage> ListStreamPages(const std::string& path);
int CountStreamPages(const std::string& path);

}  // namespace corvane
