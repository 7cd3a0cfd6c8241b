// SPDX-License-Identifier: BSD-3-Clause
#include "shot/Mask.h"

#include <tbb/parallel_for.h>

#include <charconv>
#include <cmath>
#include <cstddef>
#include <vector>

#include "base/Error.h"

namespace orvanite::shot {
namespace {

std::vector<double> numbersOf(const std::string& text) {
  std::vector<double> numbers;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (true) {
    double number = 0;
    const auto [after, problem] = std::from_chars(at, end, number);
    if (problem != std::errc() || !std::isfinite(number)) return {};
    numbers.push_back(number);
    if (after == end) return numbers;
    if (*after != ',') return {};
    at = after + 1;
  }
}

}  // namespace

MaskShape rectangleOf(const std::string& text, const std::string& subject) {
  const std::vector<double> n = numbersOf(text);
  if (n.size() != 4 || !(n[2] > 0) || !(n[3] > 0)) {
    throw Error::expected(Fault::wrongUse, subject, "X,Y,WIDTH,HEIGHT in pixels", text);
  }
  MaskShape mask;
  mask.points = {
      {n[0], n[1]}, {n[0] + n[2], n[1]}, {n[0] + n[2], n[1] + n[3]}, {n[0], n[1] + n[3]}};
  return mask;
}

MaskShape polygonOf(const std::string& text, const std::string& subject) {
  const std::vector<double> n = numbersOf(text);
  if (n.size() < 6 || n.size() % 2 != 0) {
    throw Error::expected(Fault::wrongUse, subject, "X,Y,X,Y,X,Y,... of three corners or more",
                          text);
  }
  MaskShape mask;
  for (std::size_t i = 0; i < n.size(); i += 2) mask.points.push_back({n[i], n[i + 1]});
  return mask;
}

void join(const MaskShape& shape, const media::Window& frame, media::Picture& matte) {
  const media::Window& data = matte.data;
  tbb::parallel_for(0, data.height, [&](int row) {
    std::byte* const samples =
        matte.pixels.get() + matte.rowBytes() * static_cast<std::size_t>(row);
    joinRow(shape, matte.depth, samples + std::ptrdiff_t{3} * bytesOf(matte.depth), 4, data.width,
            data.x - frame.x + 0.5, data.y + row - frame.y + 0.5);
  });
}

}  // namespace orvanite::shot
