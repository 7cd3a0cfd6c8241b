// SPDX-License-Identifier: BSD-3-Clause
//
// What OBS loads: the module, and its filter for sources whose frames come by themselves: cameras,
// capture cards, movies.
#include <obs-module.h>

#include <exception>

#include "plugins/obs/Filter.h"
#include "plugins/obs/Panel.h"

OBS_DECLARE_MODULE()

namespace {

using orvanite::obsPlugin::Filter;

Filter* filterOf(void* data) { return static_cast<Filter*>(data); }

const obs_source_info& filterInfo() {
  static const obs_source_info info = [] {
    obs_source_info made{};
    made.id = "orvanite_filter";
    made.type = OBS_SOURCE_TYPE_FILTER;
    made.output_flags = OBS_SOURCE_VIDEO | OBS_SOURCE_ASYNC;
    made.get_name = [](void*) { return "Orvanite"; };
    made.create = [](obs_data_t* settings, obs_source_t* self) -> void* {
      try {
        return new Filter(settings, self);
      } catch (const std::exception& exception) {
        blog(LOG_ERROR, "orvanite: %s", exception.what());
        return nullptr;
      }
    };
    made.destroy = [](void* data) { delete filterOf(data); };
    made.get_defaults = orvanite::obsPlugin::setDefaults;
    made.get_properties = [](void* data) {
      return data ? filterOf(data)->panel() : orvanite::obsPlugin::makePanel({});
    };
    made.update = [](void* data, obs_data_t* settings) { filterOf(data)->update(settings); };
    made.filter_video = [](void* data, obs_source_frame* frame) {
      return filterOf(data)->filter(frame);
    };
    made.save = [](void* data, obs_data_t* settings) { filterOf(data)->save(settings); };
    return made;
  }();
  return info;
}

}  // namespace

MODULE_EXPORT bool obs_module_load() {
  obs_register_source(&filterInfo());
  return true;
}
MODULE_EXPORT const char* obs_module_name() { return "Orvanite"; }
MODULE_EXPORT const char* obs_module_description() {
  return "A colour-difference keyer for sources with a blue or green screen";
}
