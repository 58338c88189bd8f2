// The band weight of the selections, shared with the tone tools that protect a band of luma.
#pragma once

// (3 - 2t) t t, multiplied in this order: the smoothstep of the band shoulders and of the ellipsoid falloff.
inline float ShoulderStep(float t)
{
    return (3.0f - 2.0f * t) * t * t;
}

// The trapezoid: 0 outside a..d, 1 over b..c, smoothstep shoulders between. b = a or c = d is a hard edge.
inline float RangeWeight(float x, float a, float b, float c, float d)
{
    if (x < a || x > d)
        return 0.0f;
    float w = 1.0f;
    if (x < b)
        w = ShoulderStep((x - a) / (b - a));
    if (x > c)
        w = w * ShoulderStep((d - x) / (d - c));
    return w;
}
