// SPDX-License-Identifier: BSD-3-Clause
//
// See Source.h.
#include "plugins/obs/Source.h"

#include <exception>

#include "plugins/obs/Filter.h"
#include "plugins/obs/Panel.h"

namespace orvanite::obsPlugin {
namespace {

Filter* filterOf(void* data) { return static_cast<Filter*>(data); }

}  // namespace

obs_source_info filterInfo() {
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
  made.get_defaults = setDefaults;
  made.get_properties = [](void* data) { return data ? filterOf(data)->panel() : makePanel({}); };
  made.update = [](void* data, obs_data_t* settings) { filterOf(data)->update(settings); };
  made.filter_video = [](void* data, obs_source_frame* frame) {
    return filterOf(data)->filter(frame);
  };
  made.save = [](void* data, obs_data_t* settings) { filterOf(data)->save(settings); };
  return made;
}

}  // namespace orvanite::obsPlugin
