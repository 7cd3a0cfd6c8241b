// SPDX-License-Identifier: BSD-3-Clause
//
// orvanite-obs-bench: what the filter for OBS Studio takes for a frame of 1920x1080, and beside it
// what a source takes in all without a filter, with ours, and with OBS's own chroma key, thread by
// thread. bench/obs builds and runs it.
// --one: on one processor, so that its time is all that a frame takes; without it several share it.
//   orvanite-obs-bench [--one] [OBS-FILTERS.so DATA-FOLDER]
// The chroma key is a shader: where OpenGL is done by processors, as on a screen that nobody sees,
// it takes their time and not a graphics card's.
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
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

// Processors' seconds of this process's threads until now, by name; those of a crew are one.
std::map<std::string, double> threadSeconds() {
  std::map<std::string, double> seconds;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    double nanoseconds = 0;
    std::getline(std::ifstream(task.path() / "comm"), name);
    std::ifstream(task.path() / "schedstat") >> nanoseconds;
    while (!name.empty() && (std::isdigit(name.back()) || name.back() == '-')) name.pop_back();
    seconds[name] += nanoseconds * 1e-9;
  }
  return seconds;
}

struct Subject {
  const char *what, *kind, *json;
};

obs_source_t* use(ObsHost& host, const Subject& subject) {
  obs_source_t* filter = nullptr;
  if (subject.kind) {
    obs_data_t* const settings = obs_data_create_from_json(subject.json);
    filter = host.newFilter(subject.kind, settings);
    obs_data_release(settings);
  }
  host.use(filter ? std::vector<obs_source_t*>{filter} : std::vector<obs_source_t*>{});
  return filter;
}

void printWhole(ObsHost& host, const obsScene::Form& form, const std::vector<Subject>& subjects) {
  constexpr int rounds = 5, frames = 15;
  const char* const format = get_video_format_name(form.format);
  std::map<std::string, std::vector<double>> byThread;
  for (std::size_t at = 0; at < subjects.size(); ++at) {
    obs_source_t* const filter = use(host, subjects[at]);
    const obsScene::Plate plate(form, width, height);
    for (int i = 0; i < 5; ++i) host.show(plate.frame);
    const auto before = threadSeconds();
    std::vector<double> each;
    for (int round = 0; round < rounds; ++round) {
      const double from = processSeconds();
      for (int i = 0; i < frames; ++i) host.show(plate.frame);
      each.push_back((processSeconds() - from) / frames * 1e3);
    }
    for (const auto& [name, now] : threadSeconds()) {
      const auto then = before.find(name);
      auto& row = byThread[name];
      row.resize(subjects.size());
      row[at] = (now - (then == before.end() ? 0 : then->second)) / (rounds * frames) * 1e3;
    }
    std::printf("| %s | %s | %.1f | %.1f |\n", format, subjects[at].what,
                *std::min_element(each.begin(), each.end()), median(each));
    host.use({});
    if (filter) obs_source_release(filter);
  }
  std::printf("\n| %s, ms a frame by thread", format);
  for (const Subject& subject : subjects) std::printf(" | %s", subject.what);
  std::puts(" |\n|---|---|---|---|");
  for (const auto& [name, row] : byThread) {
    if (*std::max_element(row.begin(), row.end()) < 0.05) continue;
    std::printf("| %s", name.c_str());
    for (const double ms : row) std::printf(" | %.1f", ms);
    std::puts(" |");
  }
  std::puts("");
}

// Sixty frames a second for five seconds, as a camera sends them, on a small canvas: what the
// filter holds OBS's thread up by the clock, and how many of OBS's own frames came late.
void printPaced(const obsScene::Form& form, const std::vector<Subject>& subjects) {
  ObsHost host(ORVANITE_OBS_BINARY, 320, 180);
  if (!host.problem().empty()) return;
  for (const Subject& subject : subjects) {
    obs_source_t* const filter = use(host, subject);
    const obsScene::Plate plate(form, width, height);
    for (int i = 0; i < 20; ++i) host.show(plate.frame);
    const std::uint32_t late = obs_get_lagged_frames(), all = obs_get_total_frames();
    std::vector<double> wall;
    auto next = std::chrono::steady_clock::now();
    for (int i = 0; i < 300; ++i) {
      std::this_thread::sleep_until(next);
      next += std::chrono::microseconds(16667);
      wall.push_back(host.show(plate.frame).wallSeconds * 1e3);
    }
    std::sort(wall.begin(), wall.end());
    std::printf("| %s | %s | %.1f | %.1f | %u of %u |\n", get_video_format_name(form.format),
                subject.what, wall[150], wall[297], obs_get_lagged_frames() - late,
                obs_get_total_frames() - all);
    host.use({});
    if (filter) obs_source_release(filter);
  }
}

