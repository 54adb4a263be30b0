// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "host/framework.h"

namespace ZCOM {
namespace {

// A new text of `capacity` bytes that begins with `text`; null when memory is short.
char* NewText(const char* text, std::size_t capacity) {
  auto* copy = new (std::nothrow) char[capacity];
  if (copy != nullptr) std::memcpy(copy, text, std::strlen(text) + 1);
  return copy;
}

// Orders entries by group, then by key.
int Compare(const PROPERTIES::Entry& entry, const char* key, const char* group) {
  const int order = std::strcmp(entry.Group(), group);
  return order != 0 ? order : std::strcmp(entry.Key(), key);
}

}  // namespace

PROPERTIES::PROPERTIES(const PROPERTIES& other) { Append(other); }

PROPERTIES& PROPERTIES::operator=(const PROPERTIES& other) {
  if (this == &other) return *this;
  Clear();
  isComplete_ = true;
  Append(other);
  return *this;
}

PROPERTIES::~PROPERTIES() { Clear(); }

void PROPERTIES::Append(const PROPERTIES& other) {
  isComplete_ = other.isComplete_;
  for (const Entry* entry = other.first_; entry != nullptr; entry = entry->next_) {
    if (entry->text_ != nullptr) {
      SetText(entry->key_, entry->text_, entry->textCapacity_, entry->group_);
    } else {
      SetNumber(entry->key_, entry->bits_, entry->isSigned_, entry->group_);
    }
  }
}

void PROPERTIES::Clear() {
  while (first_ != nullptr) {
    Entry* const entry = first_;
    first_ = entry->next_;
    delete[] entry->text_;
    delete[] entry->group_;
    delete entry;
  }
}

const PROPERTIES::Entry* PROPERTIES::Find(const char* key, const char* group) const {
  for (const Entry* entry = first_; entry != nullptr; entry = entry->next_) {
    const int order = Compare(*entry, key, group);
    if (order >= 0) return order == 0 ? entry : nullptr;
  }
  return nullptr;
}

// The entry, made as a number where there is none; null when memory is short.
PROPERTIES::Entry* PROPERTIES::FindOrAdd(const char* key, const char* group) {
  Entry** place = &first_;
  while (*place != nullptr) {
    const int order = Compare(**place, key, group);
    if (order == 0) return *place;
    if (order > 0) break;
    place = &(*place)->next_;
  }
  auto* const entry = new (std::nothrow) Entry;
  const std::size_t groupBytes = std::strlen(group) + 1;
  char* const names = NewText(group, groupBytes + std::strlen(key) + 1);
  if (entry == nullptr || names == nullptr) {
    delete entry;
    delete[] names;
    isComplete_ = false;
    return nullptr;
  }
  std::memcpy(names + groupBytes, key, std::strlen(key) + 1);
  entry->group_ = names;
  entry->key_ = names + groupBytes;
  entry->next_ = std::exchange(*place, entry);
  return entry;
}

unsigned short PROPERTIES::GetProperty(const char* key, int* value, int defaultValue,
                                       const char* group) const {
  const Entry* const entry = Find(key, group);
  const bool found = entry != nullptr && entry->text_ == nullptr;
  *value = found ? static_cast<std::int32_t>(entry->bits_) : defaultValue;
  return found;
}

unsigned short PROPERTIES::GetProperty(const char* key, unsigned short* value,
                                       unsigned short defaultValue, const char* group) const {
  const Entry* const entry = Find(key, group);
  const bool found = entry != nullptr && entry->text_ == nullptr;
  *value = found ? static_cast<unsigned short>(entry->bits_) : defaultValue;
  return found;
}

unsigned short PROPERTIES::GetProperty(const char* key, unsigned long* value,
                                       unsigned long defaultValue, const char* group) const {
  const Entry* const entry = Find(key, group);
  const bool found = entry != nullptr && entry->text_ == nullptr;
  *value = found ? entry->bits_ : defaultValue;
  return found;
}

unsigned short PROPERTIES::GetProperty(const char* key, char* buffer, unsigned short size,
                                       const char* defaultValue, const char* group) const {
  const Entry* const entry = Find(key, group);
  const bool found = entry != nullptr && entry->text_ != nullptr;
  const char* const source = found ? entry->text_ : defaultValue;
  if (source != nullptr && size > 0) {
    const std::size_t length = std::min<std::size_t>(std::strlen(source), size - 1u);
    std::memcpy(buffer, source, length);
    buffer[length] = 0;
  }
  return found;
}

unsigned short PROPERTIES::SetProperty(const char* key, const char* value, const char* group) {
  const char* const text = value == nullptr ? "" : value;
  return SetText(key, text, std::strlen(text) + 1, group);
}

unsigned short PROPERTIES::SetText(const char* key, const char* text, std::size_t capacity,
                                   const char* group) {
  // The text is made first, so that a bag that finds no memory keeps what it had.
  char* fresh = nullptr;
  const Entry* const known = Find(key, group);
  if (known == nullptr || known->text_ == nullptr || known->textCapacity_ < capacity) {
    fresh = NewText(text, capacity);
    if (fresh == nullptr) {
      isComplete_ = false;
      return 0;
    }
  }
  Entry* const entry = FindOrAdd(key, group);
  if (entry == nullptr) {
    delete[] fresh;
    return 0;
  }
  if (fresh != nullptr) {
    delete[] std::exchange(entry->text_, fresh);
    entry->textCapacity_ = capacity;
  } else {
    std::memmove(entry->text_, text, std::strlen(text) + 1);
  }
  entry->bits_ = 0;
  return 1;
}

unsigned short PROPERTIES::SetProperty(const char* key, int value, const char* group) {
  return SetNumber(key, static_cast<std::uint32_t>(value), true, group);
}

unsigned short PROPERTIES::SetProperty(const char* key, unsigned long value, const char* group) {
  return SetNumber(key, static_cast<std::uint32_t>(value), false, group);
}

unsigned short PROPERTIES::SetNumber(const char* key, std::uint32_t bits, bool isSigned,
                                     const char* group) {
  Entry* const entry = FindOrAdd(key, group);
  if (entry == nullptr) return 0;
  delete[] std::exchange(entry->text_, nullptr);
  entry->bits_ = bits;
  entry->isSigned_ = isSigned;
  return 1;
}

}  // namespace ZCOM
