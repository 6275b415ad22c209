// What guards what, said to the compiler: clang refuses to build a member or a function that is
// used without its lock (-Wthread-safety). Other compilers see nothing.
//
// The check looks at one function at a time, and at names: a lock that is taken again by the thread
// that holds it passes between functions only, and what a lock of another object guards cannot be
// said unless that object can be named where the member is declared. Constructors, destructors and
// the lock's own functions are not looked at.
#pragma once

#ifdef __clang__
#define OSD_THREAD_ATTRIBUTE(i_attribute) __attribute__((i_attribute))
#else
#define OSD_THREAD_ATTRIBUTE(i_attribute)
#endif

// Of classes: a lock, and a locker that holds one until it is destroyed.
#define CAPABILITY(i_szName) OSD_THREAD_ATTRIBUTE(capability(i_szName))
#define SCOPED_CAPABILITY OSD_THREAD_ATTRIBUTE(scoped_lockable)

// Of members and variables: touched only with the lock held.
#define GUARDED_BY(i_lock) OSD_THREAD_ATTRIBUTE(guarded_by(i_lock))

// Of locks: the order in which one thread takes them.
#define ACQUIRED_BEFORE(...) OSD_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))

// Of functions: called with the lock held; called without it, because they take it themselves.
#define REQUIRES(...) OSD_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) OSD_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))

// Of functions that take or give back a lock: their own object when none is named. A lock for
// reading may be held by several threads.
#define ACQUIRE(...) OSD_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...) OSD_THREAD_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define RELEASE(...) OSD_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define RELEASE_GENERIC(...) OSD_THREAD_ATTRIBUTE(release_generic_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) OSD_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))

// Of functions that hand out a lock, and of those whose locking cannot be followed: with the reason.
#define RETURN_CAPABILITY(i_lock) OSD_THREAD_ATTRIBUTE(lock_returned(i_lock))
#define NO_THREAD_SAFETY_ANALYSIS OSD_THREAD_ATTRIBUTE(no_thread_safety_analysis)
