// SPDX-License-Identifier: BSD-3-Clause
//
// The table of interned names. It lives as long as the process: static names of plug-ins may be
// the last to go.
#include "platform/NRiName.h"

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

struct NRiName::Entry {
  explicit Entry(std::string_view from) : text(from) {}
  std::atomic<long> count{1};
  std::string text;
};

namespace {

constexpr std::size_t longestPlainText = 1024;
constexpr std::size_t keptOfLongText = 960;

std::mutex& tableLock() {
  static auto& lock = *new std::mutex;
  return lock;
}

template <class Entry>
std::unordered_map<std::string_view, Entry*>& table() {
  static auto& entries = *new std::unordered_map<std::string_view, Entry*>;
  return entries;
}

// FNV-1a with a seed of its own for each half of the digest.
std::uint64_t digest(std::string_view text, std::uint64_t seed) {
  std::uint64_t hash = 14695981039346656037ULL ^ seed;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
  return hash ^ (hash >> 29);
}

}  // namespace

NRiName::NRiName(std::string_view text) {
  if (text.empty()) return;
  const std::lock_guard guard(tableLock());
  auto& entries = table<Entry>();
  const auto found = entries.find(text);
  if (found != entries.end()) {
    entry_ = found->second;
    entry_->count.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  auto* fresh = new Entry(text);
  entries.emplace(fresh->text, fresh);
  entry_ = fresh;
}

NRiName::NRiName(const NRiName& other) noexcept : entry_(other.entry_) {
  if (entry_) entry_->count.fetch_add(1, std::memory_order_relaxed);
}

NRiName::~NRiName() {
  if (!entry_) return;
  // The last count is given up under the lock only: a lookup on another thread either finds the
  // text alive and counts it, or does not find it.
  long count = entry_->count.load(std::memory_order_relaxed);
  while (count > 1) {
    if (entry_->count.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel)) return;
  }
  const std::lock_guard guard(tableLock());
  if (entry_->count.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  table<Entry>().erase(entry_->text);
  delete entry_;
}

std::string_view NRiName::view() const {
  return entry_ ? std::string_view(entry_->text) : std::string_view("");
}

NRiName NRiName::sprintf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  if (length <= 0) {
    va_end(again);
    return {};
  }
  std::vector<char> text(static_cast<std::size_t>(length) + 1);
  std::vsnprintf(text.data(), text.size(), format, again);
  va_end(again);
  return NRiName(std::string_view(text.data(), static_cast<std::size_t>(length)));
}

NRiName NRiName::upperCase(const NRiName& name) {
  std::string text(name.view());
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return NRiName(std::string_view(text));
}

NRiName NRiName::compress(const NRiName& name) {
  const std::string_view text = name.view();
  if (text.size() <= longestPlainText) return name;
  char tail[40];
  std::snprintf(tail, sizeof tail, "#%016llx%016llx",
                static_cast<unsigned long long>(digest(text, 0)),
                static_cast<unsigned long long>(digest(text, 0x9e3779b97f4a7c15ULL)));
  return NRiName(std::string_view(std::string(text.substr(0, keptOfLongText)) + tail));
}

std::size_t NRiName::interned() {
  const std::lock_guard guard(tableLock());
  return table<Entry>().size();
}
