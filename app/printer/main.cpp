// SPDX-License-Identifier: MIT
//
// corvane-printer: the printer application. Its commands are those of the printer framework; what
// is said here is how a server is set up.
#include <fmt/format.h>
#include <pappl/pappl.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/printer/devices.h"
#include "app/printer/driver.h"
#include "app/printer/printed_jobs.h"
#include "app/printer/queue_state.h"
#include "app/printer/web_page.h"
#include "app/support/failure.h"
#include "app/support/message.h"
#include "app/support/platform.h"
#include "app/tables/page_tables.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr char kServerName[] = "Corvane printer application";
constexpr char kPrinterName[] = "Corvane";
constexpr char kFooter[] = "Corvane " CORVANE_VERSION;
constexpr int kPort = 8631;

constexpr const char* kOptionNames[] = {
    "cartridge-ml",   "color-table",    "folder", "head",        "listen-hostname", "log-file",
    "log-level",      "new-cartridges", "pipes",  "server-name", "server-port",     "state",
    "private-server",  // of the framework, for a server that a command starts
};

// The options of `corvane-printer server`, -o NAME=VALUE.
class ServerOptions {
 public:
  ServerOptions(int count, cups_option_t* options) : count_(count), options_(options) {
    for (int i = 0; i < count; ++i) {
      const std::string_view name = options[i].name;
      if (std::ranges::find(kOptionNames, name) != std::end(kOptionNames)) continue;
      throw UsageFailure(fmt::format(
          "-o {}: is no option of the server (a value with blanks is put into \"...\")", name));
    }
  }

  std::string Text(const char* name, const std::string& otherwise = {}) const {
    const char* text = cupsGetOption(name, count_, options_);
    return text != nullptr ? text : otherwise;
  }

  double Number(const char* name, double otherwise, double least, double most) const {
    const std::string text = Text(name);
    if (text.empty()) return otherwise;
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() ||
        !(number >= least && number <= most)) {  // and no "nan"
      throw UsageFailure(fmt::format("-o {}={}: takes {} to {}", name, text, least, most));
    }
    return number;
  }

 private:
  int count_;
  cups_option_t* options_;
};

fs::path StateFolder(const ServerOptions& options) {
  const std::string given = options.Text("state");
  if (!given.empty()) return fs::absolute(given);
  const char* state = std::getenv("XDG_STATE_HOME");
  const char* home = std::getenv("HOME");
  if (state != nullptr && *state != '\0') return fs::path(state) / "corvane-printer";
  if (home != nullptr && *home != '\0') return fs::path(home) / ".local/state/corvane-printer";
  throw UsageFailure("HOME is not set: -o state=FOLDER says where the server keeps its state");
}

pappl_loglevel_t LogLevel(const std::string& word) {
  constexpr const char* kWords[] = {"debug", "info", "warn", "error", "fatal"};
  for (int i = 0; i < 5; ++i) {
    if (word == kWords[i]) return static_cast<pappl_loglevel_t>(PAPPL_LOGLEVEL_DEBUG + i);
  }
  throw UsageFailure(word + ": log-level is debug, info, warn, error or fatal");
}

void RefillCartridges(const std::string& inks, PrinterService& service, int printer) {
  std::string_view left = inks;
  while (!left.empty()) {
    const std::string_view name = left.substr(0, left.find(','));
    left.remove_prefix(std::min(left.size(), name.size() + 1));
    const std::optional<Ink> ink = FindInk(name);
    if (!ink) throw UsageFailure(std::string(name) + ": is not an ink");
    service.AccountOf(printer).Refill(*ink);
  }
  if (!inks.empty()) service.AccountOf(printer).Save();
}

// The printer of the server's folder.
void SetUpPrinter(pappl_system_t* system, const ServerOptions& options, const std::string& uri) {
  const std::string head = options.Text("head"),
                    resource = std::string("/ipp/print/") + kPrinterName;
  pappl_printer_t* printer = papplSystemFindPrinter(system, resource.c_str(), 0, nullptr);
  if (printer != nullptr) {
    const std::string has = papplPrinterGetDriverName(printer);
    if (head.empty() || head == has) return;
    throw Failure(fmt::format("head={}: the printer {} has {}; delete it to make it anew", head,
                              kPrinterName, has));
  }
  const char* const made = head.empty() ? "corvane-7" : head.c_str();
  // The default one may have been another one, that is gone.
  const bool isDefault = papplSystemFindPrinter(system, "/ipp/print", 0, nullptr) == nullptr;
  printer = papplPrinterCreate(system, 0, kPrinterName, made, nullptr, uri.c_str());
  if (printer == nullptr)
    throw Failure(fmt::format("{}: no printer with this head can be made", made));
  if (isDefault) papplSystemSetDefaultPrinterID(system, papplPrinterGetID(printer));
}

