// SPDX-License-Identifier: BSD-3-Clause
//
// What the plug-ins' tests call of POSIX, for Windows.
#pragma once

#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include <cstdlib>

inline constexpr int RTLD_NOW = 0, RTLD_LOCAL = 0, RTLD_NOLOAD = 1;

inline void* dlopen(const char* path, int how) {
  // A handle that is only asked after holds the library as one that was loaded does.
  if (how & RTLD_NOLOAD) {
    HMODULE module = nullptr;
    GetModuleHandleExA(0, path, &module);
    return module;
  }
  return LoadLibraryA(path);
}
inline int dlclose(void* handle) { return FreeLibrary(static_cast<HMODULE>(handle)) ? 0 : 1; }
inline void* dlsym(void* handle, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle), name));
}
inline const char* dlerror() { return "LoadLibrary failed"; }

inline int setenv(const char* name, const char* value, int) { return _putenv_s(name, value); }
inline int unsetenv(const char* name) { return _putenv_s(name, ""); }
