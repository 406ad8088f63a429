#include <globe/MBTilesOptions>

#include <osgDB/FileNameUtils>

namespace globe
{

MBTilesOptions::MBTilesOptions() = default;

MBTilesOptions::MBTilesOptions(const Config& conf)
{
    fromConfig(conf);
}

MBTilesOptions::~MBTilesOptions() = default;

void MBTilesOptions::fromConfig(const Config& conf)
{
    conf.get("driver", _driver);
    std::string path;
    if (conf.get("filename", path))
        _filename = resolvePath(path, conf.find("filename")->referrer());
    if (conf.get("url", path))
        _filename = resolvePath(path, conf.find("url")->referrer());
    conf.get("format", _format);
    conf.get("compute_levels", _computeLevels);
    conf.get("compress", _compress);
    conf.get("elevation_encoding", _elevationEncoding);
}

Config MBTilesOptions::getConfig() const
{
    Config conf("mbtiles");
    if (!_driver.empty())
        conf.set("driver", _driver);
    if (_filename)
        conf.set("filename", *_filename);
    if (_format)
        conf.set("format", *_format);
    if (_computeLevels)
        conf.set("compute_levels", *_computeLevels ? "true" : "false");
    if (_compress)
        conf.set("compress", *_compress ? "true" : "false");
    if (_elevationEncoding)
        conf.set("elevation_encoding", *_elevationEncoding);
    return conf;
}

std::string MBTilesOptions::resolvePath(const std::string& path, const std::string& referrer)
{
    std::string p = path;
    if (p.compare(0, 7, "file://") == 0)
        p = p.substr(7);
    if (p.empty() || referrer.empty() || osgDB::isAbsolutePath(p))
        return p;
    const std::string folder = osgDB::getFilePath(referrer);
    return folder.empty() ? p : osgDB::concatPaths(folder, p);
}

} // namespace globe
