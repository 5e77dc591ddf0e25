// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

/* Memory contexts of the direct solvers, in C: between qxcArm and qxcDisarm a context records what the solver library
   allocates, watches the cancel flag and leaves by a long jump, so that a factorisation can be stopped from inside and
   all its memory be freed afterwards.

       qxcSetID(id);                               select the context for this thread
       code = setjmp(*qxcGetEnvPtr());             in the frame that calls the library
       if (code > 0) return code;                  one of the codes below; the context is disarmed already
       qxcArm();
       status = library_call(...);                 its allocations arrive in qxcMalloc and its kin
       qxcDisarm();

   The frame with the setjmp, and all between it and the jump, hold no objects with destructors; locals changed after
   setjmp are volatile. After a jump nothing of the library's own may be touched: qxcFreeAll frees its blocks.

   Threads: the selection is per thread, so two threads may work with two contexts at once. One context belongs to one
   thread at a time. A jump is made only on the thread that armed the context. */

#include "qxexport.hpp"

#include <setjmp.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What arrives through the long jump. */
enum {
    qxcOutOfMemory = 1,      /* the context's own bookkeeping could not grow */
    qxcCallocFailed = 4,     /* the same in a zeroed allocation */
    qxcCancelled = 6,        /* the cancel flag was seen */
    qxcOverflowInBlas = 8    /* raised by a host's BLAS layer or a test */
};

/* A new context, or a freed one again: its id, 0 or more; -1 when there is no memory for it. */
QX_API int qxcNextFreeID(void);
/* Selects a context for the calling thread; -1 selects none. Returns 0, or -1 for an id that is not in use (the
   selection is none then). */
QX_API int qxcSetID(int id);
/* Frees all blocks of the context and gives its id back; threads that selected it must select anew. */
QX_API void qxcFreeID(int id);
/* Frees all recorded blocks of the selected context and forgets its addresses and faults. */
QX_API void qxcFreeAll(void);

/* Jump buffer of the selected context; null without one. */
QX_API jmp_buf* qxcGetEnvPtr(void);
/* From here on, until qxcDisarm or a jump, calls on this thread are recorded and may jump into the buffer. */
QX_API void qxcArm(void);
QX_API void qxcDisarm(void);

/* Addresses lent to the selected context; null: none. Non-zero at the first means cancelled. */
QX_API void qxcSetCancelAdr(const volatile int* flag);
QX_API void qxcSetLastProgressAdr(double* progress);
QX_API void qxcSetParamValueAdr(double* value);

/* Looks at the cancel flag and jumps with qxcCancelled if it is set. To be called often; cost: a few reads. */
QX_API void qxcPoll(void);
/* Stores how far the work is, and the value of the run's parameter, where the addresses say. */
QX_API void qxcReportProgress(double progress);
QX_API void qxcReportParam(double value);

/* Allocation for the solver library: blocks are plain malloc blocks. Exhausted memory gives null, so that the library
   may retry with less. Without an armed context they are malloc, calloc, realloc and free; a recorded block may be
   freed or resized at any time and from any thread. */
QX_API void* qxcMalloc(size_t size);
QX_API void* qxcCalloc(size_t count, size_t size);
QX_API void* qxcRealloc(void* block, size_t size);
QX_API void qxcFree(void* block);

/* Recorded blocks of the selected context. */
QX_API long qxcBlockCount(void);
/* For tests: at the n-th call (n >= 1) of an allocation or of qxcPoll from now on in the armed context, jump with code,
   or with code 0 let the allocation fail. */
QX_API void qxcSetFault(int code, long n);

#ifdef __cplusplus
}
#endif
