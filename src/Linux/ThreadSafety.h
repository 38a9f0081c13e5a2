// SPDX-License-Identifier: MIT
// Which lock guards what, in words that clang checks (-Wthread-safety); other compilers skip them.
#pragma once

#if defined(__clang__)
#define THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define THREAD_SAFETY(attribute)
#endif

#define CAPABILITY(kind) THREAD_SAFETY(capability(kind))
#define SCOPED_CAPABILITY THREAD_SAFETY(scoped_lockable)
#define ACQUIRE(...) THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define RELEASE(...) THREAD_SAFETY(release_capability(__VA_ARGS__))
#define REQUIRES(...) THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define GUARDED_BY(lock) THREAD_SAFETY(guarded_by(lock))
#define NO_THREAD_SAFETY_ANALYSIS THREAD_SAFETY(no_thread_safety_analysis)
