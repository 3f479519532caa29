#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What can be said of images without evaluating the filter: by their bits, where one element or
all are known, and to rounding of any image: no element leaves the range of its neighbourhood, the
sum is kept, no direction is preferred.

    images_test.py LIBRARY
"""
import itertools
import math
import sys
import unittest

import numpy

from pipelines import PIPELINES, seeds

THOSE_THAT_RUN = [pipeline for pipeline in PIPELINES if pipeline.runs_here]


def from_bits(bits):
    return numpy.array(bits, "uint32").view("float32")[()]


def type_of(pipeline):
    return getattr(numpy, f"float{pipeline.bits}")


def blanks(pipeline, value):
    """Of the in-line and of the parallel path. In line, with two lanes, no element has
    neighbours on both sides."""
    for width in (pipeline.lanes, 3 * pipeline.lanes + 1):
        yield numpy.full((5,) * (pipeline.dimensions - 1) + (width,), value, type_of(pipeline))


class KnownValues(unittest.TestCase):
    def expect_middle(self, pipeline, image, threshold, wanted):
        found = pipeline.filtered(image, threshold)[tuple(n // 2 for n in image.shape)]
        self.assertEqual(found.tobytes(), type_of(pipeline)(wanted).tobytes(),
                         f"{pipeline.name}: {found}, wanted {wanted}, in {image.shape}")

    def test_constant_images_stay_and_negative_zero_turns_positive(self):
        for pipeline, threshold in itertools.product(THOSE_THAT_RUN, (0.3, -40.0, numpy.inf)):
            for value, wanted in ((7.3, 7.3), (-0.0, 0.0)):
                for image in blanks(pipeline, value):
                    self.assertEqual(pipeline.filtered(image, threshold).tobytes(),
                                     numpy.full_like(image, wanted).tobytes(), pipeline.name)

    def test_one_neighbour_pulls_with_its_weight(self):
        for pipeline in THOSE_THAT_RUN:
            T, root = type_of(pipeline), 1 / numpy.sqrt(3.0)
            g = T(0.5) if pipeline.quadratic else (
                from_bits(0x3ebc5ab2) if pipeline.bits == 32 else math.exp(-1.0))
            corner = from_bits(0x3eaaaaaa) if pipeline.bits == 32 else root * root
            for offset in itertools.product((-1, 0, 1), repeat=pipeline.dimensions):
                axes = sum(map(abs, offset))
                weight = T(0) if pipeline.minimal and axes > 1 else (T(0), T(1), T(0.5), corner)[axes]
                for image in blanks(pipeline, 0):
                    if axes == 0 or image.shape[-1] < 3:
                        continue
                    image[tuple(n // 2 + step for n, step in zip(image.shape, offset))] = 1
                    rate = T(1) / T(pipeline.neighbours)
                    for threshold, conductance in ((1, g), (-1, g), (-numpy.inf, 1), (1e39, 1)):
                        self.expect_middle(pipeline, image, threshold, weight * T(conductance) * rate)

    def test_negative_zeros_add_up(self):
        """Fluxes that vanish from below leave -0.0, for no sum starts from +0.0."""
        for pipeline in THOSE_THAT_RUN:
            for image in blanks(pipeline, -1):
                if image.shape[-1] >= 3:
                    image[tuple(n // 2 for n in image.shape)] = -0.0
                    self.expect_middle(pipeline, image, 0, -0.0)


class Properties(unittest.TestCase):
    def test_hold_of_any_image(self):
        count = 0
        for pipeline, random, replay in seeds("images", 100, 10000):
            count += 1
            draw = numpy.random.default_rng(random.getrandbits(64))
            shape = [random.randint(1, 7) for _ in range(pipeline.dimensions - 1)]
            shape.append(random.randint(1, 3 * pipeline.lanes + 5))
            image = random.choice((
                lambda: draw.random(shape) * 255,
                lambda: 100 + 3.7 * (numpy.arange(numpy.prod(shape)).reshape(shape) % 9),
                lambda: (draw.random(shape) < 0.2) * draw.random(shape) * 255,
                lambda: draw.integers(-3, 4, shape)))().astype(type_of(pipeline))
            threshold = (0.5 + random.random()) * 2.0 ** random.randint(-3, 9)
            result = pipeline.filtered(image, threshold)
            # A bound of the rounding of one element: the sum of the fluxes, which are no more than
            # the range each, takes an error of half an epsilon of itself with each term, and so do
            # the rounding of each flux and of the result. The weights times the rate sum up to no
            # more than 1.
            rounding = numpy.finfo(image.dtype).eps * (
                abs(image).max() + pipeline.neighbours * numpy.ptp(image))

            padded = numpy.pad(image, 1, "edge")
            around = [padded[tuple(slice(1 + step, 1 + step + n) for step, n in zip(offset, shape))]
                      for offset in itertools.product((-1, 0, 1), repeat=pipeline.dimensions)
                      if not pipeline.minimal or sum(map(abs, offset)) <= 1]
            self.assertTrue((result >= numpy.min(around, 0) - rounding).all(), replay)
            self.assertTrue((result <= numpy.max(around, 0) + rounding).all(), replay)

            # What flows out of an element flows into its neighbour; that holds of `maximal` too, as
            # the elements that stand in beyond the border do so for each other.
            change = (result.astype(numpy.longdouble) - image).sum()
            self.assertLessEqual(abs(change), image.size * rounding, replay)

            # Axes exchanged and reversed: only the order of the sums differs.
            axes = random.sample(range(pipeline.dimensions), pipeline.dimensions)
            steps = tuple(slice(None, None, random.choice((1, -1))) for _ in axes)
            turned = numpy.ascontiguousarray(image.transpose(axes)[steps])
            difference = pipeline.filtered(turned, threshold) - result.transpose(axes)[steps]
            self.assertLessEqual(abs(difference).max(), rounding, replay)
        print(f"images within each range, of one sum, alike when turned\t{count}", flush=True)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], failfast=True)
