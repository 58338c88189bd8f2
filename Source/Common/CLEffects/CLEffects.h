/* CLEffects: the OpenCL path of KXEffects. */
#ifndef CLEFFECTS_H
#define CLEFFECTS_H

#include "KXCore.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct CLContext CLContext;

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* CLEFFECTS_H */
