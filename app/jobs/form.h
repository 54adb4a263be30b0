// SPDX-License-Identifier: MIT
//
// Pages that are alike in parts: a form with a changed block. A page is worked on in bands of rows.
// Where a band of an earlier page began in the same state of the chain, with the same rows, what
// came of it is taken over, and the state behind it too. States are compared byte for byte, rows by
// their UMAC-128 (RFC 4418) under a key that is drawn for the run: rows that differ have the same
// hash with a probability below 2^-100, whatever they hold. So a page takes over what it shares
// with a form above the first change, and again below it from where the state is the same.
#pragma once

#include <nettle/umac.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app/chain/chain.h"
#include "app/page/page_sink.h"

namespace corvane {

using RowsHash = std::array<std::uint8_t, UMAC128_DIGEST_SIZE>;
using RowsHashKey = std::array<std::uint8_t, UMAC_KEY_SIZE>;

// A page as it was printed.
struct PrintedForm {
  std::string key;              // of what all rows depend on
  std::vector<RowsHash> bands;  // of the input rows of each band
  // Before each band, and behind the last; null where it was not looked at.
  std::vector<std::shared_ptr<const ChainState>> states;
  std::vector<std::shared_ptr<const KeptRows>> sinkRows;  // of each sink
};

// The forms of a run. Several threads may use it.
class FormStore {
 public:
  // Holds as many as take `bytes` of memory.
  explicit FormStore(std::size_t bytes);

  const RowsHashKey& HashKey() const { return hashKey_; }

  // Those with the key, the one that was used last first.
  std::vector<std::shared_ptr<const PrintedForm>> Find(const std::string& key);
  // One that is too large by itself is not kept.
  void Add(std::shared_ptr<const PrintedForm> form);

 private:
  struct Entry {
    std::shared_ptr<const PrintedForm> form;
    std::size_t bytes = 0;
  };

  std::size_t room_;
  RowsHashKey hashKey_;
  std::mutex mutex_;
  std::vector<Entry> entries_;  // the one that was used last first
  std::size_t bytes_ = 0;       // of all
};

// Follows one page through the forms that it may be like.
class FormMatcher {
 public:
  FormMatcher(FormStore& store, std::string key);

  // The state of the chain before the first band.
  void Start(ChainState state);
  // The next band: the form that has come from the same state through the same rows, or null. Then
  // the rows have to be computed, and `Computed` is to be called. It asks for the state behind
  // them, which is not free: of a page that is like a form ever more seldom, the longer none comes
  // to it.
  const PrintedForm* Next(const std::uint8_t* rows, std::size_t bytes);
  void Computed(const std::function<ChainState()>& state);

  // Behind a band that a form has come through.
  const ChainState& State() const { return *page_->states.back(); }

  // After the last band: keeps the page as a form if it is like none. `sinkRows` are
  // those of its sinks.
  void Finish(std::vector<std::shared_ptr<const KeptRows>> sinkRows);

 private:
  RowsHash HashOf(const std::uint8_t* rows, std::size_t bytes);
  // Whether what was taken over so far is more than white margins, so that the page will be no form
  // of its own.
  bool SharesMuch() const;
  // Whether a form has come to the same state.
  bool AddState(ChainState state, std::size_t band);

  FormStore& store_;
  umac128_ctx hash_;
  std::vector<std::shared_ptr<const PrintedForm>> forms_;
  std::shared_ptr<PrintedForm> page_;
  std::size_t reused_ = 0;    // bands
  std::size_t nextLook_ = 0;  // at a state, behind so many bands
  std::size_t pause_ = 1;     // to the look after that, bands
};

}  // namespace corvane
