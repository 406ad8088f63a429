// PNG files of the sample's pictures (sky box faces, HUD pictures), written
// the way every output of the tools is: into a temporary file beside the
// target, synced, then renamed over it, so that a reader never sees half a
// picture.
#ifndef CXVIEWER_APPS_CXSAMPLE_PNGFILE_H
#define CXVIEWER_APPS_CXSAMPLE_PNGFILE_H

#include <osg/Image>

#include <cstdint>
#include <filesystem>

namespace cxsample
{

/** Creates `folder` and its parents; throws Error when it cannot. */
void makeFolder(const std::filesystem::path& folder);

/** Writes `image` as a PNG file at `path`, creating its folder; returns the
 *  file's size in bytes. Throws Error when it cannot. */
std::uintmax_t writePng(const osg::Image& image, const std::filesystem::path& path);

} // namespace cxsample

#endif
