// Lock annotations that clang checks at build time (-Wthread-safety); empty for other compilers.
#ifndef VYX_BASE_ANNOTATIONS_H
#define VYX_BASE_ANNOTATIONS_H

#if defined(__clang__)
#define VYX_ANNOTATION(x) __attribute__((x))
#else
#define VYX_ANNOTATION(x)
#endif

#define VYX_CAPABILITY(name) VYX_ANNOTATION(capability(name))
#define VYX_SCOPED_CAPABILITY VYX_ANNOTATION(scoped_lockable)
#define VYX_GUARDED_BY(lock) VYX_ANNOTATION(guarded_by(lock))
#define VYX_PT_GUARDED_BY(lock) VYX_ANNOTATION(pt_guarded_by(lock))
#define VYX_REQUIRES(...) VYX_ANNOTATION(requires_capability(__VA_ARGS__))
#define VYX_ACQUIRE(...) VYX_ANNOTATION(acquire_capability(__VA_ARGS__))
#define VYX_TRY_ACQUIRE(...) VYX_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define VYX_RELEASE(...) VYX_ANNOTATION(release_capability(__VA_ARGS__))
#define VYX_UNCHECKED VYX_ANNOTATION(no_thread_safety_analysis)

#endif
