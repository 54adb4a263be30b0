// SPDX-License-Identifier: MIT
#include "app/document/renderer.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include "app/child/child.h"
#include "app/document/eps_box.h"
#include "app/document/page_report.h"
#include "app/image/kind.h"
#include "app/image/pnm.h"
#include "app/support/failure.h"
#include "app/support/limits.h"
#include "app/support/scratch_file.h"
#include "app/support/units.h"

namespace corvane {

struct OpenedDocument {
  // An interpreter that makes pages.
  struct Lane {
    std::unique_ptr<Child> child;
    InputStream* input = nullptr;  // of bitmaps
    std::unique_ptr<PageStream> bitmaps;
  };

  std::string path;
  FileKind kind;  // of what the interpreter gets: a drawing is a PDF
  bool isDrawing;
  struct stat status;             // of the file when it was first opened
  Descriptor madeOfDrawing = {};  // kept for the next run of the interpreter, or not open
  RendererSettings settings;
  bool sandboxed = false;
  std::size_t pages = 0;  // 0: not listed
  bool listedWhole = true;
  std::optional<EpsBox> box = {};  // of an illustration that has one

  // That makes every second page from the first.
  struct {
    double horizontalDpi = 0, verticalDpi = 0;
    Lane lane;
  } expected = {};
};

namespace {

using Lane = OpenedDocument::Lane;

constexpr std::size_t kMostSaid = 400;  // of what the interpreter says of a page
constexpr double kListingDpi = 288;     // tells sizes to a quarter of a point

// Places among the files that the child is given.
constexpr std::size_t kDocument = 0, kColours = 1, kSecrets = 2;

// Black ink of text becomes black, not the dark grey that printing inks make together on paper;
// what else is CMYK keeps its managed colours.
constexpr std::string_view kColourRules = "Text_CMYK\tNone\n";

// Stands in the error stream behind what is said of a page.
constexpr const char* kPageEnd = "corvane-page-end";

// Lists a PDF: a line a page with the media box, the crop box, the rotation and the user unit.
std::string ListingProgram(const std::string& file) {
  return R"((%stdout) (w) file /out exch def
/put { 64 string cvs out exch writestring out ( ) writestring } def
/put-box {
  pget { dup length 4 eq { { put } forall } { pop out (- - - - ) writestring } ifelse }
       { out (- - - - ) writestring } ifelse
} def
/put-number { pget not { 0 } if put } def
()" + file +
         R"() (r) file runpdfbegin
1 1 pdfpagecount {
  pdfgetpage dup type /dicttype ne { pop 1 dict } if  % fails when it is drawn
  out (corvane-page ) writestring
  dup /MediaBox put-box dup /CropBox put-box
  dup /Rotate put-number /UserUnit put-number
  out (\n) writestring
} for quit)";
}

// A file in memory that a child may read.
Descriptor InMemory(std::string_view text) {
  Descriptor file(memfd_create("corvane", MFD_CLOEXEC));
  if (!file.IsOpen() || !file.Write(text.data(), text.size())) {
    throw TransientFailure(fmt::format("no file in memory: {}", std::strerror(errno)));
  }
  return file;
}

// As the interpreter reads it from a file of arguments.
std::string Quoted(const std::string& password) {
  std::string quoted = "-sPDFPassword=\"";
  for (const char c : password) {
    if (static_cast<unsigned char>(c) < ' ') {
      throw UsageFailure("--password: a password has no control characters");
    }
    if (c == '"') quoted += '\\';
    quoted += c;
  }
  if (password.ends_with('\\')) throw UsageFailure("--password: it cannot end in a backslash");
  return quoted + "\"\n";
}

// "1-3,7" of ascending pages from 0.
std::string PageList(const std::vector<int>& pages) {
  std::string list;
  for (std::size_t i = 0, end = 0; i < pages.size(); i = end) {
    for (end = i + 1; end < pages.size() && pages[end] == pages[end - 1] + 1;) ++end;
    list += list.empty() ? "" : ",";
    list += std::to_string(pages[i] + 1);
    if (end - i > 1) list += fmt::format("-{}", pages[end - 1] + 1);
  }
  return list;
}

// The interpreter's words that draw these ascending pages, from 0.
std::string DrawingOf(const std::vector<int>& pages) {
  std::string words;
  for (std::size_t i = 0, end = 0; i < pages.size(); i = end) {
    const int step = i + 1 < pages.size() ? pages[i + 1] - pages[i] : 1;
    for (end = i + 1; end < pages.size() && pages[end] == pages[end - 1] + step;) ++end;
    words += fmt::format("{} {} {} {{ draw }} for ", pages[i] + 1, step, pages[end - 1] + 1);
  }
  return words;
}
constexpr const char* kEverySecondPage =
    "document (r) file runpdfbegin pdfpagecount runpdfend 1 2 3 -1 roll { draw } for ";

// Draws pages of a PDF, which `drawing` names, each from the file opened anew: what the interpreter
// has found wrong it tells when it closes the file, and so of which page it is true.
std::string DrawingProgram(const std::string& file, const std::string& drawing) {
  return fmt::format(R"(/QUIET false def
/document ({}) def
/report (%stderr) (w) file def
/draw {{
  document (r) file runpdfbegin pdfgetpage pdfshowpage runpdfend
  flush report (\n{}\n) writestring report flushfile
}} def
{}quit)",
                     file, kPageEnd, drawing);
}

