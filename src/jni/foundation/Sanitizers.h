// Which sanitizer this build carries: VEL_ASAN and VEL_TSAN are 0 or 1 with both compilers.
#pragma once

#ifdef __has_feature  // clang
#define VEL_HAS_FEATURE(name) __has_feature(name)
#else
#define VEL_HAS_FEATURE(name) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || VEL_HAS_FEATURE(address_sanitizer)
#define VEL_ASAN 1
#else
#define VEL_ASAN 0
#endif

#if defined(__SANITIZE_THREAD__) || VEL_HAS_FEATURE(thread_sanitizer)
#define VEL_TSAN 1
#else
#define VEL_TSAN 0
#endif
