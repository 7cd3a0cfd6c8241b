// SPDX-License-Identifier: BSD-3-Clause
//
// Leasing, rebuilding and dropping engines; see EnginePool.h for what makes it safe.
#include "plugins/EnginePool.h"

#include <algorithm>

#include "base/Error.h"

namespace orvanite {

namespace {
// Idle engines kept: the one in use and one for a host that renders two frames of a moving
// parameter in turn. A 16-bit engine with its tables is about 2 MiB.
constexpr int idleKept = 2;
}  // namespace

EnginePool::Lease::~Lease() {
  if (entry_) pool_->giveBack(*entry_);
}

EnginePool::~EnginePool() {
  for (Entry& entry : entries_) orvanite_delete(entry.engine);
}

EnginePool::Lease EnginePool::lease(const Recipe& recipe) {
  const std::lock_guard guard(lock_);
  Entry& entry = entryFor(recipe);
  ++entry.leases;
  return Lease(*this, entry);
}

EnginePool::Entry& EnginePool::entryFor(const Recipe& recipe) {
  auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.built && entry.recipe == recipe;
  });
  if (found == entries_.end()) {
    // The most recent idle engine of the same depth has most tables in common with what is asked.
    const auto idle = [](const Entry& entry) { return entry.leases == 0; };
    found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
      return idle(entry) && entry.recipe.depth == recipe.depth;
    });
    if (found == entries_.end()) found = std::find_if(entries_.begin(), entries_.end(), idle);
    if (found == entries_.end()) {
      entries_.emplace_front();
      found = entries_.begin();
      found->engine = orvanite_new();
      if (!found->engine) {
        entries_.pop_front();
        throw Error(Fault::failure, "keyer", "out of memory");
      }
    }
    found->built = false;  // until the copy and the build below are through
    found->recipe = recipe;
    recipe.settings.applyTo(found->engine, recipe.depth, recipe.inputs);
    found->result = orvanite_makeLuts(found->engine);
    found->built = found->result != 3;  // memory may be there the next time
    ++builds_;
  }
  entries_.splice(entries_.begin(), entries_, found);
  return *found;
}

void EnginePool::giveBack(Entry& entry) noexcept {
  const std::lock_guard guard(lock_);
  --entry.leases;
  int idle = 0;
  for (auto at = entries_.begin(); at != entries_.end();) {
    if (at->leases == 0 && ++idle > idleKept) {
      orvanite_delete(at->engine);
      at = entries_.erase(at);
    } else {
      ++at;
    }
  }
}

void EnginePool::purge() {
  const std::lock_guard guard(lock_);
  for (auto at = entries_.begin(); at != entries_.end();) {
    if (at->leases == 0) {
      orvanite_delete(at->engine);
      at = entries_.erase(at);
    } else {
      ++at;
    }
  }
}

int EnginePool::engines() const {
  const std::lock_guard guard(lock_);
  return static_cast<int>(entries_.size());
}

int EnginePool::builds() const {
  const std::lock_guard guard(lock_);
  return builds_;
}

}  // namespace orvanite
