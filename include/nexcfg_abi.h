/*
 * nexcfg_abi.h - the macros that mark the library's C boundary.
 *
 * Both public headers include this one. Declarations between
 * NXC_BEGIN_DECLS and NXC_END_DECLS get C linkage; NXC_NOEXCEPT makes the
 * C++ view of each function match its noexcept definition, so no exception
 * can ever cross an exported function. NXC_NODISCARD marks the results a
 * C++ caller must look at (every truth value that tells success); C11 has
 * no such attribute, so C sees nothing.
 */
#ifndef NEXCFG_ABI_H
#define NEXCFG_ABI_H

#ifdef __cplusplus
#define NXC_BEGIN_DECLS extern "C" {
#define NXC_END_DECLS }
#define NXC_NOEXCEPT noexcept
#define NXC_NODISCARD [[nodiscard]]
#else
#define NXC_BEGIN_DECLS
#define NXC_END_DECLS
#define NXC_NOEXCEPT
#define NXC_NODISCARD
#endif

#define NXC_EXPORT __attribute__((visibility("default")))
#define NXC_PRINTF(fmtIndex, firstArg) __attribute__((format(printf, fmtIndex, firstArg)))

#endif /* NEXCFG_ABI_H */
