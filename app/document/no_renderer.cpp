// SPDX-License-Identifier: MIT
//
// For systems on which no interpreter can be kept apart from the user's own files.
#include "app/document/renderer.h"
#include "app/support/failure.h"

namespace corvane {

struct OpenedDocument {};

Document::Document(const std::string& path, const RendererSettings&) {
  throw Failure(path + ": documents and drawings are not printed on this system; pictures are");
}

Document::~Document() = default;

std::vector<DocumentPage> Document::Pages() { return {}; }

bool Document::Sandboxed() const { return false; }

void Document::Expect(double, double) {}

std::unique_ptr<PageStream> Document::Render(const Rendering&) { return nullptr; }

}  // namespace corvane