struct Box {
  double left = 0, bottom = 0, right = 0, top = 0;
};

// A box in any order of its corners; "-" for each number where there is none.
bool ReadBox(std::istream& line, Box& box) {
  std::array<std::string, 4> words;
  for (std::string& word : words) line >> word;
  std::array<double, 4> numbers{};
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    char* end = nullptr;
    numbers[i] = std::strtod(words[i].c_str(), &end);
    if (words[i].empty() || *end != '\0' || !std::isfinite(numbers[i])) return false;
  }
  box = {std::min(numbers[0], numbers[2]), std::min(numbers[1], numbers[3]),
         std::max(numbers[0], numbers[2]), std::max(numbers[1], numbers[3])};
  return true;
}

DocumentPage PageFrom(std::istream& line) {
  Box media, crop;
  if (!ReadBox(line, media)) media = {0, 0, 612, 792};  // as the interpreter takes it
  if (ReadBox(line, crop)) {
    const Box cut = {std::max(media.left, crop.left), std::max(media.bottom, crop.bottom),
                     std::min(media.right, crop.right), std::min(media.top, crop.top)};
    if (cut.left < cut.right && cut.bottom < cut.top) media = cut;
  }
  double turn = 0, unit = 0;
  line >> turn >> unit;
  if (!(unit > 0)) unit = 1;
  DocumentPage page = {(media.right - media.left) * unit, (media.top - media.bottom) * unit};
  if (std::fmod(std::abs(turn), 180) == 90) std::swap(page.widthPoints, page.heightPoints);
  return page;
}

// ---------------------------------------------------------------------------------------------
// The interpreter.

// What a child of the document writes.
std::unique_ptr<InputStream> OutputOf(Child& child, const OpenedDocument& document) {
  auto output = std::make_unique<InputStream>(child.TakeOutput(), document.path);
  output->LimitWait(document.settings.pageSeconds);
  output->CancelWhen(document.settings.isCancelled);
  return output;
}

// What is said of a child that gave nothing for so long.
std::string StoodStill(double seconds) { return fmt::format("did not go on for {:g} s", seconds); }

// How a child of `what` has ended, by itself. Another run may fare better than one that was killed.
std::string EndingOf(Child& child, const std::string& what,
                     std::chrono::milliseconds most = Child::kInTime,
                     const char* program = "Ghostscript") {
  std::string ending = child.End(most);
  if (child.WasKilled()) throw TransientFailure(fmt::format("{}: {} {}", what, program, ending));
  return ending;
}

