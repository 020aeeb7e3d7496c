// What every public header begins with: the language that it needs, and what the library exports.
//
// Names of this interface begin with CI, CG, CV, kCI, IOSurface or VornEffects, or are `Class`, or
// live in `namespace vorn`; macros begin with VORN_. A host's own names never meet others of ours.
//
// The interface is unstable until the first release: until then any version may change it, and a
// host is compiled against the very version that it runs with.
#pragma once

// Not by the compiler's name, nor by __has_include: this asks for the mode that it runs in.
#if __cplusplus >= 202002L
#define VORN_HAS_LANGUAGE 1
#else
#define VORN_HAS_LANGUAGE 0
#error "VornEffects needs C++20 or later: compile with -std=c++20"
#endif

/// On what the library exports; all else stays inside of it.
#define VORN_EXPORT __attribute__((visibility("default")))
