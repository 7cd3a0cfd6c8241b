// SPDX-License-Identifier: BSD-3-Clause
//
// The functions that a frei0r host calls. No exception leaves this file; null handles are ignored.
#pragma GCC visibility push(default)
extern "C" {
#include <frei0r.h>
}
#pragma GCC visibility pop

#include <cstdio>

#include "engine/targets/Target.h"
#include "plugins/frei0r/Effect.h"

using orvanite::frei0rPlugin::controls;
using orvanite::frei0rPlugin::Effect;
using orvanite::frei0rPlugin::kind;

namespace {

// Wider or taller than any picture; keeps a line's and a frame's offsets inside their types.
constexpr unsigned int longestSide = 1U << 20;

template <class Call>
void guarded(Call call) noexcept {
  try {
    call();
  } catch (...) {  // memory: the frame stays as the host handed it over
  }
}

}  // namespace

extern "C" {

int f0r_init() {
  int started = 1;
  guarded([&started] {
    if (const std::string& problem = orvanite::targetProblem(); !problem.empty()) {
      std::fprintf(stderr, "orvanite: %s\n", problem.c_str());
      started = 0;
    }
  });
  return started;
}

void f0r_deinit() {}

void f0r_get_plugin_info(f0r_plugin_info_t* info) {
  if (!info) return;
  info->name = kind().name;
  info->author = "The Orvanite authors";
  info->plugin_type = kind().pluginType;
  info->color_model = F0R_COLOR_MODEL_RGBA8888;
  info->frei0r_version = FREI0R_MAJOR_VERSION;
  info->major_version = ORVANITE_VERSION_MAJOR;
  info->minor_version = ORVANITE_VERSION_MINOR;
  guarded([&] { info->num_params = static_cast<int>(controls().size()); });
  info->explanation = kind().explanation;
}

void f0r_get_param_info(f0r_param_info_t* info, int index) {
  if (!info) return;
  guarded([&] {
    if (index < 0 || index >= static_cast<int>(controls().size())) return;
    const auto& control = controls()[static_cast<std::size_t>(index)];
    info->name = control.name.c_str();
    info->type = control.type;
    info->explanation = control.explanation.c_str();
  });
}

f0r_instance_t f0r_construct(unsigned int width, unsigned int height) {
  Effect* effect = nullptr;
  if (width > longestSide || height > longestSide) return nullptr;
  guarded([&] { effect = new Effect(width, height); });
  return effect;
}

void f0r_destruct(f0r_instance_t instance) { delete static_cast<Effect*>(instance); }

void f0r_set_param_value(f0r_instance_t instance, f0r_param_t value, int index) {
  if (!instance) return;
  guarded([&] { static_cast<Effect*>(instance)->set(index, value); });
}

void f0r_get_param_value(f0r_instance_t instance, f0r_param_t value, int index) {
  if (!instance) return;
  guarded([&] { static_cast<Effect*>(instance)->get(index, value); });
}

void f0r_update(f0r_instance_t instance, double, const uint32_t* in, uint32_t* out) {
  if (!instance) return;
  guarded([&] { static_cast<Effect*>(instance)->update(in, nullptr, out); });
}

/// A mixer's first frame lies below, its second above: the plate is the upper track.
void f0r_update2(f0r_instance_t instance, double, const uint32_t* below, const uint32_t* above,
                 const uint32_t*, uint32_t* out) {
  if (!instance) return;
  const bool mixer = kind().background;
  guarded([&] {
    static_cast<Effect*>(instance)->update(mixer ? above : below, mixer ? below : nullptr, out);
  });
}

}  // extern "C"
