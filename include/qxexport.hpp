// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

/// QX_API marks what the shared library shows to its users; everything else stays hidden.
#if defined(QX_BUILDING_LIBRARY) || !defined(_WIN32)
#define QX_API __attribute__((visibility("default")))
#else
#define QX_API
#endif
