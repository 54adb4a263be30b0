// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <utility>

#include "host/framework.h"

namespace ZCOM {
namespace {

// The stored number's 32 bits, whatever its sign was; false when there is no number.
bool ReadNumber(const PROPERTIES::Value* value, std::uint32_t* bits) {
  if (value == nullptr) return false;
  if (const auto* number = std::get_if<std::int32_t>(value)) {
    *bits = static_cast<std::uint32_t>(*number);
    return true;
  }
  if (const auto* number = std::get_if<std::uint32_t>(value)) {
    *bits = *number;
    return true;
  }
  return false;
}

}  // namespace

const PROPERTIES::Value* PROPERTIES::Find(const char* key, const char* group) const {
  const auto entries = groups_.find(group);
  if (entries == groups_.end()) return nullptr;
  const auto entry = entries->second.find(key);
  return entry == entries->second.end() ? nullptr : &entry->second;
}

void PROPERTIES::Store(const char* key, Value value, const char* group) {
  groups_[group].insert_or_assign(key, std::move(value));
}

unsigned short PROPERTIES::GetProperty(const char* key, int* value, int defaultValue,
                                       const char* group) const {
  std::uint32_t bits;
  const bool found = ReadNumber(Find(key, group), &bits);
  *value = found ? static_cast<std::int32_t>(bits) : defaultValue;
  return found;
}

unsigned short PROPERTIES::GetProperty(const char* key, unsigned short* value,
                                       unsigned short defaultValue, const char* group) const {
  std::uint32_t bits;
  const bool found = ReadNumber(Find(key, group), &bits);
  *value = found ? static_cast<unsigned short>(bits) : defaultValue;
  return found;
}

unsigned short PROPERTIES::GetProperty(const char* key, unsigned long* value,
                                       unsigned long defaultValue, const char* group) const {
  std::uint32_t bits;
  const bool found = ReadNumber(Find(key, group), &bits);
  *value = found ? bits : defaultValue;
  return found;
}

unsigned short PROPERTIES::GetProperty(const char* key, char* buffer, unsigned short size,
                                       const char* defaultValue, const char* group) const {
  const Value* value = Find(key, group);
  const std::string* text = value == nullptr ? nullptr : std::get_if<std::string>(value);
  const char* source = text == nullptr ? defaultValue : text->c_str();
  if (source != nullptr && size > 0) {
    const std::size_t length = std::min<std::size_t>(std::strlen(source), size - 1u);
    std::memcpy(buffer, source, length);
    buffer[length] = 0;
  }
  return text != nullptr;
}

void PROPERTIES::SetProperty(const char* key, const char* value, const char* group) {
  Store(key, std::string(value == nullptr ? "" : value), group);
}

void PROPERTIES::SetProperty(const char* key, int value, const char* group) {
  Store(key, static_cast<std::int32_t>(value), group);
}

void PROPERTIES::SetProperty(const char* key, unsigned long value, const char* group) {
  Store(key, static_cast<std::uint32_t>(value), group);
}

}  // namespace ZCOM
