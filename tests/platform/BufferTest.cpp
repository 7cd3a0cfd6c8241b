// SPDX-License-Identifier: BSD-3-Clause
//
// Image buffers and threads: shares, expansion, conversion.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "platform/NRiError.h"
#include "platform/NRiIBuf.h"
#include "platform/NRiThread.h"

namespace {

// The value that the tests store for channel c (0 alpha .. 3 red) at x, y.
unsigned valueAt(int x, int y, int c) {
  return static_cast<unsigned>((x * 31 + y * 7 + c * 50) & 127);
}

void setElement(std::byte* to, int depth, unsigned value) {
  if (depth == 1) {
    *to = static_cast<std::byte>(value);
  } else if (depth == 2) {
    const auto element = static_cast<std::uint16_t>(value);
    std::memcpy(to, &element, 2);
  } else {
    const auto element = static_cast<float>(value);
    std::memcpy(to, &element, 4);
  }
}

double element(const std::byte* from, int depth) {
  if (depth == 1) return static_cast<double>(*from);
  if (depth == 2) {
    std::uint16_t value = 0;
    std::memcpy(&value, from, 2);
    return value;
  }
  float value = 0;
  std::memcpy(&value, from, 4);
  return static_cast<double>(value);
}

void paint(NRiIBuf& buffer) {
  for (int y = buffer.firstLine; y < buffer.firstLine + buffer.lines; ++y) {
    for (int x = buffer.firstPixel; x < buffer.firstPixel + buffer.width; ++x) {
      std::byte* to = buffer.at(x, y);
      for (int c = 0; c < 4; ++c) {
        if (!(buffer.channels & (1 << c))) continue;
        setElement(to, buffer.depth, valueAt(x, y, c));
        to += buffer.depth;
      }
    }
  }
}

// Every share of every thread count, for buffers that lie everywhere around the region, of every
// channel mask and depth, with and without extra elements.
TEST(Buffers, SharesExpandToFourChannelsWhereverTheBufferLies) {
  const NRiRect region{10, 20, 17, 31};
  const NRiRect places[] = {{10, 20, 17, 31}, {0, 0, 40, 50},   {12, 22, 15, 25}, {0, 0, 5, 5},
                            {14, 18, 30, 26}, {10, 25, 17, 26}, {3, 20, 12, 31},  {17, 20, 19, 31}};
  NRiBPixel background{0.25f, 0.5f, 0.75f, 1.0f, 0};
  for (const int depth : {1, 2, 4}) {
    const double white = depth == 1 ? 255 : depth == 2 ? 65535 : 1;
    for (int mask = 1; mask < 16; ++mask) {
      for (const NRiRect& place : places) {
        for (const int extra : {0, 3}) {
          NRiIBuf buffer;
          buffer.allocate(place, mask, depth, extra);
          paint(buffer);
          for (const int threads : {1, 2, 3, 7, 20}) {
            int covered = region.y1;
            for (int thread = 0; thread < threads; ++thread) {
              NRiIBuf slice;
              NRiRect rect = region;
              buffer.threadIBuf(slice, rect, depth, thread, threads, 0);
              ASSERT_EQ(rect.y1, covered);
              ASSERT_EQ(rect.x1, region.x1);
              ASSERT_EQ(rect.x2, region.x2);
              covered = rect.y2;
              if (rect.empty()) continue;
              const int width = rect.x2 - rect.x1;
              slice.expand(width, depth, background, mask, 15);
              const std::ptrdiff_t step = (4 * width + slice.extra) * depth;
              for (int y = rect.y1; y < rect.y2; ++y) {
                for (int x = rect.x1; x < rect.x2; ++x) {
                  const bool inside =
                      x >= place.x1 && x < place.x2 && y >= place.y1 && y < place.y2;
                  for (int c = 0; c < 4; ++c) {
                    const std::byte* at = static_cast<std::byte*>(slice.data) +
                                          (y - rect.y1) * step + ((x - rect.x1) * 4 + c) * depth;
                    const bool held = inside && (mask & (1 << c));
                    // 0.25, 0.5 and 0.75 of 255 or 65535, rounded half up
                    const double missing = depth == 4
                                               ? 0.25 * (c + 1)
                                               : static_cast<int>(0.25 * (c + 1) * white + 0.5);
                    const bool opaque = inside && c == 0 && (mask & 14);
                    ASSERT_EQ(element(at, depth), held     ? valueAt(x, y, c)
                                                  : opaque ? white
                                                           : missing)
                        << "depth " << depth << " mask " << mask << " x " << x << " y " << y
                        << " channel " << c << " threads " << threads;
                  }
                }
              }
            }
            ASSERT_EQ(covered, region.y2);
          }
        }
      }
    }
  }
}

TEST(Buffers, AFourChannelSliceIsPartOfTheBuffer) {
  NRiIBuf buffer;
  buffer.allocate({-3, 5, 9, 11}, 15, 2, 5);
  paint(buffer);
  NRiIBuf slice;
  NRiRect rect{2, 5, 9, 11};
  buffer.threadIBuf(slice, rect, 2, 1, 2, 0);
  EXPECT_EQ(rect, (NRiRect{2, 8, 9, 11}));
  slice.expand(7, 2, {}, 14, 14);
  EXPECT_EQ(slice.data, buffer.at(2, 8));
  // A line is 12 pixels of 4 and 5 more; 7 pixels of 4 lie in the slice: 53 - 28.
  EXPECT_EQ(slice.extra, 25);
  // A wanted channel that the image lacks takes the background's value, in the buffer itself; a
  // picture's alpha is opaque then.
  slice.expand(7, 2, {0.2f, 0, 0, 0, 0}, 14, 1);
  EXPECT_EQ(element(buffer.at(2, 8), 2), 13107);
  slice.expand(7, 2, {0.2f, 0, 0, 0, 0}, 14, 15);
  EXPECT_EQ(element(buffer.at(2, 8), 2), 65535);
  EXPECT_EQ(element(buffer.at(1, 8), 2), valueAt(1, 8, 0));  // outside the share: untouched
}

TEST(Buffers, ConvertBetweenDepthsAsCodesOfTheirMaxima) {
  NRiIBuf bytes;
  bytes.allocate({0, 0, 4, 1}, 1, 1);
  const std::uint8_t codes[] = {0, 1, 128, 255};
  std::memcpy(bytes.data, codes, 4);
  const NRiIBuf words = bytes.converted(2);
  const NRiIBuf floats = bytes.converted(4);
  for (int x = 0; x < 4; ++x) {
    EXPECT_EQ(element(words.at(x, 0), 2), codes[x] * 257.0);  // 65535 / 255
    EXPECT_EQ(
        element(floats.at(x, 0), 4),
        static_cast<double>(static_cast<float>(codes[x]) * 0.003921568859f) /* 1/255 as a float */);
    EXPECT_EQ(element(words.converted(1).at(x, 0), 1), codes[x]);
    EXPECT_EQ(element(floats.converted(1).at(x, 0), 1), codes[x]);
  }
  const float odd[] = {-1.0f, 0.5f, 2.0f, NAN};
  NRiIBuf strange;
  strange.allocate({0, 0, 4, 1}, 1, 4);
  std::memcpy(strange.data, odd, sizeof odd);
  const NRiIBuf clamped = strange.converted(1);
  const int expected[] = {0, 128, 255, 0};  // 0.5 * 255 = 127.5 rounds up
  for (int x = 0; x < 4; ++x) EXPECT_EQ(element(clamped.at(x, 0), 1), expected[x]);
}

TEST(Buffers, RefuseSizesThatNoMemoryHolds) {
  NRiIBuf buffer;
  EXPECT_THROW(buffer.allocate({0, 0, 65536, 65536}, 15, 4), NRiError);
  EXPECT_THROW(buffer.allocate({-2147483647, 0, 2147483647, 2147483647}, 15, 4), NRiError);
  EXPECT_EQ(buffer.data, nullptr);
}

TEST(BackgroundPixel, QuantizesToTheCodesOfItsDepth) {
  NRiBPixel pixel{0.5f, 2.0f, -1.0f, 0.2f, 0};
  pixel.quantize(1);
  EXPECT_EQ(pixel.alpha, 128.0f / 255.0f);  // 127.5 rounds up
  EXPECT_EQ(pixel.blue, 1.0f);
  EXPECT_EQ(pixel.green, 0.0f);
  EXPECT_EQ(pixel.red, 51.0f / 255.0f);
  NRiBPixel plain{0.123456f, 2, -1, 0, 0};
  const NRiBPixel before = plain;
  plain.quantize(4);
  EXPECT_EQ(plain, before);
}

struct Job {
  std::atomic<int> calls{0};
  std::atomic<unsigned> seen{0};
  bool nested = false;
  int throwing = -1;
};

void work(NRiThread* thread, void* data) {
  auto& job = *static_cast<Job*>(data);
  ++job.calls;
  job.seen |= 1u << thread->number();
  if (job.nested) {
    Job inner;
    NRiThread::m_fork(work, &inner);
    EXPECT_EQ(inner.calls, 1);
  }
  if (thread->number() == job.throwing) throw std::runtime_error("worker");
}

TEST(Threads, EachRunsOnceNestsAndPassesFailuresOn) {
  for (const int count : {1, 2, 3, 8, 2}) {
    NRiThread::setCount(count);
    for (int round = 0; round < 50; ++round) {
      Job job;
      job.nested = round % 2 == 1;
      NRiThread::m_fork(work, &job);
      ASSERT_EQ(job.calls, count);
      ASSERT_EQ(job.seen, (1u << count) - 1);
    }
    for (int thrower = 0; thrower < count; ++thrower) {
      Job job;
      job.throwing = thrower;
      EXPECT_THROW(NRiThread::m_fork(work, &job), std::runtime_error);
      EXPECT_EQ(job.calls, count);  // the others finished
    }
  }
}

}  // namespace
