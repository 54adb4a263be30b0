// SPDX-License-Identifier: MIT
//
// The driver that the printer framework calls: what the printer says that it can, and its jobs.
#pragma once

#include <pappl/pappl.h>

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app/printer/devices.h"
#include "app/printer/ink_account.h"

namespace corvane {

// What all printers of a server share. Set up before it runs.
class PrinterService {
 public:
  DeviceRights rights;
  std::filesystem::path stateFolder;
  std::string colorTable;  // empty: the one that comes with the program
  double cartridgeMillilitres = 10;

  // The account of a printer, by its number. Throws Failure.
  InkAccount& AccountOf(int printer);

 private:
  std::mutex mutex_;
  std::map<int, std::unique_ptr<InkAccount>> accounts_;
};

// The framework's name of a driver for each print head.
std::vector<pappl_pr_driver_t> PrinterDrivers();

// Fills what the framework asks of a driver; `data` is the service.
bool DescribeDriver(pappl_system_t* system, const char* driverName, const char* deviceUri,
                    const char* deviceId, pappl_pr_driver_data_t* driver, ipp_t** attributes,
                    void* data);

// Has the service's printers take images and documents, besides raster.
void AddDocumentFilters(pappl_system_t* system, PrinterService& service);

}  // namespace corvane
