// SPDX-License-Identifier: MIT
//
// What the printers' web pages show besides what the framework gives them.
#pragma once

#include <pappl/pappl.h>

namespace corvane {

// Adds to a printer that prints into a folder a page of its last jobs with pictures of their first
// sheets. `service` is the PrinterService. For the framework to call with each printer that it
// makes.
void AddPrintedPage(pappl_printer_t* printer, void* service);

}  // namespace corvane
