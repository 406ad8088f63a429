// The reader of earth files: an XML map description that
// osgDB::readNodeFile("....earth") turns into a globe::MapNode. The library
// registers it when it loads, so no plugin search is involved.
//
//   <map name="..." type="geocentric" version="2">
//     <image name="..." driver="mbtiles">
//       <filename>relative/or/absolute.db</filename>   (or <url>)
//       <format>jpg</format>                            (optional)
//     </image>
//     <elevation name="..." driver="mbtiles">
//       <url>dem.db</url>
//       <elevation_encoding>terrarium</elevation_encoding>  (optional)
//     </elevation>
//   </map>
//
// Element and attribute names are read in any case; elements this reader does
// not know are ignored. A layer with another driver is kept in the map but has
// no data (its status message names the driver). Paths are relative to the earth file and UTF-8. A
// missing file, malformed XML, a root that is not <map>, or a map type other
// than geocentric gives no node.

#include <globe/ElevationLayer>
#include <globe/ImageLayer>
#include <globe/Map>
#include <globe/MapNode>

#include <osgDB/FileNameUtils>
#include <osgDB/FileUtils>
#include <osgDB/ReaderWriter>
#include <osgDB/Registry>
#include <osgDB/XmlParser>

#include <tinyxml.h>

#include <cctype>
#include <fstream>
#include <iterator>
#include <sstream>

namespace globe
{
namespace
{

constexpr std::streamsize kMaxEarthFileBytes = 16 * 1024 * 1024;

// An element as a Config: its name is the key, its text the value, and its
// attributes and child elements the children, in document order.
Config toConfig(const TiXmlElement& element)
{
    Config conf(osgDB::convertToLowerCase(element.ValueStr()));
    std::string text;
    for (const TiXmlAttribute* a = element.FirstAttribute(); a; a = a->Next())
        conf.add(osgDB::convertToLowerCase(a->NameTStr()), a->ValueStr());
    for (const TiXmlNode* child = element.FirstChild(); child; child = child->NextSibling())
    {
        if (const TiXmlText* t = child->ToText())
            text += t->ValueStr();
        else if (const TiXmlElement* e = child->ToElement())
            conf.add(toConfig(*e));
    }
    conf.setValue(osgDB::trimEnclosingSpaces(text));
    return conf;
}

osgDB::ReaderWriter::ReadResult readMap(const std::string& xml, const std::string& referrer)
{
    using Result = osgDB::ReaderWriter::ReadResult;
    TiXmlDocument document;
    document.Parse(xml.c_str(), nullptr, TIXML_ENCODING_UTF8);
    if (document.Error())
        return Result(std::string("malformed earth file: ") + document.ErrorDesc());
    const TiXmlElement* root = document.RootElement();
    if (!root || osgDB::convertToLowerCase(root->ValueStr()) != "map")
        return Result("the earth file holds no <map>");

    Config conf = toConfig(*root);
    conf.setReferrer(referrer);
    const std::string type = osgDB::convertToLowerCase(osgDB::trimEnclosingSpaces(conf.value("type")));
    if (!type.empty() && type != "geocentric" && type != "globe" && type != "round")
        return Result("unsupported map type \"" + type + "\"; only geocentric maps are read");

    osg::ref_ptr<Map> map = new Map;
    map->setName(conf.value("name"));
    for (const Config& child : conf.children())
    {
        const bool image = child.key() == "image";
        const bool elevation = child.key() == "elevation" || child.key() == "heightfield";
        if (!image && !elevation)
            continue;
        const MBTilesOptions options(child);
        const std::string name = child.value("name");
        osg::ref_ptr<Layer> layer;
        if (image)
            layer = new ImageLayer(name, options);
        else
            layer = new ElevationLayer(name, options);
        bool enabled = true;
        if (child.get("enabled", enabled))
            layer->setEnabled(enabled);
        map->addLayer(layer.get());
    }

    osg::ref_ptr<MapNode> node = new MapNode(map.get());
    node->setName(map->getName());
    return node.release();
}

class ReaderWriterEarth : public osgDB::ReaderWriter
{
public:
    ReaderWriterEarth() { supportsExtension("earth", "Globe map description (XML)"); }

    const char* className() const override { return "globe earth file reader"; }

    ReadResult readObject(const std::string& fileName, const Options* options) const override
    {
        return readNode(fileName, options);
    }

    ReadResult readObject(std::istream& in, const Options* options) const override { return readNode(in, options); }

    ReadResult readNode(const std::string& fileName, const Options* options) const override
    {
        if (!acceptsExtension(osgDB::getLowerCaseFileExtension(fileName)))
            return ReadResult::FILE_NOT_HANDLED;
        const std::string path = osgDB::findDataFile(fileName, options);
        if (path.empty())
            return ReadResult::FILE_NOT_FOUND;
        std::ifstream in(path, std::ios::binary);
        if (!in)
            return ReadResult::ERROR_IN_READING_FILE;
        std::string text;
        if (!readAll(in, text))
            return ReadResult::ERROR_IN_READING_FILE;
        // An absolute referrer: layers open later, maybe after the working
        // directory changed.
        return readMap(text, osgDB::getRealPath(path));
    }

    ReadResult readNode(std::istream& in, const Options* options) const override
    {
        std::string text;
        if (!readAll(in, text))
            return ReadResult::ERROR_IN_READING_FILE;
        std::string referrer;
        if (options && !options->getDatabasePathList().empty())
            referrer = osgDB::concatPaths(options->getDatabasePathList().front(), "stream.earth");
        return readMap(text, referrer);
    }

private:
    static bool readAll(std::istream& in, std::string& out)
    {
        std::ostringstream buffer;
        char chunk[65536];
        std::streamsize total = 0;
        while (in.read(chunk, sizeof(chunk)) || in.gcount() > 0)
        {
            total += in.gcount();
            if (total > kMaxEarthFileBytes)
                return false;
            buffer.write(chunk, in.gcount());
        }
        out = buffer.str();
        return true;
    }
};

// Registered when the library loads.
osgDB::RegisterReaderWriterProxy<ReaderWriterEarth> g_earthReaderWriter;

} // namespace
} // namespace globe
