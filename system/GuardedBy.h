// Which lock guards what, said so that a compiler proves it: `cmake --build BUILD --target guards`
// has clang look whether everything that a lock guards is touched under that lock only. Nothing of
// it comes into the code.
//
// A member says its lock, as in `OSSIRA_GUARDED_BY(mLock)`, and a function which lock its caller
// holds. Constructors and destructors are not looked at, nor what a lambda captures.
#pragma once

#ifdef __clang__
#define OSSIRA_FOR_THE_PROOF(attribute) __attribute__((attribute))
#else
#define OSSIRA_FOR_THE_PROOF(attribute)
#endif

// Of types.
#define OSSIRA_LOCK OSSIRA_FOR_THE_PROOF(capability("lock"))
#define OSSIRA_GUARD OSSIRA_FOR_THE_PROOF(scoped_lockable) // holds a lock while it lives

// Of what locks and guards do; what is named is the lock, and none is the object itself.
#define OSSIRA_TAKES(...) OSSIRA_FOR_THE_PROOF(acquire_capability(__VA_ARGS__))
#define OSSIRA_TAKES_TO_READ(...) OSSIRA_FOR_THE_PROOF(acquire_shared_capability(__VA_ARGS__))
#define OSSIRA_TAKES_IF(...) OSSIRA_FOR_THE_PROOF(try_acquire_capability(__VA_ARGS__)) // it answers
#define OSSIRA_GIVES(...) OSSIRA_FOR_THE_PROOF(release_capability(__VA_ARGS__))

// Of data, and of functions that touch them or only read them.
#define OSSIRA_GUARDED_BY(lock) OSSIRA_FOR_THE_PROOF(guarded_by(lock))
#define OSSIRA_UNDER(...) OSSIRA_FOR_THE_PROOF(requires_capability(__VA_ARGS__))
#define OSSIRA_UNDER_TO_READ(...) OSSIRA_FOR_THE_PROOF(requires_shared_capability(__VA_ARGS__))

// Of a function: what it answers is that lock, or held from here on without a proof.
#define OSSIRA_ANSWERS_LOCK(lock) OSSIRA_FOR_THE_PROOF(lock_returned(lock))
#define OSSIRA_SAYS_HELD(lock) OSSIRA_FOR_THE_PROOF(assert_capability(lock))

// Of a function that is not looked at, because it holds its lock in a way that cannot be followed.
#define OSSIRA_UNCHECKED_GUARDS OSSIRA_FOR_THE_PROOF(no_thread_safety_analysis)
