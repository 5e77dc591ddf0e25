// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxcutil.h"

#include <pthread.h>
#include <stdlib.h>

typedef struct {
    jmp_buf env;
    int inUse;
    void** blocks;
    size_t count;
    size_t capacity;
    const volatile int* cancel;
    double* progress;
    double* param;
    int faultCode;
    long faultAfter; /* calls until the fault; 0: none planned */
} Context;

/* Contexts by id; never freed, so that a stale selection cannot point into nowhere. Guarded, with all tables of blocks,
   by the mutex: a block may be freed on another thread than the one that recorded it. */
static Context** contexts;
static int contextCount;
static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

static _Thread_local Context* selected;
static _Thread_local int armed;

static void jump(int code)
{
    armed = 0;
    longjmp(selected->env, code);
}

static int addContext(void)
{
    Context** grown = realloc(contexts, (size_t)(contextCount + 1) * sizeof *contexts);
    if (!grown)
        return -1;
    contexts = grown;
    contexts[contextCount] = calloc(1, sizeof(Context));
    if (!contexts[contextCount])
        return -1;
    return contextCount++;
}

int qxcNextFreeID(void)
{
    pthread_mutex_lock(&mutex);
    int id = 0;
    while (id < contextCount && contexts[id]->inUse)
        ++id;
    if (id == contextCount)
        id = addContext();
    if (id >= 0)
        contexts[id]->inUse = 1;
    pthread_mutex_unlock(&mutex);
    return id;
}

int qxcSetID(int id)
{
    pthread_mutex_lock(&mutex);
    const int known = id >= 0 && id < contextCount && contexts[id]->inUse;
    selected = known ? contexts[id] : NULL;
    pthread_mutex_unlock(&mutex);
    armed = 0;
    return known || id == -1 ? 0 : -1;
}

static void release(Context* context)
{
    for (size_t i = 0; i < context->count; ++i)
        free(context->blocks[i]);
    free(context->blocks);
    context->blocks = NULL;
    context->count = context->capacity = 0;
    context->cancel = NULL;
    context->progress = context->param = NULL;
    context->faultAfter = 0;
}

void qxcFreeID(int id)
{
    pthread_mutex_lock(&mutex);
    if (id >= 0 && id < contextCount && contexts[id]->inUse) {
        release(contexts[id]);
        contexts[id]->inUse = 0;
        if (selected == contexts[id]) {
            selected = NULL;
            armed = 0;
        }
    }
    pthread_mutex_unlock(&mutex);
}

void qxcFreeAll(void)
{
    if (!selected)
        return;
    armed = 0;
    pthread_mutex_lock(&mutex);
    release(selected);
    pthread_mutex_unlock(&mutex);
}

jmp_buf* qxcGetEnvPtr(void) { return selected ? &selected->env : NULL; }
void qxcArm(void) { armed = selected != NULL; }
void qxcDisarm(void) { armed = 0; }

void qxcSetCancelAdr(const volatile int* flag)
{
    if (selected)
        selected->cancel = flag;
}

void qxcSetLastProgressAdr(double* progress)
{
    if (selected)
        selected->progress = progress;
}

void qxcSetParamValueAdr(double* value)
{
    if (selected)
        selected->param = value;
}

void qxcReportProgress(double progress)
{
    if (selected && selected->progress)
        *selected->progress = progress;
}

void qxcReportParam(double value)
{
    if (selected && selected->param)
        *selected->param = value;
}

/* Returns 1 when the planned fault is a failing allocation and due; jumps when it is a code and due. */
static int faultIsDue(void)
{
    if (selected->faultAfter == 0 || --selected->faultAfter > 0)
        return 0;
    if (selected->faultCode > 0)
        jump(selected->faultCode);
    return 1;
}

/* One look at the cancel flag and the planned fault, in an armed context. Returns 1 when an allocation is to fail. */
static int look(void)
{
    if (selected->cancel && __atomic_load_n(selected->cancel, __ATOMIC_RELAXED) != 0)
        jump(qxcCancelled);
    return faultIsDue();
}

void qxcPoll(void)
{
    if (armed)
        look();
}

/* Room for one more block; 0 when there is no memory for it. */
static int reserve(Context* context)
{
    if (context->count < context->capacity)
        return 1;
    const size_t capacity = context->capacity ? 2 * context->capacity : 64;
    void** grown = realloc(context->blocks, capacity * sizeof *grown);
    if (!grown)
        return 0;
    context->blocks = grown;
    context->capacity = capacity;
    return 1;
}

/* Takes a fresh block into the selected context's table, or frees it and jumps with code. */
static void* record(void* block, int code)
{
    if (!block)
        return NULL;
    pthread_mutex_lock(&mutex);
    const int kept = reserve(selected);
    if (kept)
        selected->blocks[selected->count++] = block;
    pthread_mutex_unlock(&mutex);
    if (!kept) {
        free(block);
        jump(code);
    }
    return block;
}

void* qxcMalloc(size_t size)
{
    if (!armed)
        return malloc(size);
    if (look())
        return NULL;
    return record(malloc(size), qxcOutOfMemory);
}

void* qxcCalloc(size_t count, size_t size)
{
    if (!armed)
        return calloc(count, size);
    if (look())
        return NULL;
    return record(calloc(count, size), qxcCallocFailed);
}

/* The place where block is recorded, in whichever context; null if it is not. The newest blocks are looked at first. */
static void** placeOf(void* block, Context** owner)
{
    for (int id = 0; id < contextCount; ++id) {
        Context* context = contexts[id];
        for (size_t i = context->count; i-- > 0;)
            if (context->blocks[i] == block) {
                *owner = context;
                return &context->blocks[i];
            }
    }
    return NULL;
}

void* qxcRealloc(void* block, size_t size)
{
    if (!block)
        return qxcMalloc(size);
    if (armed && look())
        return NULL;
    Context* owner = NULL;
    pthread_mutex_lock(&mutex);
    void** place = placeOf(block, &owner);
    void* moved = realloc(block, size);
    if (place && moved)
        *place = moved;
    pthread_mutex_unlock(&mutex);
    return moved;
}

void qxcFree(void* block)
{
    if (!block)
        return;
    Context* owner = NULL;
    pthread_mutex_lock(&mutex);
    void** place = placeOf(block, &owner);
    if (place)
        *place = owner->blocks[--owner->count];
    pthread_mutex_unlock(&mutex);
    free(block);
}

long qxcBlockCount(void)
{
    if (!selected)
        return 0;
    pthread_mutex_lock(&mutex);
    const long count = (long)selected->count;
    pthread_mutex_unlock(&mutex);
    return count;
}

void qxcSetFault(int code, long n)
{
    if (!selected)
        return;
    selected->faultCode = code;
    selected->faultAfter = n;
}
