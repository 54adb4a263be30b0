// SPDX-License-Identifier: MIT
//
// PDF, PostScript and EPS documents, made pixels by Ghostscript in a child; SVG drawings, which
// rsvg-convert makes PDF first.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/image/page_stream.h"

namespace corvane {

// What the interpreter is given besides the document.
struct RendererSettings {
  std::string program = "gs";
  std::uint64_t memoryBytes = std::uint64_t{1} << 30;  // that it may take
  double pageSeconds = 120;  // of waiting, and of processor time on the average, for a page
  std::string password;      // of a PDF
  std::function<bool()> isCancelled;  // from any thread, while the interpreter is waited for: yes
                                      // throws InputStream::Cancelled
};

// A page as it is shown: cropped and turned.
struct DocumentPage {
  double widthPoints = 0;
  double heightPoints = 0;
};

struct WantedPage {
  int number = 0;  // from 0
  DocumentPage size;
};

// What is to be made of a document.
struct Rendering {
  std::vector<WantedPage> pages = {};  // ascending
  // Of the bitmaps as they say it; they are `scale` times as large as that makes them.
  double horizontalDpi = 600, verticalDpi = 600;
  double scale = 1;
  bool ahead = false;  // a second interpreter goes through the next page of a PDF while one is read
};

struct OpenedDocument;

// A document on the disk. The interpreter gets the file open, and no other. It is opened for each
// run and not held open between them; a file that has changed since fails.
class Document {
 public:
  // The file must be of a kind for which IsDocument holds. Throws Failure when it cannot be read.
  Document(const std::string& path, const RendererSettings& settings);
  ~Document();

  // The pages, all of them. Those of PostScript are known to half a point: only running it tells.
  // Throws Failure, naming the file, when the interpreter is missing or makes no pages of it.
  std::vector<DocumentPage> Pages();

  // Begins to make the pages of a PDF that way, without knowing them: a Render that asks for all of
  // them so goes on with it, any other ends it. For who has not asked for the pages yet and will
  // most likely want them all; that saves the interpreter's start.
  void Expect(double horizontalDpi, double verticalDpi);

  // Whether the interpreter ran in a sandbox when it listed the pages.
  bool Sandboxed() const;

  // The wanted pages as tagged RGB, each made while it is read, in the memory of a few rows. The
  // stream gives all of them or throws, naming the page and what the interpreter says of it.
  std::unique_ptr<PageStream> Render(const Rendering& rendering);

 private:
  void MakeOfDrawing();

  std::shared_ptr<OpenedDocument> opened_;
};

}  // namespace corvane
