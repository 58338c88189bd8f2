// The exported forms of the mode word.
#include "KXEffectsBlendModes.h"

uint32_t KXEffectsGetReverseBlendMode(uint32_t mode)
{
    return mode & ~kBlendReversedBit;
}

uint32_t KXEffectsGetNormalBlendMode(uint32_t mode)
{
    return NormalBlendMode(mode);
}
