// SPDX-License-Identifier: MIT
//
// What the built plug-in shows to the outside.
#include <gtest/gtest.h>

#if defined(__linux__)

#include <cstdio>
#include <regex>
#include <string>
#include <vector>

namespace {

std::vector<std::string> LinesOf(const std::string& command) {
  std::vector<std::string> lines;
  std::FILE* pipe = popen(command.c_str(), "r");
  char line[4096];
  while (std::fgets(line, sizeof line, pipe) != nullptr) lines.emplace_back(line);
  EXPECT_EQ(pclose(pipe), 0) << command;
  return lines;
}

TEST(PluginFile, ExportsGetFactoryAndItsNamedClassesAlone) {
  const std::regex allowed(
      "(GetFactory|(vtable for |typeinfo for |typeinfo name for )?"
      "(FACTORY::\\w+|EColorInline|EHalftoneModule|ECorvaneDotManagement|Movement|CorvaneMovement|"
      "RasterFilter\\w+)(::.*)?)\\s*");
  int plainExports = 0;
  for (const std::string& line : LinesOf("nm -DC --defined-only " CORVANE_PLUGIN_FILE)) {
    const std::string symbol = line.substr(line.find(' ') + 3);
    EXPECT_TRUE(std::regex_match(symbol, allowed)) << symbol;
    plainExports += symbol == "GetFactory\n";
  }
  EXPECT_EQ(plainExports, 1);
}

TEST(PluginFile, NeedsTheHostLayerAndTheStandardLibraryAlone) {
  const std::regex needed("\\(NEEDED\\).*\\[(.*)\\]");
  const std::regex allowed(
      "libcorvane_host\\.so|lib(stdc\\+\\+|gcc_s|m|c|asan|ubsan)\\.so\\.\\d+|ld-.*");
  int libraries = 0;
  for (const std::string& line : LinesOf("readelf -d " CORVANE_PLUGIN_FILE)) {
    std::smatch match;
    if (!std::regex_search(line, match, needed)) continue;
    EXPECT_TRUE(std::regex_match(match[1].str(), allowed)) << match[1];
    ++libraries;
  }
  EXPECT_GT(libraries, 0);
}

}  // namespace

#endif
