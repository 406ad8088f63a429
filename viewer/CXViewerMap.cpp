// The map: earth file, manipulator, sky and the local MBTiles layers.
#include <viewer/CXViewer>

#include <cctype>
#include <filesystem>
#include <system_error>

void CXViewer::InitOsgEarth()
{
    // The globe module has not landed yet: the scene stays map-less and the
    // manipulator installed by InitSceneGraph stays in force.
}

void CXViewer::addearthLabel()
{
    // The region labels join when the label module lands.
}

namespace
{

// "*.ive" as the directory search matched it: the name ends in ".ive",
// compared without regard to case.
bool matchesIvePattern(const std::string& name)
{
    if (name.size() < 4)
        return false;
    std::string tail = name.substr(name.size() - 4);
    for (char& c : tail)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return tail == ".ive";
}

} // namespace

void CXViewer::dfsFolder(std::string folder, std::vector<std::string>& files)
{
    // The same pattern filters directories, so the walk descends only into
    // directories whose own name ends in ".ive".
    std::error_code error;
    std::filesystem::directory_iterator it(folder, error);
    if (error)
        return;
    for (const std::filesystem::directory_iterator end; it != end; it.increment(error))
    {
        if (error)
            return;
        const std::string name = it->path().filename().string();
        if (!matchesIvePattern(name))
            continue;
        const std::string path = folder + "/" + name;
        if (it->is_directory(error))
        {
            if (name != "." && name != "..")
                dfsFolder(path, files);
        }
        else
        {
            files.push_back(path);
        }
    }
}
