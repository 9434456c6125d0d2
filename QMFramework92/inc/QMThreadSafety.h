#pragma once

// Annotations that tie a value to the lock that guards it. clang checks them (-Wthread-safety); other
// compilers see nothing.
#if defined(__clang__)
#define QM_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QM_THREAD_ANNOTATION(x)
#endif

#define QM_CAPABILITY(name) QM_THREAD_ANNOTATION(capability(name))
#define QM_SCOPED_CAPABILITY QM_THREAD_ANNOTATION(scoped_lockable)
#define QM_GUARDED_BY(lock) QM_THREAD_ANNOTATION(guarded_by(lock))
#define QM_REQUIRES(...) QM_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define QM_EXCLUDES(...) QM_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define QM_ACQUIRE(...) QM_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define QM_RELEASE(...) QM_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define QM_NO_THREAD_SAFETY_ANALYSIS QM_THREAD_ANNOTATION(no_thread_safety_analysis)
