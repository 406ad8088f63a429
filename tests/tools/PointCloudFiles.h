// Point cloud files made by the tests, byte by byte from the formats'
// descriptions (not through the tool's readers): LAS with any version, point
// format, record length and CRS record; PLY ascii and binary; XYZ text. And a
// reader of written tile sets that follows the child files as the database
// pager does.
#ifndef CXVIEWER_TESTS_POINTCLOUDFILES_H
#define CXVIEWER_TESTS_POINTCLOUDFILES_H

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/MatrixTransform>
#include <osg/PagedLOD>
#include <osgDB/ReadFile>

#include <proj.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace pointtest
{

namespace fs = std::filesystem;

/** A point as the tests give it. */
struct TestPoint
{
    double x = 0.0, y = 0.0, z = 0.0;
    std::uint16_t intensity = 0;
    std::uint16_t red = 0, green = 0, blue = 0; // 16 bits in LAS
    int returnNumber = 1;
    int numberOfReturns = 1;
    int classification = 0;
    int userData = 0;
};

/** Little-endian bytes into a buffer at a fixed offset. */
class Bytes
{
public:
    explicit Bytes(std::size_t size = 0) : _data(size, 0) {}
    template <class T>
    void put(std::size_t at, T value)
    {
        if (_data.size() < at + sizeof(T))
            _data.resize(at + sizeof(T), 0);
        std::memcpy(&_data[at], &value, sizeof(T));
    }
    void text(std::size_t at, const std::string& s, std::size_t width)
    {
        if (_data.size() < at + width)
            _data.resize(at + width, 0);
        std::memcpy(&_data[at], s.data(), std::min(width, s.size()));
    }
    void append(const Bytes& more) { _data.insert(_data.end(), more._data.begin(), more._data.end()); }
    void append(const std::string& more) { _data.insert(_data.end(), more.begin(), more.end()); }
    std::size_t size() const { return _data.size(); }
    const std::vector<char>& data() const { return _data; }

private:
    std::vector<char> _data;
};

/** A variable length record (or an extended one in LAS 1.4). */
struct LasRecord
{
    std::string userId;
    int recordId = 0;
    std::string payload;
};

/** The payload of a GeoKeyDirectory record with one key (id, value). */
inline std::string geoKeys(std::vector<std::pair<int, int>> keys)
{
    Bytes b;
    b.put<std::uint16_t>(0, 1);
    b.put<std::uint16_t>(2, 1);
    b.put<std::uint16_t>(4, 0);
    b.put<std::uint16_t>(6, static_cast<std::uint16_t>(keys.size()));
    std::size_t at = 8;
    for (const auto& [id, value] : keys)
    {
        b.put<std::uint16_t>(at, static_cast<std::uint16_t>(id));
        b.put<std::uint16_t>(at + 2, 0);
        b.put<std::uint16_t>(at + 4, 1);
        b.put<std::uint16_t>(at + 6, static_cast<std::uint16_t>(value));
        at += 8;
    }
    return std::string(b.data().begin(), b.data().end());
}

/** The WKT of an EPSG code, from PROJ (WKT1 as LAS files carry it). */
inline std::string epsgWkt(int code)
{
    PJ_CONTEXT* ctx = proj_context_create();
    PJ* crs = proj_create(ctx, ("EPSG:" + std::to_string(code)).c_str());
    const char* wkt = crs ? proj_as_wkt(ctx, crs, PJ_WKT1_GDAL, nullptr) : nullptr;
    std::string text = wkt ? wkt : "";
    if (crs)
        proj_destroy(crs);
    proj_context_destroy(ctx);
    return text;
}

struct LasFile
{
    int major = 1, minor = 2;
    int format = 3;
    int extraBytes = 0; // after the standard fields of each record
    double scale[3] = {0.001, 0.001, 0.001};
    double offset[3] = {448000.0, 4418000.0, 0.0}; // near the tests' points
    std::vector<LasRecord> vlrs;
    std::vector<LasRecord> evlrs; // LAS 1.4 only
    std::vector<TestPoint> points;
    /** The count the header gives; -1: the number of points. */
    std::int64_t declaredCount = -1;
    /** Overrides of the format byte (LAZ sets high bits). */
    int formatByte = -1;
};

inline std::size_t lasRecordLength(int format)
{
    static const std::map<int, std::size_t> lengths = {{0, 20}, {1, 28}, {2, 26}, {3, 34},
                                                       {4, 57}, {6, 30}, {7, 36}, {8, 38}};
    return lengths.at(format);
}

/** Writes a LAS file from the public header block's published layout. */
inline void writeLas(const std::string& path, const LasFile& las)
{
    const std::size_t headerSize = las.minor >= 4 ? 375 : las.minor == 3 ? 235 : 227;
    const std::size_t recordLength = lasRecordLength(las.format) + static_cast<std::size_t>(las.extraBytes);
    Bytes vlrs;
    for (const LasRecord& r : las.vlrs)
    {
        Bytes h(54);
        h.text(2, r.userId, 16);
        h.put<std::uint16_t>(18, static_cast<std::uint16_t>(r.recordId));
        h.put<std::uint16_t>(20, static_cast<std::uint16_t>(r.payload.size()));
        h.text(22, "test record", 32);
        vlrs.append(h);
        vlrs.append(r.payload);
    }
    const std::size_t pointOffset = headerSize + vlrs.size();
    const std::uint64_t count =
        las.declaredCount >= 0 ? static_cast<std::uint64_t>(las.declaredCount) : las.points.size();

    Bytes header(headerSize);
    header.text(0, "LASF", 4);
    header.put<std::uint8_t>(24, static_cast<std::uint8_t>(las.major));
    header.put<std::uint8_t>(25, static_cast<std::uint8_t>(las.minor));
    header.text(26, "tests", 32);
    header.text(58, "PointCloudFiles.h", 32);
    header.put<std::uint16_t>(94, static_cast<std::uint16_t>(headerSize));
    header.put<std::uint32_t>(96, static_cast<std::uint32_t>(pointOffset));
    header.put<std::uint32_t>(100, static_cast<std::uint32_t>(las.vlrs.size()));
    header.put<std::uint8_t>(104, static_cast<std::uint8_t>(las.formatByte >= 0 ? las.formatByte : las.format));
    header.put<std::uint16_t>(105, static_cast<std::uint16_t>(recordLength));
    header.put<std::uint32_t>(107, las.format >= 6 ? 0u : static_cast<std::uint32_t>(count));
    for (int a = 0; a < 3; ++a)
    {
        header.put<double>(131 + 8 * a, las.scale[a]);
        header.put<double>(155 + 8 * a, las.offset[a]);
    }
    double lo[3] = {1e300, 1e300, 1e300}, hi[3] = {-1e300, -1e300, -1e300};
    for (const TestPoint& p : las.points)
    {
        const double v[3] = {p.x, p.y, p.z};
        for (int a = 0; a < 3; ++a)
        {
            lo[a] = std::min(lo[a], v[a]);
            hi[a] = std::max(hi[a], v[a]);
        }
    }
    for (int a = 0; a < 3; ++a)
    {
        header.put<double>(179 + 16 * a, las.points.empty() ? 0.0 : hi[a]);
        header.put<double>(187 + 16 * a, las.points.empty() ? 0.0 : lo[a]);
    }

    Bytes records;
    for (const TestPoint& p : las.points)
    {
        Bytes r(recordLength);
        const double v[3] = {p.x, p.y, p.z};
        for (int a = 0; a < 3; ++a)
            r.put<std::int32_t>(4 * a, static_cast<std::int32_t>(std::llround((v[a] - las.offset[a]) / las.scale[a])));
        r.put<std::uint16_t>(12, p.intensity);
        if (las.format < 6)
        {
            r.put<std::uint8_t>(14, static_cast<std::uint8_t>((p.returnNumber & 7) | ((p.numberOfReturns & 7) << 3)));
            r.put<std::uint8_t>(15, static_cast<std::uint8_t>(p.classification)); // flags in bits 5-7 allowed
            r.put<std::int8_t>(16, -12);                                            // scan angle rank
            r.put<std::uint8_t>(17, static_cast<std::uint8_t>(p.userData));
            r.put<std::uint16_t>(18, 7); // point source
            if (las.format == 1 || las.format == 3 || las.format == 4)
                r.put<double>(20, 123456.5);
            const std::size_t rgb = las.format == 2 ? 20 : 28;
            if (las.format == 2 || las.format == 3)
            {
                r.put<std::uint16_t>(rgb, p.red);
                r.put<std::uint16_t>(rgb + 2, p.green);
                r.put<std::uint16_t>(rgb + 4, p.blue);
            }
        }
        else
        {
            r.put<std::uint8_t>(14, static_cast<std::uint8_t>((p.returnNumber & 15) | ((p.numberOfReturns & 15) << 4)));
            r.put<std::uint8_t>(15, 0x50); // classification flags, scanner channel
            r.put<std::uint8_t>(16, static_cast<std::uint8_t>(p.classification));
            r.put<std::uint8_t>(17, static_cast<std::uint8_t>(p.userData));
            r.put<std::int16_t>(18, -1200);
            r.put<std::uint16_t>(20, 7);
            r.put<double>(22, 123456.5);
            if (las.format == 7 || las.format == 8)
            {
                r.put<std::uint16_t>(30, p.red);
                r.put<std::uint16_t>(32, p.green);
                r.put<std::uint16_t>(34, p.blue);
            }
            if (las.format == 8)
                r.put<std::uint16_t>(36, 999); // NIR
        }
        for (int e = 0; e < las.extraBytes; ++e)
            r.put<std::uint8_t>(lasRecordLength(las.format) + static_cast<std::size_t>(e), 0xEE);
        records.append(r);
    }

    Bytes evlrs;
    for (const LasRecord& r : las.evlrs)
    {
        Bytes h(60);
        h.text(2, r.userId, 16);
        h.put<std::uint16_t>(18, static_cast<std::uint16_t>(r.recordId));
        h.put<std::uint64_t>(20, r.payload.size());
        h.text(28, "test extended record", 32);
        evlrs.append(h);
        evlrs.append(r.payload);
    }
    if (las.minor >= 4)
    {
        header.put<std::uint64_t>(235, las.evlrs.empty() ? 0 : pointOffset + records.size());
        header.put<std::uint32_t>(243, static_cast<std::uint32_t>(las.evlrs.size()));
        header.put<std::uint64_t>(247, count);
        header.put<std::uint64_t>(255, count);
    }

    std::ofstream out(path, std::ios::binary);
    for (const Bytes* part : {&header, &vlrs, &records, &evlrs})
        out.write(part->data().data(), static_cast<std::streamsize>(part->size()));
}

/** A LAS record of the CRS as WKT. */
inline LasRecord wktRecord(int epsg) { return LasRecord{"LASF_Projection", 2112, epsgWkt(epsg) + std::string(1, '\0')}; }

struct PlyFile
{
    std::string format = "binary_little_endian"; // or "ascii", "binary_big_endian"
    std::string coordinateType = "double";       // float or double
    bool colour = true;
    std::string colourType = "uchar"; // or "ushort"
    std::string intensityName = "intensity";
    std::string classificationName = "classification";
    bool intensity = true;
    bool classification = true;
    bool extraProperty = true; // a float "nx" between the fields, skipped
    bool faces = true;         // an element "face" after the vertices
    bool elementBefore = false; // an element "camera" before the vertices
    std::vector<TestPoint> points;
    std::int64_t declaredCount = -1;
};

inline void writePly(const std::string& path, const PlyFile& ply)
{
    const std::uint64_t count = ply.declaredCount >= 0 ? static_cast<std::uint64_t>(ply.declaredCount) : ply.points.size();
    std::ostringstream header;
    header << "ply\nformat " << ply.format << " 1.0\ncomment made by the tests\n";
    if (ply.elementBefore)
        header << "element camera 2\nproperty float view_x\nproperty float view_y\n";
    header << "element vertex " << count << "\n"
           << "property " << ply.coordinateType << " x\n"
           << "property " << ply.coordinateType << " y\n";
    if (ply.extraProperty)
        header << "property float nx\n";
    header << "property " << ply.coordinateType << " z\n";
    if (ply.colour)
        header << "property " << ply.colourType << " red\nproperty " << ply.colourType << " green\nproperty "
               << ply.colourType << " blue\n";
    if (ply.intensity)
        header << "property ushort " << ply.intensityName << "\n";
    if (ply.classification)
        header << "property uchar " << ply.classificationName << "\n";
    if (ply.faces)
        header << "element face 1\nproperty list uchar int vertex_indices\n";
    header << "end_header\n";

    std::ofstream out(path, std::ios::binary);
    out << header.str();
    const bool ascii = ply.format == "ascii";
    auto binary = [&out](auto value) { out.write(reinterpret_cast<const char*>(&value), sizeof(value)); };
    if (ply.elementBefore)
    {
        if (ascii)
            out << "1 2\n3 4\n";
        else
            for (float v : {1.0f, 2.0f, 3.0f, 4.0f})
                binary(v);
    }
    for (const TestPoint& p : ply.points)
    {
        const bool d = ply.coordinateType == "double";
        const bool wide = ply.colourType == "ushort";
        if (ascii)
        {
            char line[256];
            std::snprintf(line, sizeof(line), "%.6f %.6f", p.x, p.y);
            out << line;
            if (ply.extraProperty)
                out << " 0.5";
            std::snprintf(line, sizeof(line), " %.6f", p.z);
            out << line;
            if (ply.colour)
                out << ' ' << (wide ? p.red : p.red >> 8) << ' ' << (wide ? p.green : p.green >> 8) << ' '
                    << (wide ? p.blue : p.blue >> 8);
            if (ply.intensity)
                out << ' ' << p.intensity;
            if (ply.classification)
                out << ' ' << p.classification;
            out << "\n";
            continue;
        }
        if (d)
        {
            binary(p.x);
            binary(p.y);
        }
        else
        {
            binary(static_cast<float>(p.x));
            binary(static_cast<float>(p.y));
        }
        if (ply.extraProperty)
            binary(0.5f);
        if (d)
            binary(p.z);
        else
            binary(static_cast<float>(p.z));
        if (ply.colour)
        {
            if (wide)
            {
                binary(p.red);
                binary(p.green);
                binary(p.blue);
            }
            else
            {
                binary(static_cast<std::uint8_t>(p.red >> 8));
                binary(static_cast<std::uint8_t>(p.green >> 8));
                binary(static_cast<std::uint8_t>(p.blue >> 8));
            }
        }
        if (ply.intensity)
            binary(p.intensity);
        if (ply.classification)
            binary(static_cast<std::uint8_t>(p.classification));
    }
    if (ply.faces)
    {
        if (ascii)
            out << "3 0 1 2\n";
        else
        {
            binary(static_cast<std::uint8_t>(3));
            for (int i : {0, 1, 2})
                binary(static_cast<std::int32_t>(i));
        }
    }
}

/** One tile of a written set, as read back. */
struct ReadTile
{
    std::string path;          // octant digits from the root
    int level = 0;
    osg::ref_ptr<osg::PagedLOD> lod;
    osg::MatrixTransform* content = nullptr;
    osg::Geometry* geometry = nullptr;
    std::vector<int> childOctants; // in file order
    std::string file;              // the file that holds it
};

/** The children file of a tile read the way the pager reads it: its file
 *  name against the database path the osgb reader gave the tile. */
inline osg::ref_ptr<osg::Node> readChildren(const osg::PagedLOD& lod)
{
    return osgDB::readNodeFile(lod.getDatabasePath() + lod.getFileName(1));
}

/** Every tile of the set at `folder`, parents before children; throws when
 *  a file is missing or a node is not what a tile must be. */
inline std::vector<ReadTile> readTileSet(const fs::path& folder)
{
    std::vector<ReadTile> tiles;
    osg::ref_ptr<osg::Node> root = osgDB::readNodeFile((folder / "cloud.osgb").string());
    auto* rootLod = dynamic_cast<osg::PagedLOD*>(root.get());
    if (!rootLod)
        throw std::runtime_error("cloud.osgb holds no PagedLOD");
    std::function<void(osg::PagedLOD*, const std::string&, const std::string&)> visit =
        [&](osg::PagedLOD* lod, const std::string& path, const std::string& file) {
            ReadTile tile;
            tile.path = path;
            tile.level = static_cast<int>(path.size());
            tile.lod = lod;
            tile.file = file;
            tile.content = lod->getNumChildren() > 0 ? dynamic_cast<osg::MatrixTransform*>(lod->getChild(0)) : nullptr;
            if (!tile.content)
                throw std::runtime_error("tile '" + path + "' has no MatrixTransform as child 0");
            auto* geode = tile.content->getNumChildren() == 1 ? tile.content->getChild(0)->asGeode() : nullptr;
            tile.geometry = geode && geode->getNumDrawables() == 1 ? geode->getDrawable(0)->asGeometry() : nullptr;
            if (!tile.geometry)
                throw std::runtime_error("tile '" + path + "' has no geode with one geometry");
            const std::size_t index = tiles.size();
            tiles.push_back(tile);
            if (lod->getNumFileNames() < 2 || lod->getFileName(1).empty())
                return;
            osg::ref_ptr<osg::Node> next = readChildren(*lod);
            osg::Group* group = next ? next->asGroup() : nullptr;
            if (!group)
                throw std::runtime_error("tile '" + path + "': its children file '" + lod->getFileName(1)
                                         + "' does not read as a group");
            const std::string childFile = lod->getDatabasePath() + lod->getFileName(1);
            for (unsigned int i = 0; i < group->getNumChildren(); ++i)
            {
                auto* child = dynamic_cast<osg::PagedLOD*>(group->getChild(i));
                if (!child || child->getNumChildren() == 0)
                    throw std::runtime_error("a child of tile '" + path + "' is no PagedLOD with content");
                const std::string name = child->getChild(0)->getName();
                if (name.size() != 9 || name.compare(0, 8, "ARSCmark") != 0)
                    throw std::runtime_error("a child of tile '" + path + "' is named '" + name + "'");
                const int octant = name[8] - '0';
                tiles[index].childOctants.push_back(octant);
                visit(child, path + std::to_string(octant), childFile);
            }
        };
    visit(rootLod, "", (folder / "cloud.osgb").string());
    return tiles;
}

/** A uniform's float value, or NaN when the state set lacks it. */
inline float uniformFloat(const osg::StateSet* state, const std::string& name)
{
    float value = NAN;
    const osg::Uniform* u = state ? state->getUniform(name) : nullptr;
    if (!u || !u->get(value))
        return NAN;
    return value;
}

inline osg::Vec3 uniformVec3(const osg::StateSet* state, const std::string& name)
{
    osg::Vec3 value(NAN, NAN, NAN);
    const osg::Uniform* u = state ? state->getUniform(name) : nullptr;
    if (u)
        u->get(value);
    return value;
}

/** Geocentric coordinates of points of an EPSG CRS, by PROJ itself. */
class ProjToGeocentric
{
public:
    explicit ProjToGeocentric(const std::string& from)
    {
        _ctx = proj_context_create();
        PJ* op = proj_create_crs_to_crs(_ctx, from.c_str(), "EPSG:4978", nullptr);
        _op = op ? proj_normalize_for_visualization(_ctx, op) : nullptr;
        if (op)
            proj_destroy(op);
    }
    ~ProjToGeocentric()
    {
        if (_op)
            proj_destroy(_op);
        proj_context_destroy(_ctx);
    }
    bool valid() const { return _op != nullptr; }
    osg::Vec3d operator()(double x, double y, double z) const
    {
        PJ_COORD c = proj_coord(x, y, z, 0.0);
        c = proj_trans(_op, PJ_FWD, c);
        return osg::Vec3d(c.xyz.x, c.xyz.y, c.xyz.z);
    }

private:
    PJ_CONTEXT* _ctx = nullptr;
    PJ* _op = nullptr;
};

} // namespace pointtest

#endif
