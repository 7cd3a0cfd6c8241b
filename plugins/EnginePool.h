// SPDX-License-Identifier: BSD-3-Clause
//
// An instance's engines: built for some settings, lent to renders, rebuilt when settings change.
// Knows settings and the flat interface.
//
// Why this is safe: an engine is set and built only while no lease on it is out, and the count of
// leases is read and changed only under the pool's lock. A render reads its leased engine without
// a lock, because nobody else may touch it before the lease ends; ending it takes the lock, which
// orders the render's last read before the next build's first write. Renders that want other
// settings while one runs (a parameter that moves over time) get another engine.
#pragma once

#include <list>
#include <mutex>

#include "base/Depth.h"
#include "engine/orvanite.h"
#include "keyer/Settings.h"

namespace orvanite {

/// What an engine is built for.
struct Recipe {
  Settings settings;
  Depth depth = Depth::bytes;
  Inputs inputs;
  bool operator==(const Recipe&) const = default;
};

class EnginePool {
  struct Entry {
    QMXOrvaniteTable* engine = nullptr;
    Recipe recipe;
    int result = 0;  // of the last build
    int leases = 0;
    bool built = false;
  };

 public:
  /// An engine that stays as it is for as long as this lives.
  class Lease {
   public:
    Lease(Lease&& other) noexcept : pool_(other.pool_), entry_(other.entry_) {
      other.entry_ = nullptr;
    }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;
    Lease& operator=(Lease&&) = delete;
    ~Lease();

    /// Rendering with it is safe on any number of threads.
    QMXOrvaniteTable* engine() const { return entry_->engine; }
    /// What orvanite_makeLuts said: 0 built, else the engine renders nothing.
    int result() const { return entry_->result; }

   private:
    friend class EnginePool;
    Lease(EnginePool& pool, Entry& entry) : pool_(&pool), entry_(&entry) {}
    EnginePool* pool_;
    Entry* entry_;
  };

  EnginePool() = default;
  EnginePool(const EnginePool&) = delete;
  EnginePool& operator=(const EnginePool&) = delete;
  ~EnginePool();

  /// An engine built for `recipe`: one that is, or an idle one rebuilt (only what changed), or a
  /// new one. Any thread. Throws Error (failure) when memory runs out.
  Lease lease(const Recipe& recipe);

  /// Deletes the engines that no lease holds. Any thread.
  void purge();

  /// How many engines there are, and how many builds there have been. For tests.
  int engines() const;
  int builds() const;

 private:
  Entry& entryFor(const Recipe& recipe);
  void giveBack(Entry& entry) noexcept;

  mutable std::mutex lock_;
  std::list<Entry> entries_;  // most recently used first
  int builds_ = 0;
};

}  // namespace orvanite
