// SPDX-License-Identifier: Apache-2.0
// Marks for the functions that libkrelvcp.so exports. C and C++.
#ifndef KREL_BASE_EXPORT_H
#define KREL_BASE_EXPORT_H

#define KREL_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
#define KREL_C_BEGIN extern "C" {
#define KREL_C_END }
#else
#define KREL_C_BEGIN
#define KREL_C_END
#endif

#endif
