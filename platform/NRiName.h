// SPDX-License-Identifier: BSD-3-Clause
//
// Names: interned texts. Two names are equal when they are the same object, so comparing costs one
// pointer. Texts are counted and leave the table with their last name; any thread may copy, make
// and drop names.
#pragma once

#include <functional>
#include <string_view>
#include <utility>

#include "platform/NRiExport.h"

/// An interned text: equal texts are one entry, so comparing is comparing pointers. Safe from any
/// thread.
class NRI_API NRiName {
 public:
  NRiName() noexcept = default;  // the empty name
  /// The name of a text; null is the empty name.
  explicit NRiName(const char* text) : NRiName(std::string_view(text ? text : "")) {}
  /// The name of a text.
  explicit NRiName(std::string_view text);
  /// Another handle to the same entry.
  NRiName(const NRiName& other) noexcept;
  /// Takes the entry over.
  NRiName(NRiName&& other) noexcept : entry_(std::exchange(other.entry_, nullptr)) {}
  /// Lets the old entry go.
  NRiName& operator=(NRiName other) noexcept {
    std::swap(entry_, other.entry_);
    return *this;
  }
  ~NRiName();

  /// The name of a text.
  static NRiName getString(const char* text) { return NRiName(text); }
  /// The name of a formatted text, as printf formats it.
  static NRiName sprintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
  /// The name with its ASCII letters in upper case.
  static NRiName upperCase(const NRiName& name);
  /// The name itself up to 1024 characters; a longer one becomes its first 960 and a digest of
  /// the whole, so that nested identities stay bounded and still differ.
  static NRiName compress(const NRiName& name);

  /// The text, closed by a null; never null itself.
  const char* getString() const { return view().data(); }
  /// The text.
  std::string_view view() const;
  /// Whether it is the empty name.
  bool empty() const { return entry_ == nullptr; }

  /// Whether the texts are equal.
  friend bool operator==(const NRiName& a, const NRiName& b) { return a.entry_ == b.entry_; }
  /// An order for containers; not alphabetical.
  const void* identity() const { return entry_; }

  /// How many texts are interned now.
  static std::size_t interned();

 private:
  struct Entry;
  Entry* entry_ = nullptr;
};

/// For unordered containers.
struct NRiNameHash {
  /// For unordered containers.
  std::size_t operator()(const NRiName& name) const {
    return std::hash<const void*>()(name.identity());
  }
};
