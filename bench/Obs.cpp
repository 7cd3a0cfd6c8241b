// SPDX-License-Identifier: BSD-3-Clause
//
// orvanite-obs-bench: what the filter for OBS Studio takes for a frame of 1920x1080, and beside it
// what a source takes in all without a filter, with ours, and with OBS's own chroma key.
// --one: on one processor, so that its time is all that a frame takes; without it several share it.
//   orvanite-obs-bench [--one] [OBS-FILTERS.so DATA-FOLDER]
// The chroma key is a shader: where OpenGL is done by processors, as on a screen that nobody sees,
// it takes their time and not a graphics card's.
#include <sched.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "tests/plugins/ObsScene.h"

namespace {

constexpr int width = 1920, height = 1080;

double processSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void printFilter(ObsHost& host, const obsScene::Form& form, const char* what, const char* json) {
  obs_data_t* const settings = obs_data_create_from_json(json);
  obs_source_t* const filter = host.newFilter("orvanite_filter", settings);
  obs_data_release(settings);
  host.use({filter});
  const obsScene::Plate plate(form, width, height);
  std::vector<double> cpu, wall;
  for (int i = 0; i < 70; ++i) {
    const ObsSeen seen = host.show(plate.frame);
    if (i < 10) continue;
    cpu.push_back(seen.cpuSeconds * 1e3);
    wall.push_back(seen.wallSeconds * 1e3);
  }
  std::printf("| %s | %s | %.1f | %.1f | %.1f |\n", get_video_format_name(form.format), what,
              *std::min_element(cpu.begin(), cpu.end()), median(cpu), median(wall));
  host.use({});
  obs_source_release(filter);
}

void printWhole(ObsHost& host, const obsScene::Form& form, const char* what, const char* kind,
                const char* json) {
  obs_source_t* filter = nullptr;
  if (kind) {
    obs_data_t* const settings = obs_data_create_from_json(json);
    filter = host.newFilter(kind, settings);
    obs_data_release(settings);
  }
  host.use(filter ? std::vector<obs_source_t*>{filter} : std::vector<obs_source_t*>{});
  const obsScene::Plate plate(form, width, height);
  for (int i = 0; i < 5; ++i) host.show(plate.frame);
  std::vector<double> each;
  for (int round = 0; round < 5; ++round) {
    const double from = processSeconds();
    for (int i = 0; i < 15; ++i) host.show(plate.frame);
    each.push_back((processSeconds() - from) / 15 * 1e3);
  }
  std::printf("| %s | %s | %.1f | %.1f |\n", get_video_format_name(form.format), what,
              *std::min_element(each.begin(), each.end()), median(each));
  host.use({});
  if (filter) obs_source_release(filter);
}

}  // namespace

int main(int count, char** words) {
  if (count > 1 && std::strcmp(words[1], "--one") == 0) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(0, &one);
    sched_setaffinity(0, sizeof one, &one);
    --count, ++words;
  }
  ObsHost host(ORVANITE_OBS_BINARY, width, height);
  if (!host.problem().empty()) {
    std::fprintf(stderr, "orvanite-obs-bench: %s\n", host.problem().c_str());
    return 1;
  }
  const char* const plain = R"({"screen": 4282162732, "screenRange": 0.1})";
  const char* const finished =
      R"({"screen": 4282162732, "screenRange": 0.1, "matteBlack": 0.05, "spill": 0.5})";
  const auto& forms = obsScene::forms;
  std::puts(
      "| source | filter alone, ms a frame | processors, least | median | on OBS's thread, median "
      "|");
  std::puts("|---|---|---|---|---|");
  for (const int form : {0, 1, 2, 6, 12, 17}) printFilter(host, forms[form], "key", plain);
  printFilter(host, forms[1], "key, clip black, spill removal", finished);
  const bool loaded = count > 2 && host.load(words[1], words[2]);
  std::puts("\n| source | all of OBS, processors' ms a frame | least | median |");
  std::puts("|---|---|---|---|");
  for (const int form : {1, 17}) {
    printWhole(host, forms[form], "no filter", nullptr, nullptr);
    printWhole(host, forms[form], "Orvanite", "orvanite_filter", plain);
    if (loaded) printWhole(host, forms[form], "OBS's chroma key", "chroma_key_filter_v2", "{}");
  }
  return 0;
}
