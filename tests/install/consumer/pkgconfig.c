/* Built with nothing but the flags of pkg-config kxeffects: the C interface compiles and links. */
#include "KXEffects.h"

#include <stdio.h>

int main(void)
{
    const KXRect bounds = {3, 2, 2, 1};
    const uint8_t input[2] = {0, 200};
    uint8_t output[2] = {0, 0};
    KXImage* image = NULL;
    if (KXEffectsTest() != 0 ||
        KXImageCreateWithParams2(&bounds, 8, 1, KXColorSpaceGray, 0, KXDataSourceMemory, &image) != 0)
        return 1;
    KXImageWrite2(image, &bounds, 0, -1, input, -1, 0);
    const int32_t status = KXEffectsInvert(image, image, &bounds);
    KXImageRead2(image, &bounds, 0, -1, output, -1, 0);
    KXImageRelease(image);
    if (status != 0 || output[0] != 255 || output[1] != 55) {
        printf("pkg-config consumer: status %d, samples %d %d\n", (int)status, output[0], output[1]);
        return 1;
    }
    return 0;
}
