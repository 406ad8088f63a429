#include <globe/Fonts>

#include <osgDB/FileNameUtils>
#include <osgDB/FileUtils>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <system_error>
#include <vector>

namespace globe
{

namespace
{

namespace fs = std::filesystem;

// Installed CJK font files, best first: WenQuanYi Zen Hei (fonts-wqy-zenhei,
// a dependency of the library), then other common CJK fonts of Debian.
const char* const kCJKFontFiles[] = {
    "/usr/share/fonts/truetype/wqy/wqy-zenhei.ttc",
    "/usr/share/fonts/truetype/wqy/wqy-microhei.ttc",
    "/usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc",
    "/usr/share/fonts/truetype/droid/DroidSansFallbackFull.ttf",
};

const char* const kCJKFontName = "WenQuanYi Zen Hei";

std::vector<fs::path> systemFontFolders()
{
    std::vector<fs::path> folders = {"/usr/share/fonts", "/usr/local/share/fonts"};
    if (const char* home = std::getenv("HOME"); home && *home)
    {
        folders.push_back(fs::path(home) / ".fonts");
        folders.push_back(fs::path(home) / ".local/share/fonts");
    }
    if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data)
        folders.push_back(fs::path(data) / "fonts");
    return folders;
}

// A file called `name` (compared without regard to case) below `folder`.
std::string findBelow(const fs::path& folder, const std::string& name)
{
    const std::string wanted = osgDB::convertToLowerCase(name);
    std::error_code error;
    if (!fs::is_directory(folder, error))
        return {};
    fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, error);
    for (const fs::recursive_directory_iterator end; !error && it != end; it.increment(error))
    {
        if (osgDB::convertToLowerCase(it->path().filename().string()) != wanted)
            continue;
        std::error_code fileError;
        if (it->is_regular_file(fileError))
            return it->path().string();
    }
    return {};
}

// The folders in which OpenSceneGraph's own font lookup searches, after the
// data file paths.
const osgDB::FilePathList& osgFontFolders()
{
    static const osgDB::FilePathList folders = {".", "/usr/share/fonts/ttf", "/usr/share/fonts/ttf/western",
                                                "/usr/share/fonts/ttf/decoratives"};
    return folders;
}

bool isFile(const std::string& path)
{
    std::error_code error;
    return !path.empty() && fs::is_regular_file(path, error);
}

// The named file where it exists: the data file paths (also their "fonts"
// subfolders) and OpenSceneGraph's font folders, then the system's font
// folders. (osgText::findFontFile is no help here: built with fontconfig, it
// answers any name with some installed font.)
std::string findNamedFile(const std::string& name)
{
    if (name.empty())
        return {};
    std::string found = osgDB::findDataFile(name);
    if (isFile(found))
        return found;
    found = osgDB::findFileInPath(name, osgFontFolders());
    if (isFile(found))
        return found;
    const std::string simple = osgDB::getSimpleFileName(name);
    found = osgDB::findDataFile("fonts/" + simple);
    if (isFile(found))
        return found;
    for (const fs::path& folder : systemFontFolders())
    {
        found = findBelow(folder, simple);
        if (!found.empty())
            return found;
    }
    return {};
}

// Resolved files by name, for the whole process.
std::mutex s_resolvedMutex;
std::map<std::string, std::string> s_resolved;

std::string resolveOnce(const std::string& name)
{
    std::lock_guard<std::mutex> lock(s_resolvedMutex);
    auto found = s_resolved.find(name);
    if (found == s_resolved.end())
        found = s_resolved.emplace(name, resolveFontFile(name)).first;
    return found->second;
}

osg::ref_ptr<osgText::Font> readCached(const std::string& file, const osgDB::Options* options)
{
    // Cached objects are found again by file name and equal options.
    osg::ref_ptr<osgDB::Options> cached =
        options ? static_cast<osgDB::Options*>(options->clone(osg::CopyOp::SHALLOW_COPY)) : new osgDB::Options;
    cached->setObjectCacheHint(osgDB::Options::CACHE_OBJECTS);
    return osgText::readRefFontFile(file, cached.get());
}

} // namespace

std::string getCJKFallbackFont()
{
    for (const char* file : kCJKFontFiles)
    {
        std::error_code error;
        if (fs::is_regular_file(file, error))
            return file;
    }
    return kCJKFontName;
}

std::string resolveFontFile(const std::string& name)
{
    const std::string found = findNamedFile(name);
    return found.empty() ? getCJKFallbackFont() : found;
}

osg::ref_ptr<osgText::Font> readFont(const std::string& name, const osgDB::Options* options)
{
    const std::string file = resolveOnce(name);
    osg::ref_ptr<osgText::Font> font = readCached(file, options);
    if (!font.valid() && file != getCJKFallbackFont())
        font = readCached(getCJKFallbackFont(), options);
    return font;
}

} // namespace globe
