/**
 * @file
 * Linkage of the public interface: C names, exported from the shared library.
 *
 * The headers need POSIX. In strict C (-std=c11) include one of them before any system
 * header, or define _POSIX_C_SOURCE as 200809L.
 */
#ifndef KZDDL_API_H
#define KZDDL_API_H

#if defined __STRICT_ANSI__ && !defined _POSIX_C_SOURCE && !defined _XOPEN_SOURCE && \
    !defined _GNU_SOURCE
#define _POSIX_C_SOURCE 200809L
#endif

#ifdef __cplusplus
/** Begins declarations of C names. */
#define KZDDL_BEGIN_DECLS extern "C" {
/** Ends them. */
#define KZDDL_END_DECLS }
#else
#define KZDDL_BEGIN_DECLS
#define KZDDL_END_DECLS
#endif

/** Marks a function or variable that the library exports. */
#define KZDDL_API __attribute__((visibility("default")))

#endif
