// SPDX-License-Identifier: BSD-3-Clause
//
// The arena holds the number of threads down, also inside a larger pipeline.
#include "keyer/Threads.h"

#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

namespace orvanite {

namespace {

// Bands of rows on whatever threads are there.
void shareRows(int height, int least, const std::function<void(int, int)>& work) {
  tbb::parallel_for(
      tbb::blocked_range<int>(0, std::max(0, height), static_cast<std::size_t>(least)),
      [&](const tbb::blocked_range<int>& rows) { work(rows.begin(), rows.end() - rows.begin()); });
}

// So many threads, which stay together from one loop to the next.
struct Crew {
  explicit Crew(int threads) : arena(threads) {
    // More threads than processors are granted only when asked for.
    if (threads > tbb::info::default_concurrency()) {
      more.emplace(tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(threads));
    }
  }

  std::optional<tbb::global_control> more;
  tbb::task_arena arena;
};

}  // namespace

RowLoop rowsOn(int threads) {
  if (threads == 1) {
    return [](int height, int, const auto& work) { work(0, height); };
  }
  if (threads <= 0) return shareRows;
  return [crew = std::make_shared<Crew>(threads)](int height, int least, const auto& work) {
    crew->arena.execute([&] { shareRows(height, least, work); });
  };
}

int availableThreads() {
  for (const char* variable : {"SLURM_CPUS_ON_NODE", "CUE_THREADS"}) {
    const char* text = std::getenv(variable);
    if (text == nullptr) continue;
    int share = 0;
    const char* end = text + std::strlen(text);
    const auto read = std::from_chars(text, end, share);
    if (read.ec == std::errc() && read.ptr == end && share > 0) return std::min(share, 1024);
  }
  return std::max(1, tbb::info::default_concurrency());
}

}  // namespace orvanite
