// SPDX-License-Identifier: MIT
#include "app/printer/web_page.h"

#include <cups/http.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "app/printer/devices.h"
#include "app/printer/driver.h"
#include "app/printer/printed_jobs.h"
#include "app/support/message.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kJobsShown = 20;
constexpr int kRefreshSeconds = 5;  // while something is being printed
constexpr char kPage[] = "printed", kPicture[] = "printed/preview.png";
constexpr std::string_view kJobQuery = "job=";

std::string PathOf(pappl_printer_t* printer, const char* page) {
  std::array<char, 1024> path = {};
  papplPrinterGetPath(printer, page, path.data(), path.size());
  return path.data();
}

fs::path FolderOf(pappl_printer_t* printer) {
  pappl_pr_driver_data_t driver;
  papplPrinterGetDriverData(printer, &driver);
  return FolderOfDevice(papplPrinterGetDeviceURI(printer),
                        static_cast<PrinterService*>(driver.extension)->rights);
}

bool Refuse(pappl_client_t* client, http_status_t status) {
  return papplClientRespond(client, status, nullptr, nullptr, 0, 0);
}

// What a page throws is logged, since nothing may be thrown through the framework.
template <typename Page>
bool Answered(pappl_client_t* client, const Page& page) {
  try {
    return page();
  } catch (const std::exception& failure) {
    papplLogClient(client, PAPPL_LOGLEVEL_ERROR, "%s", Printable(failure.what()).c_str());
    return Refuse(client, HTTP_STATUS_SERVER_ERROR);
  }
}

bool ShowJobs(pappl_client_t* client, void* data) {
  auto* printer = static_cast<pappl_printer_t*>(data);
  return Answered(client, [&] {
    const std::vector<PrintedJob> jobs =
        LastJobs(FolderOf(printer), papplPrinterGetName(printer), kJobsShown);
    const std::string html =
        JobsAsHtml(jobs, PathOf(printer, kPicture) + "?" + std::string(kJobQuery));
    const bool printing = papplPrinterGetState(printer) == IPP_PSTATE_PROCESSING;
    papplClientHTMLPrinterHeader(client, printer, "Printed", printing ? kRefreshSeconds : 0,
                                 nullptr, nullptr);
    papplClientHTMLPuts(client, html.c_str());
    papplClientHTMLPrinterFooter(client);
    return true;
  });
}

// The picture of the job whose folder the address names.
bool SendPicture(pappl_client_t* client, void* data) {
  auto* printer = static_cast<pappl_printer_t*>(data);
  return Answered(client, [&] {
    const char* query = papplClientGetOptions(client);
    const std::string_view asked = query != nullptr ? query : "";
    const std::string_view job = asked.substr(std::min(asked.size(), kJobQuery.size()));
    if (!asked.starts_with(kJobQuery) || !IsJobFolder(job)) {
      return Refuse(client, HTTP_STATUS_NOT_FOUND);
    }
    std::ifstream file(FolderOf(printer) / job / kThumbnailFile, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    if (bytes.empty()) return Refuse(client, HTTP_STATUS_NOT_FOUND);
    if (!papplClientRespond(client, HTTP_STATUS_OK, nullptr, "image/png", 0, bytes.size())) {
      return false;
    }
    httpWrite2(papplClientGetHTTP(client), bytes.data(), bytes.size());
    httpFlushWrite(papplClientGetHTTP(client));
    return true;
  });
}

}  // namespace

void AddPrintedPage(pappl_printer_t* printer, void*) {
  if (!IsFolderDevice(papplPrinterGetDeviceURI(printer))) return;
  pappl_system_t* system = papplPrinterGetSystem(printer);
  const std::string page = PathOf(printer, kPage);
  papplSystemAddResourceCallback(system, page.c_str(), "text/html", &ShowJobs, printer);
  papplSystemAddResourceCallback(system, PathOf(printer, kPicture).c_str(), "image/png",
                                 &SendPicture, printer);
  papplPrinterAddLink(printer, "Printed", page.c_str(),
                      PAPPL_LOPTIONS_NAVIGATION | PAPPL_LOPTIONS_STATUS);
}

}  // namespace corvane
