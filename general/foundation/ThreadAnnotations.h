#pragma once

/// What a compiler that analyses threads is told about locks; nothing to all others. Mutex.h and ThreadRole.h have the
/// types that carry the first two; members and functions carry the rest, which name the mutex or the role they mean.
#if defined(__clang__)
#define CORVANE_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define CORVANE_THREAD_ANNOTATION(attribute)
#endif

#define CORVANE_CAPABILITY(name) CORVANE_THREAD_ANNOTATION(capability(name))
#define CORVANE_SCOPED_CAPABILITY CORVANE_THREAD_ANNOTATION(scoped_lockable)
/// A member that is read and written only while the mutex is held, or only on the thread that has the role.
#define CORVANE_GUARDED_BY(mutex) CORVANE_THREAD_ANNOTATION(guarded_by(mutex))
/// A function that is called only while the mutex is held, and one that must not be.
#define CORVANE_REQUIRES(mutex) CORVANE_THREAD_ANNOTATION(requires_capability(mutex))
#define CORVANE_EXCLUDES(mutex) CORVANE_THREAD_ANNOTATION(locks_excluded(mutex))
/// A function after which the capability counts as held.
#define CORVANE_ASSERT_CAPABILITY(capability) CORVANE_THREAD_ANNOTATION(assert_capability(capability))
/// A function that takes the mutex and keeps it, and one that gives it back.
#define CORVANE_ACQUIRE(...) CORVANE_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define CORVANE_RELEASE(...) CORVANE_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
