#!/usr/bin/env python3
"""Makes the companion images of the sample photograph that the gallery hands to effects which take a
second image, a mask or a grain. Run once; the results are committed beside this script."""
import pathlib

import cv2
import numpy as np

HERE = pathlib.Path(__file__).resolve().parent
# Half the photograph's size: the gallery brings companions to the size it works at.
SIZE = (300, 200)


def second_photo(photo):
    """The photograph mirrored, its hues turned from red to blue: a lower layer that differs."""
    hsv = cv2.cvtColor(cv2.flip(photo, 1), cv2.COLOR_BGR2HSV)
    hsv[..., 0] = (hsv[..., 0].astype(np.int32) + 105) % 180
    return cv2.resize(cv2.cvtColor(hsv, cv2.COLOR_HSV2BGR), SIZE, interpolation=cv2.INTER_AREA)


def soft_mask(photo):
    """One plane: the blurred luma stretched to the full range, so the cup is white and the wood dark."""
    luma = cv2.GaussianBlur(cv2.cvtColor(photo, cv2.COLOR_BGR2GRAY), (0, 0), 6)
    mask = cv2.normalize(luma, None, 0, 255, cv2.NORM_MINMAX)
    return cv2.resize(mask, SIZE, interpolation=cv2.INTER_AREA)


def grain_tile():
    """A 256 x 256 tile of film-like grain around mid-gray, which leaves a picture as it is."""
    noise = np.random.default_rng(7).normal(128.0, 70.0, (256, 256)).astype(np.float32)
    # Blurred over a wrapped border, so that the tile repeats without seams.
    wrapped = cv2.copyMakeBorder(noise, 4, 4, 4, 4, cv2.BORDER_WRAP)
    clumped = cv2.GaussianBlur(wrapped, (0, 0), 0.7)[4:-4, 4:-4]
    return np.clip(clumped + 0.5, 0, 255).astype(np.uint8)


def trimap(photo):
    """One plane at the photograph's size: the crockery, drawn by hand as two ellipses and the spoon's
    handle, certain (255) inside, the wood certain (0) outside, unknown (128) within 9 pixels of the drawn
    edge."""
    shape = np.zeros(photo.shape[:2], np.uint8)
    cv2.ellipse(shape, (279, 232), (202, 155), -4, 0, 360, 255, -1)  # saucer
    cv2.ellipse(shape, (291, 112), (118, 96), 0, 0, 360, 255, -1)  # cup
    cv2.line(shape, (411, 74), (392, 190), 255, 16)  # spoon handle
    disc = cv2.getStructuringElement(cv2.MORPH_ELLIPSE, (19, 19))
    result = np.where(cv2.dilate(shape, disc) > 0, 128, 0).astype(np.uint8)
    result[cv2.erode(shape, disc) > 0] = 255
    return result


def main():
    photo = cv2.imread(str(HERE / "coffee.png"), cv2.IMREAD_COLOR)
    cv2.imwrite(str(HERE / "coffee-second.png"), second_photo(photo))
    cv2.imwrite(str(HERE / "coffee-mask.png"), soft_mask(photo))
    cv2.imwrite(str(HERE / "grain.png"), grain_tile())
    cv2.imwrite(str(HERE / "coffee-trimap.png"), trimap(photo))


if __name__ == "__main__":
    main()