// Jobs that were being printed when the server ended, and are not printed again.
void EndJobsOf(pappl_printer_t* printer, void* data) {
  const auto& service = *static_cast<const PrinterService*>(data);
  const std::string uri = papplPrinterGetDeviceURI(printer);
  if (!IsFolderDevice(uri)) return;
  try {
    EndInterruptedJobs(
        FolderOfDevice(uri, service.rights), papplPrinterGetName(printer), [&](int job) {
          pappl_job_t* const waiting = papplPrinterFindJob(printer, job);
          return waiting != nullptr && papplJobGetState(waiting) < IPP_JSTATE_STOPPED;
        });
  } catch (const Failure& failure) {
    Complain(failure.what());
  }
}

pappl_system_t* MakeSystem(const ServerOptions& options, PrinterService& service) {
  service.stateFolder = StateFolder(options);
  fs::create_directories(service.stateFolder / "spool");
  const std::string folder = options.Text("folder");
  if (!folder.empty()) {
    fs::create_directories(folder);
    service.rights.folder = fs::canonical(folder);
  }
  const std::string pipes = options.Text("pipes");
  if (!pipes.empty()) service.rights.commands = ReadPipeCommands(pipes);
  service.colorTable = FindColorTable(options.Text("color-table"));
  service.cartridgeMillilitres = options.Number("cartridge-ml", 10, 0.1, 100'000);
  const auto port = static_cast<int>(options.Number("server-port", kPort, 1, 65535));
  // Away from this machine only who asks for it is heard.
  const std::string listen = options.Text("listen-hostname", "localhost");
  const std::string log = options.Text("log-file", (service.stateFolder / "log").string());

  pappl_system_t* system = papplSystemCreate(
      PAPPL_SOPTIONS_MULTI_QUEUE | PAPPL_SOPTIONS_WEB_INTERFACE | PAPPL_SOPTIONS_NO_TLS,
      options.Text("server-name", kServerName).c_str(), port, "_print,_universal",
      (service.stateFolder / "spool").c_str(), log.c_str(),
      LogLevel(options.Text("log-level", "info")), nullptr, false);
  if (system == nullptr) throw Failure("the server cannot be set up");
  if (!papplSystemAddListeners(system, listen.c_str())) {
    throw Failure(fmt::format("{}: port {} cannot be listened at", listen, port));
  }
  papplSystemSetHostName(system, listen.c_str());
  // Without one the framework looks up a null text for each of its pages, and falls.
  papplSystemSetFooterHTML(system, kFooter);
  static std::vector<pappl_pr_driver_t> drivers = PrinterDrivers();
  papplSystemSetPrinterDrivers(system, static_cast<int>(drivers.size()), drivers.data(), nullptr,
                               &AddPrintedPage, &DescribeDriver, &service);
  AddDocumentFilters(system, service);
  const QueueFiles queue = {service.stateFolder / "state", service.stateFolder / "spool"};
  ReviveJobs(queue, [&](const std::string& name, const std::string& uri) {
    // The printer that was set up for the server's folder goes with it.
    const bool own = name == kPrinterName && IsFolderDevice(uri) && !folder.empty();
    std::string device = own ? DeviceOfFolder(service.rights.folder) : uri;
    CheckDevice(device, service.rights);
    return device;
  });
  if (!papplSystemLoadState(system, queue.state.c_str()) && fs::exists(queue.state)) {
    throw Failure(queue.state.string() + ": cannot be read");
  }
  if (!folder.empty()) SetUpPrinter(system, options, DeviceOfFolder(service.rights.folder));
  papplSystemIteratePrinters(system, &EndJobsOf, &service);
  RefillCartridges(options.Text("new-cartridges"), service, papplSystemGetDefaultPrinterID(system));
  KeepQueue(system, queue);
  ResumePrinters(system);
  return system;
}

// The framework's callback.
pappl_system_t* SystemFor(int count, cups_option_t* options, void* data) {
  try {
    return MakeSystem(ServerOptions(count, options), *static_cast<PrinterService*>(data));
  } catch (const std::exception& failure) {
    Complain(failure.what());
    return nullptr;
  }
}

// What the framework's commands print. It does not look whether that arrives.
bool StandardOutputArrived() {
  const bool lost = std::ferror(stdout) != 0;
  if (std::fflush(stdout) == 0 && !lost) return true;
  Complain(lost ? "standard output: cannot write"
                : fmt::format("standard output: cannot write: {}", std::strerror(errno)));
  return false;
}

}  // namespace
}  // namespace corvane

int main(int argc, char** argv) {
  corvane::KeepMemoryTogether();
  static corvane::PrinterService service;
  // A device or a client that goes away is an error where it is written to.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  corvane::AddDeviceSchemes(service.rights);
  std::vector<pappl_pr_driver_t> drivers = corvane::PrinterDrivers();
  const int status = papplMainloop(
      argc, argv, CORVANE_VERSION, nullptr, static_cast<int>(drivers.size()), drivers.data(),
      nullptr, &corvane::DescribeDriver, nullptr, nullptr, &corvane::SystemFor, nullptr, &service);
  return corvane::StandardOutputArrived() ? status : 1;
}
