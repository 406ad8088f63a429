#include <oblique/ObliqueDataset>

#include <oblique/ReadosgbCallback>

#include <globe/MapNode>
#include <globe/SpatialReference>
#include <viewer/CXViewer>

#include <osg/ValueObject>
#include <osgDB/ReadFile>

#include <tinyxml.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace
{

namespace fs = std::filesystem;

std::string trimmed(const std::string& text)
{
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return std::string();
    const auto last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

const TiXmlElement* findElement(const TiXmlElement* parent, const char* name)
{
    for (const TiXmlElement* child = parent->FirstChildElement(); child; child = child->NextSiblingElement())
    {
        if (child->ValueStr() == name)
            return child;
        if (const TiXmlElement* deeper = findElement(child, name))
            return deeper;
    }
    return nullptr;
}

std::string elementText(const TiXmlElement* element)
{
    const char* text = element ? element->GetText() : nullptr;
    return text ? trimmed(text) : std::string();
}

// "x,y,z" or "x,y" (z is then 0), blanks allowed.
bool parseOrigin(const std::string& text, osg::Vec3d& origin)
{
    std::vector<double> values;
    std::stringstream stream(text);
    std::string part;
    while (std::getline(stream, part, ','))
    {
        const std::string number = trimmed(part);
        char* end = nullptr;
        const double value = std::strtod(number.c_str(), &end);
        if (number.empty() || end != number.c_str() + number.size() || !std::isfinite(value))
            return false;
        values.push_back(value);
    }
    if (values.size() < 2 || values.size() > 3)
        return false;
    origin.set(values[0], values[1], values.size() == 3 ? values[2] : 0.0);
    return true;
}

// "city" for "data/city" and "data/city/".
std::string folderName(const std::string& folder)
{
    fs::path path = fs::path(folder).lexically_normal();
    if (path.filename().empty())
        path = path.parent_path();
    return path.filename().string();
}

// Whether the file starts as OpenSceneGraph binary files do. Files that do
// not are left unread: the plugin would fail on them anyway, and does not
// free the options it made for the read when it does.
bool hasBinaryHeader(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    unsigned char header[8] = {};
    if (!in.read(reinterpret_cast<char*>(header), sizeof(header)))
        return false;
    // Written on a little- or a big-endian machine.
    static const unsigned char kLittle[8] = {0xA1, 0x0E, 0x91, 0x6C, 0x45, 0x45, 0xFB, 0x1A};
    static const unsigned char kBig[8] = {0x6C, 0x91, 0x0E, 0xA1, 0x1A, 0xFB, 0x45, 0x45};
    return std::equal(header, header + 8, kLittle) || std::equal(header, header + 8, kBig);
}

const globe::SpatialReference* mapSRSOf(CXViewer* viewer)
{
    if (viewer && viewer->mapNode.valid() && viewer->mapNode->getMapSRS())
        return viewer->mapNode->getMapSRS();
    return globe::SpatialReference::create("wgs84");
}

} // namespace

ObliqueDataset::~ObliqueDataset() = default;

osg::ref_ptr<ObliqueDataset> ObliqueDataset::open(const std::string& folder, std::string& message)
{
    const fs::path root(folder);
    const fs::path metadataPath = root / "metadata.xml";
    std::error_code error;
    if (!fs::is_regular_file(metadataPath, error))
    {
        message = "no metadata.xml in " + folder;
        return nullptr;
    }

    TiXmlDocument document;
    if (!document.LoadFile(metadataPath.string().c_str(), TIXML_ENCODING_UTF8) || !document.RootElement())
    {
        message = metadataPath.string() + " is not readable XML";
        if (document.Error())
            message += ": " + std::string(document.ErrorDesc()) + " (line " + std::to_string(document.ErrorRow()) + ")";
        return nullptr;
    }
    const TiXmlElement* rootElement = document.RootElement();
    const std::string srsText = elementText(findElement(rootElement, "SRS"));
    if (srsText.empty())
    {
        message = metadataPath.string() + " has no <SRS>";
        return nullptr;
    }
    const globe::SpatialReference* srs = globe::SpatialReference::create(srsText);
    if (!srs)
    {
        message = "unknown SRS '" + srsText + "' in " + metadataPath.string();
        return nullptr;
    }
    osg::Vec3d origin(0.0, 0.0, 0.0);
    if (const TiXmlElement* originElement = findElement(rootElement, "SRSOrigin"))
    {
        const std::string originText = elementText(originElement);
        if (!originText.empty() && !parseOrigin(originText, origin))
        {
            message = "bad <SRSOrigin> '" + originText + "' in " + metadataPath.string() + ": x,y,z wanted";
            return nullptr;
        }
    }

    std::vector<std::string> rootTiles;
    const fs::path data = root / "Data";
    if (fs::is_directory(data, error))
        for (const fs::directory_entry& entry : fs::directory_iterator(data, error))
        {
            const fs::path tile = entry.path() / (entry.path().filename().string() + ".osgb");
            std::error_code tileError;
            if (entry.is_directory(tileError) && fs::is_regular_file(tile, tileError))
                rootTiles.push_back(tile.string());
        }
    if (rootTiles.empty())
    {
        message = "no root tiles in " + data.string() + " (Data/NAME/NAME.osgb)";
        return nullptr;
    }
    std::sort(rootTiles.begin(), rootTiles.end());

    osg::ref_ptr<ObliqueDataset> dataset = new ObliqueDataset;
    dataset->_folder = folder;
    dataset->_srsText = srsText;
    dataset->_srs = srs;
    dataset->_origin = origin;
    dataset->_rootTiles = std::move(rootTiles);
    message.clear();
    return dataset;
}

osg::Matrixd ObliqueDataset::computeLocalFrame(const globe::SpatialReference* mapSRS) const
{
    const globe::SpatialReference* geocentric = mapSRS->getGeocentricSRS();
    constexpr double kStep = 100.0;
    std::vector<osg::Vec3d> points = {_origin, _origin + osg::Vec3d(kStep, 0, 0), _origin + osg::Vec3d(0, kStep, 0),
                                      _origin + osg::Vec3d(0, 0, kStep)};
    if (!_srs->transform(points, geocentric))
        return osg::Matrixd::identity();
    const osg::Vec3d x = (points[1] - points[0]) / kStep;
    const osg::Vec3d y = (points[2] - points[0]) / kStep;
    const osg::Vec3d z = (points[3] - points[0]) / kStep;
    const osg::Vec3d& o = points[0];
    return osg::Matrixd(x.x(), x.y(), x.z(), 0.0, y.x(), y.y(), y.z(), 0.0, z.x(), z.y(), z.z(), 0.0, o.x(), o.y(),
                        o.z(), 1.0);
}

osg::ref_ptr<osgDB::Options> ObliqueDataset::createOptions(osg::MatrixTransform* pp,
                                                           const globe::SpatialReference* mapSRS,
                                                           osgDB::ReadFileCallback* callback) const
{
    osg::ref_ptr<osgDB::Options> options = new osgDB::Options;
    // The plugin data are plain pointers: the offset is kept alive by the
    // options (and every copy the pager makes of them) as their user data.
    osg::ref_ptr<osg::Vec3dValueObject> offset = new osg::Vec3dValueObject("offset", _origin);
    options->setUserData(offset.get());
    options->setPluginData("pp", pp);
    options->setPluginData("offset", const_cast<osg::Vec3d*>(&offset->getValue()));
    options->setPluginData("srs", const_cast<globe::SpatialReference*>(_srs));
    options->setPluginData("mapsrs", const_cast<globe::SpatialReference*>(mapSRS));
    options->setReadFileCallback(callback);
    return options;
}

osg::ref_ptr<osg::MatrixTransform> ObliqueDataset::createNode(const globe::SpatialReference* mapSRS,
                                                              osgDB::ReadFileCallback* callback,
                                                              std::string& message) const
{
    osg::ref_ptr<osg::MatrixTransform> node = new osg::MatrixTransform;
    node->setName(folderName(_folder));
    node->setMatrix(computeLocalFrame(mapSRS));
    const osg::ref_ptr<osgDB::Options> options = createOptions(node.get(), mapSRS, callback);

    std::vector<std::string> failed;
    for (const std::string& tile : _rootTiles)
    {
        osg::ref_ptr<osg::Node> root =
            hasBinaryHeader(tile) ? osgDB::readRefNodeFile(tile, options.get()) : osg::ref_ptr<osg::Node>();
        if (root)
            node->addChild(root.get());
        else
            failed.push_back(fs::path(tile).filename().string());
    }
    message.clear();
    if (!failed.empty())
    {
        message = std::to_string(failed.size()) + " of " + std::to_string(_rootTiles.size())
                  + " root tiles could not be read:";
        for (const std::string& name : failed)
            message += " " + name;
    }
    if (node->getNumChildren() == 0)
        return nullptr;
    return node;
}

osg::MatrixTransform* ObliqueDataset::addToViewer(CXViewer* viewer, const std::string& folder, std::string& message)
{
    if (!viewer || !viewer->getOSGBData())
    {
        message = "the viewer has no oblique group yet (call InitOSG first)";
        return nullptr;
    }
    const osg::ref_ptr<ObliqueDataset> dataset = open(folder, message);
    if (!dataset)
        return nullptr;
    osg::ref_ptr<osgDB::ReadFileCallback> callback = viewer->readFileCallback;
    if (!dynamic_cast<ReadosgbCallback*>(callback.get()))
        callback = new ReadosgbCallback(viewer->mapNode.get(), 1);
    osg::ref_ptr<osg::MatrixTransform> node = dataset->createNode(mapSRSOf(viewer), callback.get(), message);
    if (!node)
        return nullptr;
    viewer->getOSGBData()->addChild(node.get());
    return node.get();
}
