// SPDX-License-Identifier: BSD-3-Clause
//
// What OBS loads: the module, and its filter.
#include <obs-module.h>

#include "plugins/obs/Source.h"

OBS_DECLARE_MODULE()

MODULE_EXPORT bool obs_module_load() {
  const obs_source_info info = orvanite::obsPlugin::filterInfo();
  obs_register_source(&info);
  return true;
}
MODULE_EXPORT const char* obs_module_name() { return "Orvanite"; }
MODULE_EXPORT const char* obs_module_description() {
  return "A colour-difference keyer for sources with a blue or green screen";
}
