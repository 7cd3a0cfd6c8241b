// SPDX-License-Identifier: BSD-3-Clause
//
// Whether this is a build for AddressSanitizer or ThreadSanitizer: g++ says it by macros, clang by
// features.
#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ORVANITE_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ORVANITE_SANITIZED
#endif
#endif
