// SPDX-License-Identifier: MIT
#include "app/jobs/form.h"

#include <algorithm>
#include <random>
#include <set>
#include <utility>

namespace corvane {
namespace {

bool IsSame(const std::shared_ptr<const ChainState>& a,
            const std::shared_ptr<const ChainState>& b) {
  return a != nullptr && b != nullptr && (a == b || *a == *b);
}

// States that are one in memory count once.
std::size_t BytesOf(const PrintedForm& form) {
  std::size_t bytes = 0;
  std::set<const ChainState*> states;
  for (const auto& state : form.states) {
    if (state && states.insert(state.get()).second) bytes += state->size();
  }
  for (const auto& rows : form.sinkRows) bytes += rows->Bytes();
  return bytes;
}

}  // namespace

FormStore::FormStore(std::size_t bytes) : room_(bytes) {
  std::random_device random;
  for (std::uint8_t& byte : hashKey_) byte = static_cast<std::uint8_t>(random());
}

std::vector<std::shared_ptr<const PrintedForm>> FormStore::Find(const std::string& key) {
  const std::lock_guard lock(mutex_);
  const auto others = std::stable_partition(
      entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.form->key == key; });
  std::vector<std::shared_ptr<const PrintedForm>> found;
  for (auto entry = entries_.begin(); entry != others; ++entry) found.push_back(entry->form);
  return found;
}

void FormStore::Add(std::shared_ptr<const PrintedForm> form) {
  const std::size_t bytes = BytesOf(*form);
  if (bytes > room_) return;
  const std::lock_guard lock(mutex_);
  entries_.insert(entries_.begin(), {std::move(form), bytes});
  bytes_ += bytes;
  while (bytes_ > room_) {
    bytes_ -= entries_.back().bytes;
    entries_.pop_back();
  }
}

FormMatcher::FormMatcher(FormStore& store, std::string key)
    : store_(store), forms_(store.Find(key)), page_(std::make_shared<PrintedForm>()) {
  page_->key = std::move(key);
  umac128_set_key(&hash_, store.HashKey().data());
}

// The same nonce every time: the hashes are compared, and nobody gets to see them.
RowsHash FormMatcher::HashOf(const std::uint8_t* rows, std::size_t bytes) {
  constexpr std::uint8_t kNonce[UMAC128_DIGEST_SIZE] = {};
  umac128_set_nonce(&hash_, sizeof kNonce, kNonce);
  umac128_update(&hash_, bytes, rows);
  RowsHash hash;
  umac128_digest(&hash_, hash.size(), hash.data());
  return hash;
}

void FormMatcher::Start(ChainState state) { AddState(std::move(state), 0); }

const PrintedForm* FormMatcher::Next(const std::uint8_t* rows, std::size_t bytes) {
  const std::size_t band = page_->bands.size();
  page_->bands.push_back(HashOf(rows, bytes));
  for (const auto& form : forms_) {
    if (form->bands[band] != page_->bands[band]) continue;
    if (!IsSame(form->states[band], page_->states[band]) || !form->states[band + 1]) continue;
    page_->states.push_back(form->states[band + 1]);
    ++reused_;
    nextLook_ = 0;
    pause_ = 1;
    return form.get();
  }
  return nullptr;
}

void FormMatcher::Computed(const std::function<ChainState()>& state) {
  const std::size_t band = page_->bands.size();
  if (band < nextLook_) {
    page_->states.push_back(nullptr);
  } else if (!AddState(state(), band) && SharesMuch()) {
    nextLook_ = band + pause_;
    pause_ *= 2;
  }
}

// Equal states lie in memory once: those of a white stretch, and those behind a change.
bool FormMatcher::AddState(ChainState state, std::size_t band) {
  auto added = std::make_shared<const ChainState>(std::move(state));
  if (!page_->states.empty() && IsSame(page_->states.back(), added)) added = page_->states.back();
  bool found = false;
  for (const auto& form : forms_) {
    if (!IsSame(form->states[band], added)) continue;
    added = form->states[band];
    found = true;
  }
  page_->states.push_back(std::move(added));
  return found;
}

bool FormMatcher::SharesMuch() const {
  constexpr std::size_t kShare = 8;
  return kShare * reused_ > page_->bands.size();
}

void FormMatcher::Finish(std::vector<std::shared_ptr<const KeptRows>> sinkRows) {
  if (SharesMuch()) return;
  page_->sinkRows = std::move(sinkRows);
  store_.Add(std::move(page_));
}

}  // namespace corvane
