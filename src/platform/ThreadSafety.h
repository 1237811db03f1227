#pragma once

// Clang's thread-safety annotations; nothing for other compilers.
#if defined(__clang__)
#define KAVARO_TSA(x) __attribute__((x))
#else
#define KAVARO_TSA(x)
#endif

#define KAVARO_CAPABILITY(name) KAVARO_TSA(capability(name))
#define KAVARO_SCOPED_CAPABILITY KAVARO_TSA(scoped_lockable)
#define KAVARO_GUARDED_BY(lock) KAVARO_TSA(guarded_by(lock))
#define KAVARO_REQUIRES(lock) KAVARO_TSA(requires_capability(lock))
#define KAVARO_ACQUIRE(...) KAVARO_TSA(acquire_capability(__VA_ARGS__))
#define KAVARO_RELEASE(...) KAVARO_TSA(release_capability(__VA_ARGS__))
#define KAVARO_EXCLUDES(...) KAVARO_TSA(locks_excluded(__VA_ARGS__))
#define KAVARO_NO_THREAD_SAFETY_ANALYSIS KAVARO_TSA(no_thread_safety_analysis)