// A drawing as a PDF file of one page, in which its text is text.
Descriptor PdfOfSvg(const OpenedDocument& document, const Descriptor& drawing) {
  ChildCommand command = {.program = "rsvg-convert", .package = "librsvg2-bin"};
  command.arguments = {"--format=pdf", "--", ChildCommand::NameOfFile(0)};
  command.limits = {document.settings.memoryBytes, document.settings.pageSeconds};
  command.files = {&drawing};
  Child child(command);
  const auto output = OutputOf(child, document);
  ScratchFile pdf;
  std::vector<std::uint8_t> bytes(std::size_t{256} << 10);
  std::uint64_t size = 0;
  try {
    while (const std::size_t more = output->Read(bytes.data(), bytes.size())) {
      pdf.Write(size, bytes.data(), more);
      size += more;
    }
  } catch (const InputStream::WaitedTooLong&) {
    throw Failure(fmt::format("{}: rsvg-convert {}", document.path,
                              StoodStill(document.settings.pageSeconds)));
  }
  const std::string ending = EndingOf(child, document.path, Child::kInTime, "rsvg-convert");
  if (!ending.empty() || size == 0) {
    throw Failure(fmt::format("{}: rsvg-convert {}", document.path,
                              ending.empty() ? "has made nothing of it" : ending));
  }
  Descriptor file(open(pdf.Path().c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.IsOpen())
    throw TransientFailure(fmt::format("no file can be opened: {}", std::strerror(errno)));
  return file;
}

bool IsSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// The document's file, which is opened anew for each run of the interpreter: a command may have
// more documents than the system lets it hold open.
Descriptor OpenAgain(const OpenedDocument& document) {
  Descriptor file(open(document.path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat now = {};
  if (!file.IsOpen() || fstat(file.Number(), &now) != 0) {
    FailOfSystem(document.path, errno);
  }
  if (!IsSameFile(now, document.status)) {
    throw Failure(document.path + ": has changed while it was printed");
  }
  return file;
}

// What the interpreter gets to read.
Descriptor FileFor(const OpenedDocument& document) {
  if (document.madeOfDrawing.IsOpen()) {
    Descriptor file = document.madeOfDrawing.Duplicate();
    if (file.IsOpen()) return file;
    throw TransientFailure(
        fmt::format("{}: cannot be opened: {}", document.path, std::strerror(errno)));
  }
  Descriptor file = OpenAgain(document);
  return document.isDrawing ? PdfOfSvg(document, file) : std::move(file);
}

std::unique_ptr<Child> Start(const OpenedDocument& document, const std::vector<std::string>& task,
                             std::size_t pages, const char* partEnd = "") {
  const RendererSettings& settings = document.settings;
  const Descriptor file = FileFor(document);
  const Descriptor colours = InMemory(kColourRules);
  const Descriptor secrets =
      InMemory(settings.password.empty() ? std::string() : Quoted(settings.password));
  const std::string rules = ChildCommand::NameOfFile(kColours);
  ChildCommand command = {.program = settings.program, .package = "ghostscript"};
  command.arguments = {fmt::format("@{}", ChildCommand::NameOfFile(kSecrets)),
                       "-q",
                       "-dSAFER",
                       "-dBATCH",
                       "-dNOPAUSE",
                       "-dNOPROMPT",
                       "-sPAPERSIZE=a4",  // of pages that say none, whatever the system's is
                       fmt::format("--permit-file-read={}", rules),
                       fmt::format("-sSourceObjectICC={}", rules)};
  command.arguments.insert(command.arguments.end(), task.begin(), task.end());
  command.limits = {settings.memoryBytes, settings.pageSeconds * static_cast<double>(pages)};
  command.files = {&file, &colours, &secrets};
  command.partEnd = partEnd;
  return std::make_unique<Child>(command);
}

// What makes pages into bitmaps on the standard output: those of a PDF that the words `which` draw,
// those of another document that the list `which` names, all where it is empty.
std::vector<std::string> DrawingTask(const OpenedDocument& document, const std::string& device,
                                     double horizontalDpi, double verticalDpi,
                                     const std::string& which) {
  // What a program prints must not come between the bitmaps.
  std::vector<std::string> task = {fmt::format("-sDEVICE={}", device),
                                   fmt::format("-r{:.6f}x{:.6f}", horizontalDpi, verticalDpi),
                                   "-sOutputFile=%stdout", "-sstdout=%stderr", "-dUseCropBox"};
  const std::string file = ChildCommand::NameOfFile(kDocument);
  if (document.kind == FileKind::Pdf) {
    task.insert(task.end(),
                {fmt::format("--permit-file-read={}", file), "-c", DrawingProgram(file, which)});
    return task;
  }
  if (!which.empty()) task.push_back(fmt::format("-sPageList={}", which));
  if (const auto& box = document.box) {
    task.insert(
        task.end(),
        {"-c",
         fmt::format("<</PageSize [{:.6f} {:.6f}]>> setpagedevice {:.6f} {:.6f} translate",
                     box->right - box->left, box->top - box->bottom, -box->left, -box->bottom)});
  }
  task.insert(task.end(), {"-f", file});
  // An illustration need not show its page itself.
  constexpr char kShowUnlessShown[] = "currentpagedevice /PageCount get 0 eq { showpage } if";
  if (document.kind == FileKind::Eps) task.insert(task.end(), {"-c", kShowUnlessShown});
  return task;
}

[[noreturn]] void Fail(const std::string& what, const std::string& how) {
  throw Failure(fmt::format("{}: Ghostscript {}", what, how));
}

std::vector<DocumentPage> ListPdf(OpenedDocument& document) {
  const std::string file = ChildCommand::NameOfFile(kDocument);
  const auto child = Start(
      document,
      {"-dNODISPLAY", fmt::format("--permit-file-read={}", file), "-c", ListingProgram(file)}, 1);
  const auto output = OutputOf(*child, document);
  document.sandboxed = child->Sandboxed();
  std::vector<DocumentPage> pages;
  std::string text;
  char bytes[4096];
  while (const std::size_t count = output->Read(bytes, sizeof bytes)) {
    text.append(bytes, count);
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
      std::istringstream line(text.substr(start, end - start));
      std::string mark;
      if (line >> mark && mark == "corvane-page") pages.push_back(PageFrom(line));
    }
    text.erase(0, start);
  }
  const std::string ending = EndingOf(*child, document.path);
  if (!ending.empty()) Fail(document.path, ending);
  if (pages.empty()) {
    const std::string& complaint = child->Complaint();
    Fail(document.path, "found no pages" + (complaint.empty() ? "" : ": " + complaint));
  }
  return pages;
}

// Runs the document and looks how large its pages are.
std::vector<DocumentPage> ListPostScript(OpenedDocument& document) {
  // How many pages there are nobody knows; each one's time is limited while it is waited for.
  const auto child = Start(document, DrawingTask(document, "pgmraw", kListingDpi, kListingDpi, {}),
                           limits::kPages);
  auto output = OutputOf(*child, document);
  InputStream& input = *output;
  document.sandboxed = child->Sandboxed();
  std::vector<DocumentPage> pages;
  if (!output->Peek(1).empty()) {
    const auto stream = OpenPnmStream(std::move(output));
    while (stream->Next()) {
      if (pages.size() == limits::kPages) {
        throw Failure(fmt::format("{}: more than {} pages", document.path, limits::kPages));
      }
      input.LimitWait(document.settings.pageSeconds);
      const ImageInfo& image = stream->Page().image;
      pages.push_back({image.width * kPointsPerInch / kListingDpi,
                       image.height * kPointsPerInch / kListingDpi});
    }
  }
  const std::string ending = EndingOf(*child, document.path);
  document.listedWhole = ending.empty();
  if (!ending.empty() && pages.empty()) Fail(document.path, ending);
  if (document.kind == FileKind::Eps) {
    if (!pages.empty()) pages.resize(1);
  } else if (!ending.empty()) {
    // The pages before an error are pages. What comes behind it nobody knows: the page that it has
    // stopped stands for it, and fails when it is made.
    pages.push_back(pages.back());
  }
  return pages;
}

// The pages of documents listed last: a job asks for them with each page that it prints.
class PageLists {
 public:
  void Keep(const OpenedDocument& document, const std::vector<DocumentPage>& pages) {
    const std::lock_guard lock(mutex_);
    if (lists_.size() == kMostLists) lists_.pop_front();
    lists_.push_back({document.status, document.settings.password, document.sandboxed, pages});
  }

  // False where they are not known, or not by this password, or the file has changed since.
  bool Find(OpenedDocument& document, std::vector<DocumentPage>* pages) {
    const std::lock_guard lock(mutex_);
    const auto known = std::ranges::find_if(lists_, [&](const List& list) {
      return IsSameFile(list.status, document.status) &&
             list.password == document.settings.password;
    });
    if (known == lists_.end()) return false;
    document.sandboxed = known->sandboxed;
    *pages = known->pages;
    return true;
  }

 private:
  static constexpr std::size_t kMostLists = 16;
  struct List {
    struct stat status;
    std::string password;
    bool sandboxed;
    std::vector<DocumentPage> pages;
  };

  std::mutex mutex_;
  std::deque<List> lists_;
};

PageLists pageLists;

// ---------------------------------------------------------------------------------------------

// Starts the interpreter on pages as DrawingTask takes them: so many, to limit its time.
Lane StartLane(const OpenedDocument& document, double horizontalDpi, double verticalDpi,
               const std::string& which, std::size_t pages) {
  Lane lane;
  lane.child =
      Start(document, DrawingTask(document, "bitrgbtags", horizontalDpi, verticalDpi, which), pages,
            document.kind == FileKind::Pdf ? kPageEnd : "");
  auto input = OutputOf(*lane.child, document);
  lane.input = input.get();
  lane.bitmaps = OpenPnmStream(std::move(input));
  return lane;
}

class RenderedPages : public PageStream {
 public:
  // `begun`: that makes the first page and every second one; its child may be null.
  RenderedPages(std::shared_ptr<const OpenedDocument> document, const Rendering& rendering,
                Lane begun)
      : document_(std::move(document)), rendering_(rendering) {
    // A page is interpreted whole before its first row is there. PostScript would have to be run by
    // both.
    const bool two = rendering_.ahead && document_->kind == FileKind::Pdf;
    lanes_.resize(std::min<std::size_t>(two ? 2 : 1, rendering_.pages.size()));
    if (begun.child) lanes_[0] = std::move(begun);
    for (std::size_t i = 0; i < lanes_.size(); ++i) {
      if (!lanes_[i].child) StartLaneOf(i);
    }
  }

  bool Next() override {
    if (next_ == rendering_.pages.size()) return false;
    const int passed = next_ == 0 ? -1 : page_.number;
    const WantedPage& wanted = rendering_.pages[next_++];
    page_ = {};
    page_.number = wanted.number;
    page_.image.path = fmt::format("{}, page {}", document_->path, wanted.number + 1);
    AllowTimeOf(wanted.number - passed);
    bool made = false;
    Guarded([&] { made = !Current().input->Peek(1).empty() && Current().bitmaps->Next(); });
    if (!made) FailOfEnd("has not made the page");
    TakeHeader(wanted);
    return true;
  }

  void ReadRow(std::uint8_t* row) override {
    Guarded([&] { Current().bitmaps->ReadRow(row); });
    if (++rowsRead_ == page_.image.height) EndPage();
  }

  void Finish() override {
    std::vector<std::uint8_t> row(page_.image.RowBytes());
    while (rowsRead_ < page_.image.height) ReadRow(row.data());
  }

  bool IsPrompt() const override { return false; }

  std::string TakeRemarks() override {
    if (madeAll_) {
      for (const Lane& lane : lanes_) {
        const std::string ending = lane.child->End(Child::kInTime);
        Remark(ending.empty() ? lane.child->Complaint() : ending);
      }
      madeAll_ = false;
    }
    return std::exchange(remarks_, {});
  }

  void Cancel() override {
    for (const Lane& lane : lanes_) lane.input->Cancel();
  }

 private:
  // That makes the page that Next went to.
  Lane& Current() { return lanes_[(next_ - 1) % lanes_.size()]; }

  // With its pages: every second one where there are two.
  void StartLaneOf(std::size_t index) {
    std::vector<int> numbers;
    for (std::size_t i = index; i < rendering_.pages.size(); i += lanes_.size()) {
      numbers.push_back(rendering_.pages[i].number);
    }
    const bool isPdf = document_->kind == FileKind::Pdf;
    lanes_[index] =
        StartLane(*document_, DrawnDpi(rendering_.horizontalDpi), DrawnDpi(rendering_.verticalDpi),
                  isPdf ? DrawingOf(numbers) : PageList(numbers),
                  isPdf ? numbers.size()
                        : std::max(document_->pages, static_cast<std::size_t>(numbers.back()) + 1));
  }

  // For how long the interpreter may say nothing from here on. PostScript is run through as many
  // pages, those that are not wanted, too.
  void AllowTimeOf(int pages) {
    const bool isPdf = document_->kind == FileKind::Pdf;
    allowedSeconds_ = document_->settings.pageSeconds * (isPdf ? 1 : std::max(pages, 1));
    Current().input->LimitWait(allowedSeconds_);
  }

  double DrawnDpi(double dpi) const { return dpi * rendering_.scale; }

  // What goes wrong with the bitmaps is the doing of the child.
  template <class Action>
  void Guarded(Action action) {
    try {
      action();
    } catch (const InputStream::WaitedTooLong&) {
      Current().child->End(Child::kAtOnce);
      Fail(page_.image.path, StoodStill(allowedSeconds_));
    } catch (const Failure&) {
      FailOfEnd("stopped in the middle of the page");
    }
  }

  [[noreturn]] void FailOfEnd(const std::string& what) {
    Child& child = *Current().child;
    const std::string ending = EndingOf(child, page_.image.path, Child::kSoon);
    if (!ending.empty() && !child.WasStopped()) Fail(page_.image.path, ending);
    // It has ended content, or closed its output and gone on.
    const std::string& complaint = child.Complaint();
    Fail(page_.image.path, what + (complaint.empty() ? "" : ": " + complaint));
  }

  // Behind the last row: whether all that the page holds is on it.
  void EndPage() {
    if (document_->kind == FileKind::Pdf) {
      std::string said;
      Guarded([&] { said = TakeReport(); });
      const PageReport report = ReadPageReport(said);
      if (!report.missing.empty()) {
        Fail(page_.image.path, "has not drawn all of it: " + OneLine(report.missing, kMostSaid));
      }
      Remark(OneLine(report.remarks, kMostSaid));
    }
    if (next_ - 1 + lanes_.size() < rendering_.pages.size()) return;
    AllowTimeOf(static_cast<int>(document_->pages) - page_.number);
    bool ended = false;
    Guarded([&] { ended = Current().input->Peek(1).empty(); });
    if (!ended) Fail(page_.image.path, "sends more than it has announced");
    madeAll_ = next_ == rendering_.pages.size();
  }

  // What the interpreter has said of the page.
  std::string TakeReport() {
    constexpr int kLookMs = 50;
    const auto start = std::chrono::steady_clock::now();
    const std::chrono::duration<double> most(allowedSeconds_);
    for (;;) {
      Current().input->ThrowIfCancelled();
      if (auto report = Current().child->NextPart(kLookMs)) return *std::move(report);
      if (Current().child->IsSilent()) throw Failure(page_.image.path);
      if (std::chrono::steady_clock::now() - start > most) {
        throw InputStream::WaitedTooLong(page_.image.path);
      }
    }
  }

  void Remark(const std::string& what) {
    // What is wrong with the document is so on every page.
    if (what.empty() || remarks_.ends_with(": " + what)) return;
    remarks_ +=
        fmt::format("{}{}: Ghostscript: {}", remarks_.empty() ? "" : "; ", document_->path, what);
  }

  void TakeHeader(const WantedPage& wanted) {
    const ImageInfo& bitmap = Current().bitmaps->Page().image;
    page_.image.width = bitmap.width;
    page_.image.height = bitmap.height;
    page_.image.form = bitmap.form;
    page_.image.horizontalDpi = rendering_.horizontalDpi;
    page_.image.verticalDpi = rendering_.verticalDpi;
    page_.mediaWidthMm = wanted.size.widthPoints / kPointsPerInch * kMillimetresPerInch;
    page_.mediaHeightMm = wanted.size.heightPoints / kPointsPerInch * kMillimetresPerInch;
    rowsRead_ = 0;
    // A point, for what a listing rounds, and what the interpreter rounds.
    const auto fits = [](double pixels, double points, double dpi) {
      return std::abs(pixels - points / kPointsPerInch * dpi) <= dpi / kPointsPerInch + 2;
    };
    if (!bitmap.form.tagged ||
        !fits(bitmap.width, wanted.size.widthPoints, DrawnDpi(rendering_.horizontalDpi)) ||
        !fits(bitmap.height, wanted.size.heightPoints, DrawnDpi(rendering_.verticalDpi))) {
      Fail(page_.image.path,
           fmt::format("made {} x {} pixels of {:.1f} x {:.1f} points at {:.0f} x {:.0f} dpi",
                       bitmap.width, bitmap.height, wanted.size.widthPoints,
                       wanted.size.heightPoints, DrawnDpi(rendering_.horizontalDpi),
                       DrawnDpi(rendering_.verticalDpi)));
    }
  }

  std::shared_ptr<const OpenedDocument> document_;
  Rendering rendering_;
  std::vector<Lane> lanes_;  // one after the other makes a page
  std::size_t next_ = 0;     // of the pages
  std::uint32_t rowsRead_ = 0;
  double allowedSeconds_ = 0;  // of waiting, since they were allowed
  std::string remarks_;        // that were not taken
  bool madeAll_ = false;       // and nobody has asked what was said behind them
};

}  // namespace

Document::Document(const std::string& path, const RendererSettings& settings) {
  const FileKind kind = KindOfFile(path);
  const bool isDrawing = kind == FileKind::Svg;
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) FailOfSystem(path, errno);
  opened_ =
      std::make_shared<OpenedDocument>(OpenedDocument{.path = path,
                                                      .kind = isDrawing ? FileKind::Pdf : kind,
                                                      .isDrawing = isDrawing,
                                                      .status = status,
                                                      .settings = settings});
  if (kind != FileKind::Eps) return;
  const Descriptor file = OpenAgain(*opened_);
  opened_->box = BoxOfEps(file, static_cast<std::uint64_t>(status.st_size));
}

