// What the sample tests share: running the generator into a folder, reading
// its table back, and measuring models read from disk.
#ifndef CXVIEWER_TESTS_SAMPLE_SAMPLETESTSUPPORT_H
#define CXVIEWER_TESTS_SAMPLE_SAMPLETESTSUPPORT_H

#include "CommandLine.h"
#include "MBTilesTestFiles.h"

#include <osg/Geometry>
#include <osg/NodeVisitor>
#include <osg/TriangleFunctor>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace sampletest
{

namespace fs = std::filesystem;

struct RunResult
{
    int status = -1;
    std::string out;
    std::string err;
};

inline RunResult runSample(const std::vector<std::string>& args)
{
    std::ostringstream out, err;
    RunResult r;
    r.status = cxsample::runCommandLine(args, out, err);
    r.out = out.str();
    r.err = err.str();
    return r;
}

inline bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

inline std::string readBytes(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

/** The fields of one CSV line; quoted fields may hold commas and doubled quotes. */
inline std::vector<std::string> splitCsvLine(const std::string& line)
{
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i)
    {
        const char c = line[i];
        if (quoted)
        {
            if (c == '"' && i + 1 < line.size() && line[i + 1] == '"')
                fields.back() += line[++i];
            else if (c == '"')
                quoted = false;
            else
                fields.back() += c;
        }
        else if (c == '"')
            quoted = true;
        else if (c == ',')
            fields.emplace_back();
        else
            fields.back() += c;
    }
    return fields;
}

struct CsvObject
{
    int objID, enterID, enterType, objType;
    std::string objName, fileName;
    double lon, lat, height, radius, heading, pitch, roll, scaleX, scaleY, scaleZ;
};

/** The header and the rows of the objects table; fails the test on a malformed row. */
inline std::vector<CsvObject> readObjects(const fs::path& csv, std::string* header = nullptr)
{
    std::ifstream in(csv, std::ios::binary);
    std::string line;
    std::getline(in, line);
    if (header)
        *header = line;
    std::vector<CsvObject> objects;
    while (std::getline(in, line))
    {
        const std::vector<std::string> f = splitCsvLine(line);
        if (f.size() != 16)
            throw std::runtime_error("row with " + std::to_string(f.size()) + " fields: " + line);
        CsvObject o;
        o.objID = std::stoi(f[0]);
        o.enterID = std::stoi(f[1]);
        o.enterType = std::stoi(f[2]);
        o.objName = f[3];
        o.lon = std::stod(f[4]);
        o.lat = std::stod(f[5]);
        o.height = std::stod(f[6]);
        o.radius = std::stod(f[7]);
        o.objType = std::stoi(f[8]);
        o.fileName = f[9];
        o.heading = std::stod(f[10]);
        o.pitch = std::stod(f[11]);
        o.roll = std::stod(f[12]);
        o.scaleX = std::stod(f[13]);
        o.scaleY = std::stod(f[14]);
        o.scaleZ = std::stod(f[15]);
        objects.push_back(o);
    }
    return objects;
}

/** `crudePath` with its first "crude" replaced by `word`, as the viewer does. */
inline std::string levelPath(const std::string& crudePath, const std::string& word)
{
    std::string path = crudePath;
    const std::size_t at = path.find("crude");
    if (at != std::string::npos)
        path.replace(at, 5, word);
    return path;
}

/** Counts triangles, the farthest vertex from the origin, the vertex bounds and
 *  colours, and the textures of a model. */
class ModelSurvey : public osg::NodeVisitor
{
public:
    ModelSurvey() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}

    void apply(osg::Node& node) override
    {
        if (node.getStateSet())
            survey(*node.getStateSet());
        traverse(node);
    }

    void apply(osg::Drawable& drawable) override
    {
        if (drawable.getStateSet())
            survey(*drawable.getStateSet());
        osg::TriangleFunctor<Counter> counter;
        drawable.accept(counter);
        triangles += counter.count;
        const osg::Geometry* geometry = drawable.asGeometry();
        if (!geometry)
            return;
        if (const auto* positions = dynamic_cast<const osg::Vec3Array*>(geometry->getVertexArray()))
            for (const osg::Vec3& p : *positions)
            {
                radius = std::max(radius, static_cast<double>(p.length()));
                bounds.expandBy(p);
            }
        const osg::Array* normals = geometry->getNormalArray();
        if (normals && normals->getBinding() == osg::Array::BIND_PER_VERTEX
            && normals->getNumElements() == geometry->getVertexArray()->getNumElements())
            ++geometriesWithNormals;
        ++geometries;
        if (const auto* colours = dynamic_cast<const osg::Vec4Array*>(geometry->getColorArray()))
            for (const osg::Vec4& c : *colours)
            {
                colourSum += c;
                ++colourCount;
            }
    }

    std::size_t triangles = 0;
    double radius = 0.0;
    osg::BoundingBox bounds;
    int geometries = 0;
    int geometriesWithNormals = 0;
    osg::Vec4d colourSum;
    std::size_t colourCount = 0;
    std::vector<osg::ref_ptr<const osg::Image>> images; // held: the model may go before the survey

private:
    struct Counter
    {
        std::size_t count = 0;
        void operator()(const osg::Vec3&, const osg::Vec3&, const osg::Vec3&) { ++count; }
    };

    void survey(const osg::StateSet& state)
    {
        for (unsigned int unit = 0; unit < state.getTextureAttributeList().size(); ++unit)
            if (const auto* texture = dynamic_cast<const osg::Texture*>(
                    state.getTextureAttribute(unit, osg::StateAttribute::TEXTURE)))
                if (texture->getImage(0))
                    images.push_back(texture->getImage(0));
    }
};

/** Writes a Terrain-RGB elevation file over the sample's area: level 9 tiles
 *  (x 421, rows 193 and 194 from the north) whose heights rise by half a metre
 *  per pixel column eastwards from 40 m, and are the same along a column. */
inline std::string writeRampDem(const fs::path& folder)
{
    const std::string path = (folder / "dem.db").string();
    cxtest::MBTilesFile file(path);
    for (int y : {193, 194})
        file.tile(9, 421, y, cxtest::terrainRGBTile(256, [](int column, int) { return 40.0 + 0.5 * column; }));
    return path;
}

/** The height writeRampDem's file gives at `lon`, taking pixel centres as the
 *  sample points. */
inline double rampHeight(double lon)
{
    const double column = ((lon + 180.0) / 360.0 * 512.0 - 421.0) * 256.0;
    return 40.0 + 0.5 * (column - 0.5);
}

} // namespace sampletest

#endif
