// The ink of text in a rectangle of a read-back frame, and how two glyphs of
// it compare: the tests tell real Chinese glyphs from missing-glyph boxes by
// it (two different characters drawn as boxes are one shape twice).
#ifndef CXVIEWER_TESTS_LABELS_GLYPHINK_H
#define CXVIEWER_TESTS_LABELS_GLYPHINK_H

#include "ViewerFixture.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <vector>

namespace cxtest
{

/** A rectangle of a frame, true where there is ink. */
struct Ink
{
    int width = 0, height = 0;
    std::vector<bool> on;

    bool at(int x, int y) const
    {
        return x >= 0 && y >= 0 && x < width && y < height && on[static_cast<std::size_t>(y * width + x)];
    }
    int count() const { return static_cast<int>(std::count(on.begin(), on.end(), true)); }
};

/** The ink of the w x h rectangle at (x0, y0) (from the top left) of
  * `frame`: the pixels for which `isInk` holds. */
inline Ink inkOf(const osg::Image& frame, int x0, int y0, int w, int h,
                 const std::function<bool(int x, int y)>& isInk)
{
    Ink ink;
    x0 = std::max(0, x0);
    y0 = std::max(0, y0);
    ink.width = std::max(0, std::min(w, frame.s() - x0));
    ink.height = std::max(0, std::min(h, frame.t() - y0));
    for (int y = 0; y < ink.height; ++y)
        for (int x = 0; x < ink.width; ++x)
            ink.on.push_back(isInk(x0 + x, y0 + y));
    return ink;
}

/** Ink where `with` differs from `without` by more than `threshold` in a
  * channel: what `with` draws over the other. */
inline Ink inkBetween(const osg::Image& without, const osg::Image& with, int x0, int y0, int w, int h,
                      int threshold = 60)
{
    return inkOf(with, x0, y0, w, h, [&](int x, int y) {
        const osg::Vec4ub a = pixelAt(without, x, y), b = pixelAt(with, x, y);
        return std::max({std::abs(a.r() - b.r()), std::abs(a.g() - b.g()), std::abs(a.b() - b.b())}) > threshold;
    });
}

/** Share of the ink pixels of either that have no ink of the other within
  * `tolerance` pixels, comparing a's (ax + x, ay + y) with b's (bx + x,
  * by + y) over w x h (the larger ink when negative). */
inline double mismatch(const Ink& a, const Ink& b, int tolerance = 1, int ax = 0, int ay = 0, int bx = 0, int by = 0,
                       int w = -1, int h = -1)
{
    if (w < 0)
        w = std::max(a.width, b.width);
    if (h < 0)
        h = std::max(a.height, b.height);
    auto near = [tolerance](const Ink& ink, int x, int y) {
        for (int dy = -tolerance; dy <= tolerance; ++dy)
            for (int dx = -tolerance; dx <= tolerance; ++dx)
                if (ink.at(x + dx, y + dy))
                    return true;
        return false;
    };
    int total = 0, lonely = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
        {
            const bool inA = a.at(ax + x, ay + y), inB = b.at(bx + x, by + y);
            if (inA)
            {
                ++total;
                lonely += !near(b, bx + x, by + y);
            }
            if (inB)
            {
                ++total;
                lonely += !near(a, ax + x, ay + y);
            }
        }
    return total ? static_cast<double>(lonely) / total : 0.0;
}

/** For an ink of two glyphs side by side: splits it at the widest empty
  * gap of columns in its middle (or at the middle), aligns each glyph at
  * the top left corner of its own ink and compares them as mismatch() does.
  * Near 0 for one shape drawn twice, large for two different characters. */
inline double glyphMismatch(const Ink& ink, int tolerance = 1)
{
    std::vector<bool> column(static_cast<std::size_t>(ink.width), false);
    for (int x = 0; x < ink.width; ++x)
        for (int y = 0; y < ink.height && !column[x]; ++y)
            column[x] = ink.at(x, y);
    int first = -1, last = -1;
    for (int x = 0; x < ink.width; ++x)
        if (column[x])
        {
            if (first < 0)
                first = x;
            last = x;
        }
    if (first < 0 || last - first < 4)
        return 0.0;
    // The split: the widest run of empty columns between 30 and 70 % of the
    // ink's width.
    int split = (first + last) / 2, bestRun = 0;
    const int from = first + (last - first) * 3 / 10, to = first + (last - first) * 7 / 10;
    for (int x = from; x <= to;)
    {
        if (column[x])
        {
            ++x;
            continue;
        }
        int end = x;
        while (end <= to && !column[end])
            ++end;
        if (end - x > bestRun)
        {
            bestRun = end - x;
            split = (x + end) / 2;
        }
        x = end;
    }
    // Each glyph's own ink box.
    auto box = [&](int x0, int x1, int& left, int& top, int& right, int& bottom) {
        left = ink.width, top = ink.height, right = -1, bottom = -1;
        for (int y = 0; y < ink.height; ++y)
            for (int x = x0; x < x1; ++x)
                if (ink.at(x, y))
                {
                    left = std::min(left, x);
                    right = std::max(right, x);
                    top = std::min(top, y);
                    bottom = std::max(bottom, y);
                }
    };
    int l1, t1, r1, b1, l2, t2, r2, b2;
    box(first, split, l1, t1, r1, b1);
    box(split, last + 1, l2, t2, r2, b2);
    if (r1 < 0 || r2 < 0)
        return 1.0;
    // Only the glyphs' own pixels take part: blank the other glyph's.
    Ink left = ink, right = ink;
    for (int y = 0; y < ink.height; ++y)
        for (int x = 0; x < ink.width; ++x)
        {
            if (x >= split)
                left.on[static_cast<std::size_t>(y * ink.width + x)] = false;
            else
                right.on[static_cast<std::size_t>(y * ink.width + x)] = false;
        }
    const int w = std::max(r1 - l1, r2 - l2) + 1, h = std::max(b1 - t1, b2 - t2) + 1;
    return mismatch(left, right, tolerance, l1, t1, l2, t2, w, h);
}

} // namespace cxtest

#endif
