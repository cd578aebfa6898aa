/**
 * @file
 * Linkage of the public interface: C names, exported from the shared library.
 */
#ifndef KZDDL_API_H
#define KZDDL_API_H

#ifdef __cplusplus
#define KZDDL_BEGIN_DECLS extern "C" {
#define KZDDL_END_DECLS }
#else
#define KZDDL_BEGIN_DECLS
#define KZDDL_END_DECLS
#endif

/** Marks a function or variable that the library exports. */
#define KZDDL_API __attribute__((visibility("default")))

#endif
