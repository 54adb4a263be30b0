// SPDX-License-Identifier: MIT
#include "app/output/raw.h"

#include <nlohmann/json.hpp>
#include <string>

#include "app/support/json.h"

namespace corvane {
namespace {

constexpr std::size_t kHeldBytes = std::size_t{1} << 20;

std::string Sidecar(const PageShape& page, const std::string& rows) {
  using Json = nlohmann::ordered_json;
  Json planes = Json::array();
  for (const PlaneShape& plane : page.planes) {
    planes.push_back({{"name", plane.name},
                      {"ink", kInkNames[static_cast<int>(plane.ink)]},
                      {"bit", plane.bit},
                      {"offset", plane.offset},
                      {"bytes", plane.bytes},
                      {"width", plane.width},
                      {"horizontalDpi", plane.horizontalDpi}});
  }
  const Json sidecar = {{"data", rows},
                        {"document", page.title},
                        {"mode", static_cast<int>(page.mode->descriptor)},
                        {"modeName", page.mode->name},
                        {"useAlternateModes", page.alternateMode},
                        {"layoutCode", page.layoutCode},
                        {"bitsPerPixel", page.bitsPerPixel},
                        {"rows", page.rows},
                        {"rowBytes", page.rowBytes},
                        {"verticalDpi", page.verticalDpi},
                        {"planes", planes}};
  return JsonText(sidecar) + '\n';
}

}  // namespace

void RawSink::StartPage(const PageShape& page) { page_ = page; }

void RawSink::WriteRow(const std::uint8_t* row) {
  if (sidecar_ == nullptr) {
    file_.Append(row, page_.rowBytes);
    return;
  }
  held_.insert(held_.end(), row, row + page_.rowBytes);
  if (held_.size() < kHeldBytes) return;
  file_.Append(held_.data(), held_.size());
  held_.clear();
}

void RawSink::EndPage() {
  file_.Append(held_.data(), held_.size());
  held_.clear();
  file_.Finish();
  if (sidecar_ == nullptr) return;
  sidecar_->Append(Sidecar(page_, file_.Path().filename().string()));
  sidecar_->Finish();
}

}  // namespace corvane
