#include "PngFile.h"

#include "Error.h"
#include "OutputFile.h"

#include <osgDB/Registry>

#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace cxsample
{

void makeFolder(const fs::path& folder)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (error || !fs::is_directory(folder))
        throw Error("cannot create the folder " + folder.string() + (error ? ": " + error.message() : std::string()));
}

std::uintmax_t writePng(const osg::Image& image, const fs::path& path)
{
    makeFolder(path.parent_path());
    osgDB::ReaderWriter* png = osgDB::Registry::instance()->getReaderWriterForExtension("png");
    if (!png)
        throw Error("cannot write PNG images: OpenSceneGraph has no png plugin");

    const std::string temporary = cxtool::temporaryPathFor(path.string());
    cxtool::PendingFile pending(temporary);
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out || !png->writeImage(image, out).success() || !out.flush())
            throw Error("cannot write " + path.string());
    }
    cxtool::syncFile(temporary);
    std::error_code error;
    fs::rename(temporary, path, error);
    if (error)
        throw Error("cannot write " + path.string() + ": " + error.message());
    pending.release();
    const std::uintmax_t size = fs::file_size(path, error);
    return error ? 0 : size;
}

} // namespace cxsample
