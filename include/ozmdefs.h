// ozmdefs.h - the compiler-specific attributes of the public headers, behind
// the library's own macros: defined for GCC and clang, empty elsewhere.
#pragma once

#if defined(__GNUC__) || defined(__clang__)
// Exported from the shared library, whatever the default visibility.
#define OZM_EXPORT __attribute__((visibility("default")))
// Inlined wherever it is called: for the few operations of the hot paths
// that the compiler's own weighing would leave as calls.
#define OZM_ALWAYS_INLINE inline __attribute__((always_inline))
// A condition that is almost always true, or almost always false.
#define OZM_LIKELY(x) __builtin_expect(!!(x), 1)
#define OZM_UNLIKELY(x) __builtin_expect(!!(x), 0)
#else
#define OZM_EXPORT
#define OZM_ALWAYS_INLINE inline
#define OZM_LIKELY(x) (x)
#define OZM_UNLIKELY(x) (x)
#endif

// What the classes and functions of the interface are declared with.
#ifndef OZM_API
#define OZM_API OZM_EXPORT
#endif
