// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

/* UMFPACK inside a memory context: its allocations are recorded, its work is counted, and a cancelled run leaves it by a
   long jump from between two BLAS calls. In C, since a long jump over objects with destructors is undefined. */

#include "qxcutil.h"

#include <SuiteSparse_config.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifdef QX_UMFPACK_POLLS_BLAS
/* What the library's private copy of UMFPACK takes for SuiteSparse_config and its allocations: they lead to qxcMalloc and its
   kin. */
extern struct SuiteSparse_config_struct qx_umfpack_config;
void* qx_umfpack_malloc(size_t count, size_t size);
void* qx_umfpack_free(void* block);
#endif

/* Routes a shared UMFPACK's allocations through qxcMalloc and its kin, once and for good. Without an armed context they behave
   as malloc and free, so other users of the library in the process notice nothing. Any thread. */
void umfpackInstallHooks(void);

/* Who is told of progress on this thread, when a further hundredth of the predicted work is done: fraction runs from 0 to
   1. Called between two BLAS calls. Must not raise; returns 0 to go on, anything else to leave as if cancelled. A null
   function: nobody. */
typedef int (*umfpackReporter)(void* host, double fraction);
void umfpackSetReporter(umfpackReporter reporter, void* host);

/* Threads for the large products of the factorisations of this thread: 1 and more cut them into panels, the same bits for
   any number; 0 calls BLAS as it is. */
void umfpackSetTeam(int threads);

/* The four factorisation calls. Each takes the arguments of the UMFPACK function of that name and a place for its
   status, and needs a selected context. Returns 0 after the call, or the code of a long jump (see qxcutil.h): the
   status is then not set, and the object that was to be made must not be touched. The numeric forms report progress
   as the share of the work that the symbolic analysis in Info predicts. */
int wrap_umfpack_dl_symbolic(long m, long n, const long Ap[], const long Ai[], const double Ax[], void** Symbolic,
                             const double Control[], double Info[], long* status);
int wrap_umfpack_zl_symbolic(long m, long n, const long Ap[], const long Ai[], const double Ax[], const double Az[],
                             void** Symbolic, const double Control[], double Info[], long* status);
int wrap_umfpack_dl_numeric(const long Ap[], const long Ai[], const double Ax[], void* Symbolic, void** Numeric,
                            const double Control[], double Info[], long* status);
int wrap_umfpack_zl_numeric(const long Ap[], const long Ai[], const double Ax[], const double Az[], void* Symbolic,
                            void** Numeric, const double Control[], double Info[], long* status);

#ifdef __cplusplus
}
#endif