Document::~Document() = default;

void Document::MakeOfDrawing() {
  if (!opened_->isDrawing || opened_->madeOfDrawing.IsOpen()) return;
  Descriptor made = FileFor(*opened_);
  // Where there are many of them they are made again when they are printed.
  rlimit most = {};
  getrlimit(RLIMIT_NOFILE, &most);
  if (static_cast<rlim_t>(made.Number()) < most.rlim_cur / 2)
    opened_->madeOfDrawing = std::move(made);
}

std::vector<DocumentPage> Document::Pages() {
  MakeOfDrawing();
  std::vector<DocumentPage> pages;
  if (!pageLists.Find(*opened_, &pages)) {
    try {
      pages = opened_->kind == FileKind::Pdf ? ListPdf(*opened_) : ListPostScript(*opened_);
    } catch (const InputStream::WaitedTooLong&) {
      Fail(opened_->path, StoodStill(opened_->settings.pageSeconds));
    }
    if (pages.empty()) throw Failure(opened_->path + ": has no pages");
    if (opened_->listedWhole) pageLists.Keep(*opened_, pages);
  }
  opened_->pages = pages.size();
  return pages;
}

bool Document::Sandboxed() const { return opened_->sandboxed; }

void Document::Expect(double horizontalDpi, double verticalDpi) {
  if (opened_->kind != FileKind::Pdf) return;
  MakeOfDrawing();
  // How many pages there are nobody knows; each one's time is limited while it is waited for.
  opened_->expected = {
      horizontalDpi, verticalDpi,
      StartLane(*opened_, horizontalDpi, verticalDpi, kEverySecondPage, limits::kPages)};
}

std::unique_ptr<PageStream> Document::Render(const Rendering& rendering) {
  const auto& pages = rendering.pages;
  // Parts of a document are made by several threads.
  static std::mutex taking;
  std::unique_lock lock(taking);
  auto expected = std::exchange(opened_->expected, {});
  lock.unlock();
  bool asExpected = expected.horizontalDpi == rendering.horizontalDpi * rendering.scale &&
                    expected.verticalDpi == rendering.verticalDpi * rendering.scale &&
                    pages.size() == opened_->pages && (rendering.ahead || pages.size() == 1);
  for (std::size_t i = 0; i < pages.size(); ++i) {
    asExpected = asExpected && pages[i].number == static_cast<int>(i);
  }
  if (!asExpected) expected.lane = {};
  return std::make_unique<RenderedPages>(opened_, rendering, std::move(expected.lane));
}

}  // namespace corvane
