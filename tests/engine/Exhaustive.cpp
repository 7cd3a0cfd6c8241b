// SPDX-License-Identifier: BSD-3-Clause
//
// Every float through every vectorised encoding on every target, against the definition; minutes
// on two cores. Also measured: how far the estimates before rounding lie from the C library, whose
// own error is below 2^-52. The margin at which an estimate is not trusted must be ten times that.
//
// cmake --build --preset release --target exhaustive
// exhaustive_encodings NAME        only the functions whose name begins so, such as "power 80"
// exhaustive_encodings NAME 3 16   of these, the third sixteenth of all floats
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "tests/engine/EncodingSweep.h"

namespace {

constexpr std::uint32_t chunk = 1U << 16;
constexpr std::uint32_t chunks = 1U << 16;
constexpr double margin = 0x1p-40;  // kernels/simd/Powers.h, doubt

/// The largest relative distance of the estimates of a chunk from the C library's results.
double estimateError(const orvanite::EncodingFunctions& f, const sweep::Function& function,
                     const std::vector<float>& in) {
  const bool logarithm =
      function.kind == sweep::encode && function.colourspace == orvanite::logSpace;
  const bool power =
      function.kind == sweep::raise && function.exponent > 0 && function.exponent <= 64;
  if (!logarithm && !power) return 0;
  std::vector<double> got(in.size());
  if (logarithm) {
    f.logarithmEstimate(in.data(), got.data(), in.size());
  } else {
    f.powerEstimate(in.data(), got.data(), in.size(), function.exponent);
  }
  double worst = 0;
  for (std::size_t i = 0; i < in.size(); ++i) {
    const double v = static_cast<double>(in[i]);
    const double exact =
        logarithm ? std::log10(v) : std::pow(v, static_cast<double>(function.exponent));
    // Only what a float can hold matters.
    if (exact == 0 || !(std::fabs(exact) < 0x1p128) || std::fabs(exact) < 0x1p-150) continue;
    worst = std::max(worst, std::fabs(got[i] / exact - 1));
  }
  return worst;
}

struct Findings {
  std::mutex lock;
  std::string difference;
  double worst = 0;
};

void look(const sweep::Function& f, std::atomic<std::uint32_t>& next, std::uint32_t end,
          Findings& findings) {
  std::vector<float> in(chunk), wanted(chunk);
  for (std::uint32_t c = next++; c < end; c = next++) {
    for (std::uint32_t i = 0; i < chunk; ++i) {
      in[i] = sweep::fromBits(c * chunk + i);
      wanted[i] = f.define(in[i]);
    }
    const bool measurable = c > 0 && in.front() > 0 && std::isfinite(in.back());
    for (const orvanite::Target& target : orvanite::knownTargets()) {
      if (!target.supported() || target.encodings == nullptr) continue;
      const std::string difference = sweep::compare(target, f, in, wanted);
      const double error = measurable ? estimateError(*target.encodings, f, in) : 0;
      const std::lock_guard<std::mutex> guard(findings.lock);
      if (findings.difference.empty()) findings.difference = difference;
      findings.worst = std::max(findings.worst, error);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string wanted = argc > 1 ? argv[1] : "";
  const int part = argc == 4 ? std::atoi(argv[2]) : 1;
  const int parts = argc == 4 ? std::atoi(argv[3]) : 1;
  if (argc == 3 || argc > 4 || part < 1 || part > parts || parts > static_cast<int>(chunks)) {
    std::fprintf(stderr, "exhaustive_encodings: expected [NAME [PART PARTS]], PART in 1..PARTS\n");
    return 2;
  }
  const auto chunkAt = [parts](int share) {
    return static_cast<std::uint32_t>(std::uint64_t{chunks} * static_cast<unsigned>(share) /
                                      static_cast<unsigned>(parts));
  };
  int failures = 0, functions = 0;
  for (const sweep::Function& f : sweep::functions()) {
    if (std::string(f.name).rfind(wanted, 0) != 0) continue;
    ++functions;
    std::atomic<std::uint32_t> next{chunkAt(part - 1)};
    Findings findings;
    std::vector<std::thread> threads(std::max(1U, std::thread::hardware_concurrency()));
    for (std::thread& t : threads)
      t = std::thread(look, std::cref(f), std::ref(next), chunkAt(part), std::ref(findings));
    for (std::thread& t : threads) t.join();
    const bool close = findings.worst * 10 <= margin;
    std::printf("%-20s %s", f.name,
                findings.difference.empty() ? "all floats equal" : findings.difference.c_str());
    if (findings.worst > 0) std::printf(", estimate within 2^%.1f", std::log2(findings.worst));
    std::printf("%s\n", close ? "" : ": too near the margin of 2^-40");
    std::fflush(stdout);
    if (!close || !findings.difference.empty()) ++failures;
  }
  if (functions == 0) {
    std::fprintf(stderr, "exhaustive_encodings: no function's name begins \"%s\"\n", argv[1]);
    return 2;
  }
  return failures == 0 ? 0 : 1;
}