// From the first frame of a green screen to the first keyed one, and to the end of the search.
void printFinding(ObsHost& host, const obsScene::Form& form) {
  const obsScene::Plate plate(form, width, height);
  std::vector<double> frames, look, search;
  for (int round = 0; round < 5; ++round) {
    obs_source_t* const filter = use(host, {"", "orvanite_filter", "{}"});
    const auto from = std::chrono::steady_clock::now();
    const auto milliseconds = [&] {
      const std::chrono::duration<double, std::milli> gone =
          std::chrono::steady_clock::now() - from;
      return gone.count();
    };
    int count = 0;
    ObsSeen seen;
    host.showUntil(
        plate.frame,
        [&](const ObsSeen& each) {
          ++count;
          return each.pixel(width / 2, height / 2)[3] != 0;
        },
        seen);
    frames.push_back(count - 1);
    look.push_back(milliseconds());
    host.showUntil(
        plate.frame,
        [&](const ObsSeen&) {
          obs_properties_destroy(obs_source_properties(filter));
          obs_data_t* const settings = obs_source_get_settings(filter);
          const std::string state = obs_data_get_string(settings, "state");
          obs_data_release(settings);
          return state == "The screen was found.";
        },
        seen);
    search.push_back(milliseconds());
    host.use({});
    obs_source_release(filter);
  }
  std::printf(
      "\nFinding a screen in %s, medians of 5: %.0f frames without a key, the first one after "
      "%.0f ms, the search's after %.0f ms.\n",
      get_video_format_name(form.format), median(frames), median(look), median(search));
}

}  // namespace

int main(int count, char** words) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);  // rows as they come
  if (count > 1 && std::strcmp(words[1], "--one") == 0) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(0, &one);
    sched_setaffinity(0, sizeof one, &one);
    --count, ++words;
  }
  const char* const plain = R"({"screen": 4282162732, "screenRange": 0.1})";
  const char* const refined = R"({"screen": 4282162732, "screenRange": 0.1, "refine": 1})";
  const char* const finished =
      R"({"screen": 4282162732, "screenRange": 0.1, "matteBlack": 0.05, "spill": 0.5})";
  const auto& forms = obsScene::forms;
  std::vector<Subject> subjects = {{"no filter", nullptr, nullptr},
                                   {"Orvanite", "orvanite_filter", plain}};
  {
    ObsHost host(ORVANITE_OBS_BINARY, width, height);
    if (!host.problem().empty()) {
      std::fprintf(stderr, "orvanite-obs-bench: %s\n", host.problem().c_str());
      return 1;
    }
    std::puts(
        "| source | filter alone, ms a frame | processors, least | median | on OBS's thread, "
        "median |");
    std::puts("|---|---|---|---|---|");
    for (const int form : {0, 1, 2, 6, 12, 17}) printFilter(host, forms[form], "key", plain);
    printFilter(host, forms[1], "key, refined edge", refined);
    printFilter(host, forms[1], "key, clip black, spill removal", finished);
    if (count > 2 && host.load(words[1], words[2])) {
      subjects.push_back({"OBS's chroma key", "chroma_key_filter_v2", "{}"});
    }
    std::puts("\n| source | all of OBS, processors' ms a frame | least | median |");
    std::puts("|---|---|---|---|");
    printWhole(host, forms[1], subjects);
  }
  subjects.resize(2);
  subjects.push_back({"Orvanite, clip black, spill removal", "orvanite_filter", finished});
  std::puts(
      "| source | 60 frames a second by the clock | filter, ms, median | of a hundred the worst | "
      "OBS's frames late |");
  std::puts("|---|---|---|---|---|");
  printPaced(forms[1], subjects);
  ObsHost host(ORVANITE_OBS_BINARY, 320, 180);
  if (host.problem().empty()) printFinding(host, forms[1]);
  return 0;
}
