/*
 * nexcfg_abi.h - the macros that mark the library's C boundary.
 *
 * Both public headers include this one. Declarations between
 * NXC_BEGIN_DECLS and NXC_END_DECLS get C linkage; NXC_NOEXCEPT makes the
 * C++ view of each function match its noexcept definition, so no exception
 * can ever cross an exported function.
 */
#ifndef NEXCFG_ABI_H
#define NEXCFG_ABI_H

#ifdef __cplusplus
#define NXC_BEGIN_DECLS extern "C" {
#define NXC_END_DECLS }
#define NXC_NOEXCEPT noexcept
#else
#define NXC_BEGIN_DECLS
#define NXC_END_DECLS
#define NXC_NOEXCEPT
#endif

#define NXC_EXPORT __attribute__((visibility("default")))
#define NXC_NODISCARD __attribute__((warn_unused_result))
#define NXC_PRINTF(fmtIndex, firstArg) __attribute__((format(printf, fmtIndex, firstArg)))

#endif /* NEXCFG_ABI_H */
