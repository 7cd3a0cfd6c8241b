// SPDX-License-Identifier: BSD-3-Clause
//
// Room that renders hand to one another: fresh memory costs more than what is done in it.
#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "base/Mutex.h"

namespace orvanite {

/// Rooms that nobody is in. Any thread.
template <class Room>
class Pool {
 public:
  /// One of them, as it was left, or a new one. Returns to the pool with what holds it; the pool
  /// must outlive it.
  auto take() {
    std::unique_ptr<Room> room;
    {
      const std::lock_guard lock(mutex_);
      if (!idle_.empty()) {
        room = std::move(idle_.back());
        idle_.pop_back();
      }
    }
    if (!room) room = std::make_unique<Room>();
    return std::unique_ptr<Room, Return>(room.release(), Return{this});
  }

 private:
  struct Return {
    Pool* pool;
    void operator()(Room* room) const {
      std::unique_ptr<Room> own(room);
      const std::lock_guard lock(pool->mutex_);
      pool->idle_.push_back(std::move(own));
    }
  };

  Mutex mutex_;
  std::vector<std::unique_ptr<Room>> idle_;
};

}  // namespace orvanite
