#pragma once
// Names for clang's thread-safety attributes, so that -Wthread-safety checks what the comments say.

#if defined(__clang__)
#define ONDRA_ATTRIBUTE(x) __attribute__((x))
#else
#define ONDRA_ATTRIBUTE(x)
#endif

#define ONDRA_CAPABILITY(x) ONDRA_ATTRIBUTE(capability(x))
#define ONDRA_SCOPED_CAPABILITY ONDRA_ATTRIBUTE(scoped_lockable)
#define ONDRA_GUARDED_BY(x) ONDRA_ATTRIBUTE(guarded_by(x))
#define ONDRA_REQUIRES(...) ONDRA_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ONDRA_REQUIRES_SHARED(...) ONDRA_ATTRIBUTE(requires_shared_capability(__VA_ARGS__))
#define ONDRA_ACQUIRE(...) ONDRA_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ONDRA_ACQUIRE_SHARED(...) ONDRA_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define ONDRA_RELEASE(...) ONDRA_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ONDRA_RELEASE_SHARED(...) ONDRA_ATTRIBUTE(release_shared_capability(__VA_ARGS__))
#define ONDRA_RELEASE_GENERIC(...) ONDRA_ATTRIBUTE(release_generic_capability(__VA_ARGS__))
#define ONDRA_EXCLUDES(...) ONDRA_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ONDRA_NO_THREAD_SAFETY_ANALYSIS ONDRA_ATTRIBUTE(no_thread_safety_analysis)
