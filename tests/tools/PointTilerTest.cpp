// `cxtiler points` end to end: clouds made here as real files, tiled by the
// command line, and the tile set read back with osgDB the way the database
// pager reads it: the node structure, names and octant numbers, uniforms,
// vertex attributes, every point in exactly one tile inside its cube, the
// geocentric positions against PROJ's own, the coordinate systems, and runs
// that fail or stream through spill files.
#include "CommandLine.h"
#include "PointCloudFiles.h"
#include "PointTileWriter.h"
#include "PointTiler.h"
#include "TempDir.h"
#include "ToolError.h"

#include <gtest/gtest.h>

#include <osg/PrimitiveSet>

#include <algorithm>
#include <cfloat>
#include <set>
#include <sstream>

using namespace pointtest;

namespace
{

struct RunResult
{
    int status = -1;
    std::string out;
    std::string err;
};

RunResult runTiler(const std::vector<std::string>& args)
{
    std::ostringstream out, err;
    RunResult r;
    r.status = cxtiler::runCommandLine(args, out, err);
    r.out = out.str();
    r.err = err.str();
    return r;
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string readText(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

/** The numbers of a JSON array field of cloud.json ("origin": [x, y, z]). */
std::vector<double> jsonArray(const std::string& json, const std::string& field)
{
    std::vector<double> values;
    const auto at = json.find("\"" + field + "\": [");
    if (at == std::string::npos)
        return values;
    std::istringstream in(json.substr(json.find('[', at) + 1));
    double v;
    char separator;
    while (in >> v)
    {
        values.push_back(v);
        if (!(in >> separator) || separator == ']')
            break;
    }
    return values;
}

double jsonNumber(const std::string& json, const std::string& field)
{
    const auto at = json.find("\"" + field + "\": ");
    return at == std::string::npos ? NAN : std::stod(json.substr(at + field.size() + 4));
}

constexpr double kEast = 448000.0, kNorth = 4418000.0;

/** A small town in UTM 50N on a grid of quarter metres, in the order a
 *  scanner would give it (row by row): 300 x 250 m of sloping ground every
 *  metre (class 2), three blocks with walls every half metre and flat roofs
 *  (class 6; user data 1 on the first), intensity and colour varying. */
std::vector<TestPoint> townPoints()
{
    std::vector<TestPoint> points;
    auto ground = [](double x, double y) { return 40.0 + std::round((0.02 * x + 0.01 * y) * 4.0) / 4.0; };
    std::uint32_t serial = 0;
    auto add = [&](double x, double y, double z, int cls, int user) {
        TestPoint p;
        p.x = kEast + x;
        p.y = kNorth + y;
        p.z = z;
        p.intensity = static_cast<std::uint16_t>((serial * 37) % 65536);
        p.red = static_cast<std::uint16_t>((static_cast<int>(x) * 256) % 65536);
        p.green = static_cast<std::uint16_t>((static_cast<int>(y) * 256) % 65536);
        p.blue = static_cast<std::uint16_t>(cls * 4096);
        p.classification = cls;
        p.userData = user;
        p.returnNumber = 1 + static_cast<int>(serial % 3);
        p.numberOfReturns = 3;
        ++serial;
        points.push_back(p);
    };
    for (int j = 0; j < 250; ++j)
        for (int i = 0; i < 300; ++i)
            add(i, j, ground(i, j), 2, 0);
    struct Block
    {
        double x0, y0, x1, y1, height;
    };
    const Block blocks[] = {{40.25, 30.25, 80.25, 60.25, 36.0}, {150.25, 120.25, 190.25, 140.25, 22.0},
                            {220.25, 40.25, 260.25, 90.25, 48.0}};
    for (int b = 0; b < 3; ++b)
    {
        const Block& k = blocks[b];
        const double base = ground(k.x0, k.y0) + 0.5;
        const double top = base + k.height;
        for (double z = base; z < top; z += 0.5)
        {
            for (double x = k.x0; x < k.x1; x += 0.5)
            {
                add(x, k.y0, z, 6, b == 0);
                add(x + 0.5, k.y1, z, 6, b == 0);
            }
            for (double y = k.y0; y < k.y1; y += 0.5)
            {
                add(k.x1, y, z, 6, b == 0);
                add(k.x0, y + 0.5, z, 6, b == 0);
            }
        }
        for (double y = k.y0 + 0.5; y < k.y1; y += 0.5)
            for (double x = k.x0 + 0.5; x < k.x1; x += 0.5)
                add(x, y, top, 6, b == 0);
    }
    return points;
}

/** The key of a point on the quarter-metre grid. */
struct GridKey
{
    long long x, y, z;
    bool operator<(const GridKey& o) const { return std::tie(x, y, z) < std::tie(o.x, o.y, o.z); }
    bool operator==(const GridKey& o) const { return x == o.x && y == o.y && z == o.z; }
};

GridKey gridKey(double x, double y, double z)
{
    return GridKey{std::llround(x * 4.0), std::llround(y * 4.0), std::llround(z * 4.0)};
}

/** A tile's points as keys of the quarter-metre grid in the input's CRS. */
std::vector<GridKey> tileKeys(const ReadTile& tile, const std::vector<double>& origin)
{
    std::vector<GridKey> keys;
    const auto* positions = dynamic_cast<const osg::Vec3Array*>(tile.geometry->getVertexAttribArray(10));
    if (!positions)
        return keys;
    for (const osg::Vec3& p : *positions)
        keys.push_back(gridKey(origin[0] + p.x(), origin[1] + p.y(), origin[2] + p.z()));
    std::sort(keys.begin(), keys.end());
    return keys;
}

/** The town tiled once for the tests that read the set. */
class TownTileSet : public ::testing::Test
{
protected:
    static constexpr int kBudget = 3000;

    static void SetUpTestSuite()
    {
        _dir = std::make_unique<cxtest::TempDir>();
        LasFile las;
        las.minor = 4;
        las.format = 7;
        las.offset[0] = kEast;
        las.offset[1] = kNorth;
        las.vlrs.push_back(wktRecord(32650));
        las.points = townPoints();
        _points = las.points;
        _input = (_dir->path() / "town.las").string();
        writeLas(_input, las);
        _output = _dir->path() / "town";
        _run = runTiler({"points", _input, _output.string(), "--max-points-per-tile", std::to_string(kBudget)});
        if (_run.status == 0)
        {
            _json = readText(_output / "cloud.json");
            _origin = jsonArray(_json, "origin");
            _tiles = readTileSet(_output);
        }
    }
    static void TearDownTestSuite()
    {
        _tiles.clear();
        _dir.reset();
    }
    void SetUp() override
    {
        ASSERT_EQ(_run.status, 0) << _run.err;
        ASSERT_EQ(_origin.size(), 3u) << _json;
        ASSERT_GT(_tiles.size(), 8u) << "the town should need a few levels";
    }

    static double rootEdge() { return jsonNumber(_json, "cubeEdge"); }

    /** The lowest corner of a tile's cube from its octant path. */
    static osg::Vec3d cubeCorner(const std::string& path)
    {
        osg::Vec3d corner;
        double size = rootEdge();
        for (char digit : path)
        {
            size /= 2;
            const int n = digit - '0';
            corner += osg::Vec3d((n >> 2) & 1, (n >> 1) & 1, n & 1) * size;
        }
        return corner;
    }

    static std::unique_ptr<cxtest::TempDir> _dir;
    static std::vector<TestPoint> _points;
    static std::string _input;
    static fs::path _output;
    static RunResult _run;
    static std::string _json;
    static std::vector<double> _origin;
    static std::vector<ReadTile> _tiles;
};

std::unique_ptr<cxtest::TempDir> TownTileSet::_dir;
std::vector<TestPoint> TownTileSet::_points;
std::string TownTileSet::_input;
fs::path TownTileSet::_output;
RunResult TownTileSet::_run;
std::string TownTileSet::_json;
std::vector<double> TownTileSet::_origin;
std::vector<ReadTile> TownTileSet::_tiles;

} // namespace

TEST_F(TownTileSet, TheRootIsPoRootWithTheCloudsUniforms)
{
    const ReadTile& root = _tiles.front();
    EXPECT_EQ(root.lod->getName(), "PoRoot");
    EXPECT_EQ(root.content->getName(), "ARSCmark");
    const osg::StateSet* state = root.lod->getStateSet();
    ASSERT_NE(state, nullptr);
    double lowest = 1e300, highest = -1e300;
    for (const TestPoint& p : _points)
    {
        lowest = std::min(lowest, p.z);
        highest = std::max(highest, p.z);
    }
    EXPECT_NEAR(uniformFloat(state, "minz"), lowest - _origin[2], 1e-3);
    EXPECT_NEAR(uniformFloat(state, "maxz"), highest - _origin[2], 1e-3);
    bool circle = false;
    ASSERT_NE(state->getUniform("isCircle"), nullptr);
    EXPECT_TRUE(state->getUniform("isCircle")->get(circle));
    EXPECT_TRUE(circle);
    int flag = -1;
    ASSERT_NE(state->getUniform("flag"), nullptr);
    EXPECT_TRUE(state->getUniform("flag")->get(flag));
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(uniformVec3(state, "flagColor"), osg::Vec3(1.0f, 1.0f, 0.0f));
    EXPECT_TRUE(contains(_json, "\"crsName\": \"WGS 84 / UTM zone 50N\"")) << _json;
    EXPECT_TRUE(contains(_run.out, "wrote ")) << _run.out;
}

TEST_F(TownTileSet, EveryTileHasTheStructureTheViewerReads)
{
    const double edge = rootEdge();
    const double rootSpacing = jsonNumber(_json, "rootSpacing");
    EXPECT_NEAR(rootSpacing, edge / 128.0, 1e-9);
    for (const ReadTile& tile : _tiles)
    {
        SCOPED_TRACE("tile '" + tile.path + "'");
        const osg::PagedLOD& lod = *tile.lod;
        // Child 0 inline, the transform to the anchor with its name.
        EXPECT_EQ(tile.content->getName(),
                  tile.level == 0 ? std::string("ARSCmark") : "ARSCmark" + tile.path.substr(tile.path.size() - 1));
        const osg::Vec3d anchor = tile.content->getMatrix().getTrans();
        EXPECT_EQ(tile.content->getMatrix(), osg::Matrixd::translate(anchor));
        EXPECT_EQ(lod.getRangeMode(), osg::LOD::DISTANCE_FROM_EYE_POINT);
        EXPECT_FLOAT_EQ(lod.getMinRange(0), 0.0f);
        EXPECT_FLOAT_EQ(lod.getMaxRange(0), FLT_MAX);
        EXPECT_TRUE(lod.getFileName(0).empty());

        // The cube: corner and size from the path, and the uniforms.
        const double size = edge / std::pow(2.0, tile.level);
        const osg::Vec3d corner = cubeCorner(tile.path);
        const osg::StateSet* state = tile.content->getStateSet();
        ASSERT_NE(state, nullptr);
        const osg::Vec3 offset = uniformVec3(state, "offset");
        EXPECT_NEAR(offset.x(), corner.x(), 1e-3);
        EXPECT_NEAR(offset.y(), corner.y(), 1e-3);
        EXPECT_NEAR(offset.z(), corner.z(), 1e-3);
        EXPECT_NEAR(uniformFloat(state, "currentNodeSize"), size, size * 1e-6);
        EXPECT_NEAR(uniformFloat(state, "spacing"), rootSpacing / std::pow(2.0, tile.level),
                    rootSpacing * 1e-6 / std::pow(2.0, tile.level))
            << "the spacing halves with each level";

        // The anchor is the cube's centre on the globe.
        ProjToGeocentric toWorld("EPSG:32650");
        const osg::Vec3d centre = osg::Vec3d(_origin[0], _origin[1], _origin[2]) + corner
                                  + osg::Vec3d(size, size, size) * 0.5;
        EXPECT_LT((anchor - toWorld(centre.x(), centre.y(), centre.z())).length(), 1e-3);
        EXPECT_EQ(lod.getCenterMode(), osg::LOD::USER_DEFINED_CENTER);
        EXPECT_LT((lod.getCenter() - anchor).length(), 1e-3);
        EXPECT_NEAR(lod.getRadius(), size * std::sqrt(3.0) / 2.0, 1e-3);

        // Leaves have one child; the others name their children's file.
        if (tile.childOctants.empty())
        {
            EXPECT_EQ(lod.getNumChildren(), 1u);
            EXPECT_TRUE(lod.getNumFileNames() < 2 || lod.getFileName(1).empty());
        }
        else
        {
            EXPECT_EQ(lod.getNumChildren(), 1u) << "the next level is only named, never inline";
            ASSERT_EQ(lod.getNumFileNames(), 2u);
            EXPECT_FALSE(fs::path(lod.getFileName(1)).is_absolute());
            EXPECT_FLOAT_EQ(lod.getMinRange(1), 0.0f);
            EXPECT_NEAR(lod.getMaxRange(1), cxtiler::kDefaultLodFactor * size, 1e-3 * size);
            EXPECT_TRUE(std::is_sorted(tile.childOctants.begin(), tile.childOctants.end()));
            EXPECT_EQ(std::set<int>(tile.childOctants.begin(), tile.childOctants.end()).size(),
                      tile.childOctants.size());
        }

        // The geometry: points with VBOs, colours and the attributes.
        const osg::Geometry& g = *tile.geometry;
        EXPECT_FALSE(g.getUseDisplayList());
        EXPECT_TRUE(g.getUseVertexBufferObjects());
        const auto* vertices = dynamic_cast<const osg::Vec3Array*>(g.getVertexArray());
        ASSERT_NE(vertices, nullptr);
        const std::size_t n = vertices->size();
        EXPECT_GT(n, 0u);
        EXPECT_LE(n, static_cast<std::size_t>(kBudget));
        ASSERT_EQ(g.getNumPrimitiveSets(), 1u);
        const auto* draw = dynamic_cast<const osg::DrawArrays*>(g.getPrimitiveSet(0));
        ASSERT_NE(draw, nullptr);
        EXPECT_EQ(draw->getMode(), static_cast<GLenum>(GL_POINTS));
        EXPECT_EQ(draw->getFirst(), 0);
        EXPECT_EQ(static_cast<std::size_t>(draw->getCount()), n);
        const auto* colours = dynamic_cast<const osg::Vec4ubArray*>(g.getColorArray());
        ASSERT_NE(colours, nullptr);
        EXPECT_EQ(colours->size(), n);
        EXPECT_TRUE(colours->getNormalize());
        EXPECT_EQ(colours->getBinding(), osg::Array::BIND_PER_VERTEX);
        for (unsigned int location = 10; location <= 15; ++location)
        {
            const osg::Array* array = g.getVertexAttribArray(location);
            ASSERT_NE(array, nullptr) << "location " << location;
            EXPECT_EQ(array->getNumElements(), n) << "location " << location;
            EXPECT_FALSE(array->getNormalize()) << "location " << location;
            EXPECT_EQ(array->getBinding(), osg::Array::BIND_PER_VERTEX) << "location " << location;
            if (location == 10)
                EXPECT_NE(dynamic_cast<const osg::Vec3Array*>(array), nullptr);
            else
                EXPECT_NE(dynamic_cast<const osg::FloatArray*>(array), nullptr) << "location " << location;
        }
    }
}

TEST_F(TownTileSet, EveryPointLiesInExactlyOneTileInsideItsCube)
{
    const double edge = rootEdge();
    std::map<GridKey, int> input;
    for (const TestPoint& p : _points)
        ++input[gridKey(p.x, p.y, p.z)];
    std::size_t total = 0;
    std::map<GridKey, int> tiled;
    for (const ReadTile& tile : _tiles)
    {
        SCOPED_TRACE("tile '" + tile.path + "'");
        const double size = edge / std::pow(2.0, tile.level);
        const osg::Vec3d corner = cubeCorner(tile.path);
        const auto* positions = dynamic_cast<const osg::Vec3Array*>(tile.geometry->getVertexAttribArray(10));
        ASSERT_NE(positions, nullptr);
        total += positions->size();
        int outside = 0;
        for (const osg::Vec3& p : *positions)
        {
            const double slack = 1e-4;
            for (int a = 0; a < 3; ++a)
                if (p[a] < corner[a] - slack || p[a] > corner[a] + size + slack)
                    ++outside;
        }
        EXPECT_EQ(outside, 0);
        for (const GridKey& key : tileKeys(tile, _origin))
            ++tiled[key];
    }
    EXPECT_EQ(total, _points.size());
    EXPECT_EQ(tiled, input) << "each input point once, and nothing else";
    EXPECT_TRUE(contains(_json, "\"points\": " + std::to_string(_points.size()))) << _json;
}

TEST_F(TownTileSet, VerticesAndAnchorsGiveProjsGeocentricPositions)
{
    ProjToGeocentric toWorld("EPSG:32650");
    ASSERT_TRUE(toWorld.valid());
    double worst = 0.0;
    for (const ReadTile& tile : _tiles)
    {
        const osg::Vec3d anchor = tile.content->getMatrix().getTrans();
        const auto* vertices = dynamic_cast<const osg::Vec3Array*>(tile.geometry->getVertexArray());
        const auto* positions = dynamic_cast<const osg::Vec3Array*>(tile.geometry->getVertexAttribArray(10));
        ASSERT_TRUE(vertices && positions);
        for (std::size_t i = 0; i < vertices->size(); ++i)
        {
            // The input point, exactly, from its grid key.
            const GridKey key = gridKey(_origin[0] + (*positions)[i].x(), _origin[1] + (*positions)[i].y(),
                                        _origin[2] + (*positions)[i].z());
            const osg::Vec3d expected = toWorld(key.x / 4.0, key.y / 4.0, key.z / 4.0);
            const osg::Vec3d got = anchor + osg::Vec3d((*vertices)[i]);
            worst = std::max(worst, (got - expected).length());
        }
    }
    EXPECT_LT(worst, 1e-3) << "metres between a vertex plus its anchor and PROJ's geocentric point";
}

TEST_F(TownTileSet, AttributesAndColoursTravelWithTheirPoints)
{
    std::map<GridKey, const TestPoint*> byKey;
    for (const TestPoint& p : _points)
        byKey[gridKey(p.x, p.y, p.z)] = &p;
    int checked = 0;
    for (const ReadTile& tile : _tiles)
    {
        const osg::Geometry& g = *tile.geometry;
        const auto* positions = static_cast<const osg::Vec3Array*>(g.getVertexAttribArray(10));
        const auto* colours = static_cast<const osg::Vec4ubArray*>(g.getColorArray());
        auto value = [&g](unsigned int location, std::size_t i) {
            return (*static_cast<const osg::FloatArray*>(g.getVertexAttribArray(location)))[i];
        };
        for (std::size_t i = 0; i < positions->size(); ++i)
        {
            const auto found = byKey.find(gridKey(_origin[0] + (*positions)[i].x(), _origin[1] + (*positions)[i].y(),
                                                  _origin[2] + (*positions)[i].z()));
            ASSERT_NE(found, byKey.end());
            const TestPoint& p = *found->second;
            ASSERT_EQ(value(11, i), p.numberOfReturns);
            ASSERT_EQ(value(12, i), p.returnNumber);
            ASSERT_EQ(value(13, i), p.userData);
            ASSERT_EQ(value(14, i), p.intensity);
            ASSERT_EQ(value(15, i), p.classification);
            ASSERT_EQ((*colours)[i], osg::Vec4ub(p.red >> 8, p.green >> 8, p.blue >> 8, 255));
            ++checked;
        }
    }
    EXPECT_EQ(checked, static_cast<int>(_points.size()));
}

TEST_F(TownTileSet, TheRootSampleCoversTheWholeTownEvenly)
{
    // The input comes row by row; the root must not fill up with the first rows.
    const ReadTile& root = _tiles.front();
    const auto* positions = static_cast<const osg::Vec3Array*>(root.geometry->getVertexAttribArray(10));
    EXPECT_EQ(positions->size(), static_cast<std::size_t>(kBudget));
    int cells[6][5] = {};
    for (const osg::Vec3& p : *positions)
    {
        const double x = _origin[0] + p.x() - kEast, y = _origin[1] + p.y() - kNorth;
        ++cells[std::min(5, static_cast<int>(x / 50.0))][std::min(4, static_cast<int>(y / 50.0))];
    }
    // 3000 cells of 2.3 m drawn from some 17,400 that the town fills: some 80
    // over each 50 m square of bare ground, more where blocks stand.
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 5; ++j)
            EXPECT_GT(cells[i][j], 50) << "cell " << i << ", " << j;
}

TEST_F(TownTileSet, TheSetCanBeMovedAndStillReads)
{
    cxtest::TempDir elsewhere;
    const fs::path moved = elsewhere.path() / "deeper" / "town";
    fs::create_directories(moved.parent_path());
    fs::copy(_output, moved, fs::copy_options::recursive);
    const std::vector<ReadTile> tiles = readTileSet(moved);
    ASSERT_EQ(tiles.size(), _tiles.size());
    std::size_t points = 0;
    for (const ReadTile& tile : tiles)
    {
        points += tile.geometry->getVertexArray()->getNumElements();
        EXPECT_EQ(tile.file.find(_output.string()), std::string::npos) << "read from the old place: " << tile.file;
    }
    EXPECT_EQ(points, _points.size());
}

TEST_F(TownTileSet, StreamingThroughSpillFilesGivesTheSameTiles)
{
    cxtest::TempDir dir;
    cxtiler::PointTilerOptions options;
    options.inputs = {_input};
    options.output = (dir.path() / "streamed").string();
    options.maxPointsPerTile = kBudget;
    options.memoryPoints = 20000; // far less than the town: the upper levels stream
    options.quiet = true;
    std::ostringstream log;
    const cxtiler::PointTilerSummary summary = cxtiler::tilePointCloud(options, log, false);
    EXPECT_GT(summary.spilledPoints, _points.size()) << "the root and level 1 should stream";
    EXPECT_FALSE(fs::exists(dir.path() / "streamed" / "spill")) << "spill files are removed";
    const std::vector<ReadTile> streamed = readTileSet(dir.path() / "streamed");
    ASSERT_EQ(streamed.size(), _tiles.size());
    for (std::size_t i = 0; i < streamed.size(); ++i)
    {
        ASSERT_EQ(streamed[i].path, _tiles[i].path);
        EXPECT_EQ(tileKeys(streamed[i], _origin), tileKeys(_tiles[i], _origin)) << "tile '" << _tiles[i].path << "'";
    }
}

TEST(PointTiler, ASmallCloudIsOneLeafTile)
{
    cxtest::TempDir dir;
    std::string text;
    for (int i = 0; i < 500; ++i)
        text += std::to_string(kEast + i % 25) + " " + std::to_string(kNorth + i / 25) + " 50 " + std::to_string(i) + "\n";
    const std::string input = dir.write("small.xyz", text).string();
    const RunResult r = runTiler({"points", input, (dir.path() / "out").string(), "--srs", "EPSG:32650"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<ReadTile> tiles = readTileSet(dir.path() / "out");
    ASSERT_EQ(tiles.size(), 1u);
    EXPECT_EQ(tiles[0].lod->getNumChildren(), 1u);
    EXPECT_TRUE(tiles[0].lod->getNumFileNames() < 2 || tiles[0].lod->getFileName(1).empty());
    EXPECT_EQ(tiles[0].geometry->getVertexArray()->getNumElements(), 500u);
    EXPECT_FALSE(fs::exists(dir.path() / "out" / "r.osgb"));
}

TEST(PointTiler, IdenticalPointsSinkToTheDeepestLevelThroughFoldersOfFiles)
{
    cxtest::TempDir dir;
    std::string text;
    for (int i = 0; i < 40; ++i)
        text += "448000.5 4418000.5 50 " + std::to_string(i) + "\n";
    const std::string input = dir.write("same.xyz", text).string();
    const RunResult r = runTiler({"points", input, (dir.path() / "out").string(), "--srs", "EPSG:32650",
                                  "--max-points-per-tile", "100"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(readTileSet(dir.path() / "out").size(), 1u);
    // Under the budget: one tile. Over it they go down one a level.
    std::string many;
    for (int i = 0; i < 140; ++i)
        many += "448000.5 4418000.5 50 " + std::to_string(i) + "\n";
    const std::string input2 = dir.write("many.xyz", many).string();
    const RunResult r2 = runTiler({"points", input2, (dir.path() / "deep").string(), "--srs", "EPSG:32650",
                                   "--max-points-per-tile", "100"});
    ASSERT_EQ(r2.status, 0) << r2.err;
    const std::vector<ReadTile> tiles = readTileSet(dir.path() / "deep");
    ASSERT_EQ(tiles.size(), 24u) << "one tile a level, levels 0 to 23";
    std::size_t total = 0;
    for (const ReadTile& tile : tiles)
    {
        const std::size_t n = tile.geometry->getVertexArray()->getNumElements();
        total += n;
        EXPECT_EQ(n, tile.level == 23 ? 140u - 23u : 1u) << "level " << tile.level;
        EXPECT_EQ(tile.path, std::string(static_cast<std::size_t>(tile.level), '0'));
    }
    EXPECT_EQ(total, 140u);
    // Every fourth level starts a folder.
    EXPECT_TRUE(fs::exists(dir.path() / "deep" / "0000" / "r0000.osgb"));
    EXPECT_TRUE(fs::exists(dir.path() / "deep" / "0000" / "0000" / "0000" / "0000" / "0000"
                           / ("r" + std::string(22, '0') + ".osgb")));
    EXPECT_EQ(cxtiler::PointTileWriter::childrenFile(""), "r.osgb");
    EXPECT_EQ(cxtiler::PointTileWriter::childrenFile("012"), "r012.osgb");
    EXPECT_EQ(cxtiler::PointTileWriter::childrenFile("0123"), "0123/r0123.osgb");
    EXPECT_EQ(cxtiler::PointTileWriter::childrenFile("012345670"), "0123/4567/r012345670.osgb");
}

namespace
{

/** A tiny cloud in a LAS file with the given CRS records. */
std::string writeTinyLas(const fs::path& path, std::vector<LasRecord> vlrs)
{
    LasFile las;
    las.points = {{kEast, kNorth, 40.0}, {kEast + 10, kNorth + 5, 42.0}, {kEast + 3, kNorth + 8, 45.0}};
    las.vlrs = std::move(vlrs);
    writeLas(path.string(), las);
    return path.string();
}

/** A failed run: status 1, the message, and nothing left in `dir` but `keep`. */
void expectFailed(const RunResult& r, const std::string& says, const fs::path& dir, std::set<std::string> keep)
{
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_TRUE(contains(r.err, says)) << r.err;
    std::set<std::string> present;
    for (const auto& entry : fs::directory_iterator(dir))
        present.insert(entry.path().filename().string());
    EXPECT_EQ(present, keep);
}

} // namespace

TEST(PointTilerCrs, FromAWktRecordGeoKeysOrTheCommandLine)
{
    cxtest::TempDir dir;
    const std::string wkt = writeTinyLas(dir.path() / "wkt.las", {wktRecord(32650)});
    ASSERT_EQ(runTiler({"points", wkt, (dir.path() / "a").string()}).status, 0);
    EXPECT_TRUE(contains(readText(dir.path() / "a" / "cloud.json"), "UTM zone 50N"));

    const std::string keys =
        writeTinyLas(dir.path() / "keys.las", {{"LASF_Projection", 34735, geoKeys({{1024, 1}, {3072, 32650}})}});
    const RunResult k = runTiler({"points", keys, (dir.path() / "b").string()});
    ASSERT_EQ(k.status, 0) << k.err;
    EXPECT_TRUE(contains(readText(dir.path() / "b" / "cloud.json"), "\"crs\": \"EPSG:32650\""));
    EXPECT_TRUE(contains(k.out, "CRS from its GeoKeys (EPSG:32650)")) << k.out;

    // --srs wins over the file's own.
    const RunResult o = runTiler({"points", wkt, (dir.path() / "c").string(), "--srs", "EPSG:32651"});
    ASSERT_EQ(o.status, 0) << o.err;
    const std::string json = readText(dir.path() / "c" / "cloud.json");
    EXPECT_TRUE(contains(json, "UTM zone 51N")) << json;
    const std::vector<ReadTile> tiles = readTileSet(dir.path() / "c");
    ProjToGeocentric zone51("EPSG:32651");
    const osg::Vec3d anchor = tiles[0].content->getMatrix().getTrans();
    const auto& vertices = *static_cast<const osg::Vec3Array*>(tiles[0].geometry->getVertexArray());
    const auto& positions = *static_cast<const osg::Vec3Array*>(tiles[0].geometry->getVertexAttribArray(10));
    const std::vector<double> origin = jsonArray(json, "origin");
    for (std::size_t i = 0; i < vertices.size(); ++i)
    {
        const osg::Vec3d expected =
            zone51(origin[0] + positions[i].x(), origin[1] + positions[i].y(), origin[2] + positions[i].z());
        EXPECT_LT((anchor + osg::Vec3d(vertices[i]) - expected).length(), 1e-3);
    }
}

TEST(PointTilerCrs, MissingUnknownOrMixedSystemsAreRefused)
{
    cxtest::TempDir dir;
    const fs::path in = dir.path() / "in";
    fs::create_directory(in);
    const fs::path out = dir.path() / "out";
    fs::create_directory(out);
    const std::string none = writeTinyLas(in / "none.las", {});
    expectFailed(runTiler({"points", none, (out / "a").string()}), "'" + none + "': it carries no coordinate system",
                 out, {});
    const RunResult hint = runTiler({"points", none, (out / "a").string()});
    EXPECT_TRUE(contains(hint.err, "--srs")) << hint.err;

    const std::string user =
        writeTinyLas(in / "user.las", {{"LASF_Projection", 34735, geoKeys({{3072, 32767}})}});
    expectFailed(runTiler({"points", user, (out / "b").string()}), "user-defined", out, {});
    EXPECT_EQ(runTiler({"points", user, (out / "b").string(), "--srs", "EPSG:32650"}).status, 0)
        << "--srs stands in for what the file cannot say";

    expectFailed(runTiler({"points", none, (out / "c").string(), "--srs", "EPSG:999999"}),
                 "unknown coordinate system 'EPSG:999999'", out, {"b"});
    const std::string bad = writeTinyLas(in / "bad.las", {{"LASF_Projection", 2112, "PROJCS[\"nonsense\"]"}});
    expectFailed(runTiler({"points", bad, (out / "d").string()}), "unknown coordinate system in its WKT record", out,
                 {"b"});

    const std::string zone50 = writeTinyLas(in / "z50.las", {wktRecord(32650)});
    const std::string zone51 = writeTinyLas(in / "z51.las", {wktRecord(32651)});
    expectFailed(runTiler({"points", zone50, zone51, (out / "e").string()}), "differs from that of '" + zone50 + "'",
                 out, {"b"});

    const std::string xyz = dir.write("in/plain.xyz", "1 2 3\n").string();
    expectFailed(runTiler({"points", xyz, (out / "f").string()}), "'" + xyz + "': it carries no coordinate system",
                 out, {"b"});
    expectFailed(runTiler({"points", xyz, (out / "g").string(), "--srs", "EPSG:4978"}), "is geocentric", out, {"b"});
}

TEST(PointTilerCrs, GeographicInputIsProjectedToItsUtmZone)
{
    cxtest::TempDir dir;
    std::string text;
    for (int i = 0; i < 50; ++i)
        text += std::to_string(116.45 + i * 1e-4) + " " + std::to_string(39.91 + (i % 7) * 1e-4) + " " +
                std::to_string(40 + i % 5) + "\n";
    const std::string input = dir.write("lonlat.xyz", text).string();
    const RunResult r = runTiler({"points", input, (dir.path() / "out").string(), "--srs", "EPSG:4326"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string json = readText(dir.path() / "out" / "cloud.json");
    EXPECT_TRUE(contains(json, "UTM zone 50N")) << json;
    EXPECT_TRUE(contains(r.out, "projected to WGS 84 / UTM zone 50N")) << r.out;
    // Every vertex is PROJ's geocentric point of a line of the file.
    ProjToGeocentric fromDegrees("EPSG:4326");
    std::vector<osg::Vec3d> expected;
    std::istringstream lines(text);
    double lon, lat, h;
    while (lines >> lon >> lat >> h)
        expected.push_back(fromDegrees(lon, lat, h));
    const std::vector<ReadTile> tiles = readTileSet(dir.path() / "out");
    ASSERT_EQ(tiles.size(), 1u);
    const osg::Vec3d anchor = tiles[0].content->getMatrix().getTrans();
    const auto& vertices = *static_cast<const osg::Vec3Array*>(tiles[0].geometry->getVertexArray());
    ASSERT_EQ(vertices.size(), expected.size());
    for (const osg::Vec3& v : vertices)
    {
        double nearest = 1e300;
        for (const osg::Vec3d& e : expected)
            nearest = std::min(nearest, (anchor + osg::Vec3d(v) - e).length());
        EXPECT_LT(nearest, 1e-3);
    }
}

TEST(PointTilerOutput, AFailedRunLeavesNothingAndKeepsAnEarlierSet)
{
    cxtest::TempDir dir;
    const fs::path in = dir.path() / "in";
    fs::create_directory(in);
    const fs::path out = dir.path() / "out";
    fs::create_directory(out);
    const std::string good = writeTinyLas(in / "good.las", {wktRecord(32650)});
    // A truncated second input is found before anything is written.
    LasFile las;
    las.points = std::vector<TestPoint>(100, TestPoint{kEast, kNorth, 40.0});
    las.vlrs.push_back(wktRecord(32650));
    const std::string cut = (in / "cut.las").string();
    writeLas(cut, las);
    fs::resize_file(cut, fs::file_size(cut) - 100);
    expectFailed(runTiler({"points", good, cut, (out / "set").string()}), "'" + cut + "'", out, {});

    // An earlier set stays as it was when a new run fails, and is replaced by one that succeeds.
    ASSERT_EQ(runTiler({"points", good, (out / "set").string()}).status, 0);
    const std::string before = readText(out / "set" / "cloud.json");
    expectFailed(runTiler({"points", good, cut, (out / "set").string()}), "truncated", out, {"set"});
    EXPECT_EQ(readText(out / "set" / "cloud.json"), before);
    const std::string xyz = dir.write("in/more.xyz", "448000 4418000 40\n448001 4418000 40\n448000 4418001 41\n"
                                                     "448002 4418001 42\n").string();
    ASSERT_EQ(runTiler({"points", xyz, (out / "set").string(), "--srs", "EPSG:32650"}).status, 0);
    EXPECT_TRUE(contains(readText(out / "set" / "cloud.json"), "\"points\": 4"));
    std::set<std::string> present;
    for (const auto& entry : fs::directory_iterator(out))
        present.insert(entry.path().filename().string());
    EXPECT_EQ(present, std::set<std::string>{"set"}) << "no temporary or old folders stay";

    // A folder that is not a tile set is never replaced; a file is no folder.
    fs::create_directory(out / "mine");
    dir.write("out/mine/notes.txt", "keep me");
    expectFailed(runTiler({"points", good, (out / "mine").string()}), "something other than a point cloud tile set",
                 out, {"set", "mine"});
    EXPECT_EQ(readText(out / "mine" / "notes.txt"), "keep me");
    dir.write("out/file", "x");
    expectFailed(runTiler({"points", good, (out / "file").string()}), "it is a file", out, {"set", "mine", "file"});
    expectFailed(runTiler({"points", good, (out / "missing" / "set").string()}), "does not exist", out,
                 {"set", "mine", "file"});
}

TEST(PointTilerOutput, EveryKindOfBadInputFailsNamingItAndWritesNothing)
{
    cxtest::TempDir dir;
    const fs::path in = dir.path() / "in";
    fs::create_directory(in);
    const fs::path out = dir.path() / "out";
    fs::create_directory(out);
    LasFile las;
    las.minor = 4;
    las.format = 7;
    las.points = std::vector<TestPoint>(50, TestPoint{kEast, kNorth, 40.0});
    las.vlrs.push_back(wktRecord(32650));
    const std::string good = (in / "good.las").string();
    writeLas(good, las);

    std::vector<std::pair<std::string, std::string>> bad; // file, what the message says
    const std::string cut = (in / "cut.las").string();
    fs::copy_file(good, cut);
    fs::resize_file(cut, fs::file_size(cut) - 36 * 10);
    bad.push_back({cut, "truncated"});
    const std::string magic = (in / "magic.las").string();
    fs::copy_file(good, magic);
    {
        std::fstream f(magic, std::ios::in | std::ios::out | std::ios::binary);
        f.write("LASX", 4);
    }
    bad.push_back({magic, "no \"LASF\" signature"});
    LasFile laz = las;
    laz.formatByte = 0x80 | 7;
    const std::string compressed = (in / "cloud.laz").string();
    writeLas(compressed, laz);
    bad.push_back({compressed, "compressed (LAZ"});
    LasFile more = las;
    more.declaredCount = 5000;
    const std::string count = (in / "count.las").string();
    writeLas(count, more);
    bad.push_back({count, "promises 5,000 points"});
    PlyFile big;
    big.format = "binary_big_endian";
    big.points = las.points;
    const std::string bigEndian = (in / "big.ply").string();
    writePly(bigEndian, big);
    bad.push_back({bigEndian, "big-endian"});
    bad.push_back({dir.write("in/empty.xyz", "").string(), "empty"});
    bad.push_back({dir.write("in/comments.xyz", "# only a comment\n").string(), "no points"});

    for (const auto& [file, says] : bad)
    {
        SCOPED_TRACE(file);
        // Behind a good input, so that a bad file stops the run wherever it comes.
        expectFailed(runTiler({"points", good, file, (out / "set").string(), "--srs", "EPSG:32650"}),
                     "'" + file + "': ", out, {});
        const RunResult r = runTiler({"points", file, (out / "set").string(), "--srs", "EPSG:32650"});
        EXPECT_TRUE(contains(r.err, says)) << r.err;
    }
}

TEST(PointTiler, SeveralInputsAreOneCloud)
{
    cxtest::TempDir dir;
    LasFile a;
    a.points = {{kEast, kNorth, 40.0}, {kEast + 10, kNorth, 41.0}};
    a.vlrs.push_back(wktRecord(32650));
    writeLas((dir.path() / "a.las").string(), a);
    LasFile b = a;
    b.minor = 4;
    b.format = 6;
    b.points = {{kEast + 20, kNorth + 20, 42.0}};
    writeLas((dir.path() / "b.las").string(), b);
    const std::string c = dir.write("c.xyz", "448030 4418030 43\n448040 4418040 44\n").string();
    // The XYZ file carries no CRS: --srs names the one of all three.
    const RunResult r = runTiler({"points", (dir.path() / "a.las").string(), (dir.path() / "b.las").string(), c,
                                  (dir.path() / "out").string(), "--srs", "EPSG:32650"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<ReadTile> tiles = readTileSet(dir.path() / "out");
    ASSERT_EQ(tiles.size(), 1u);
    EXPECT_EQ(tiles[0].geometry->getVertexArray()->getNumElements(), 5u);
    const std::string json = readText(dir.path() / "out" / "cloud.json");
    EXPECT_EQ(jsonArray(json, "boundsMin"), (std::vector<double>{kEast, kNorth, 40.0}));
    EXPECT_EQ(jsonArray(json, "boundsMax"), (std::vector<double>{kEast + 40, kNorth + 40, 44.0}));
}

TEST(PointTilerCommandLine, OptionsAreChecked)
{
    cxtest::TempDir dir;
    const std::string good = writeTinyLas(dir.path() / "good.las", {wktRecord(32650)});
    const std::string out = (dir.path() / "out").string();
    EXPECT_EQ(runTiler({"points", good}).status, 2);
    const RunResult lod = runTiler({"points", good, out, "--lod-factor", "0.2"});
    EXPECT_EQ(lod.status, 2);
    EXPECT_TRUE(contains(lod.err, "--lod-factor wants a number")) << lod.err;
    EXPECT_EQ(runTiler({"points", good, out, "--max-points-per-tile", "ten"}).status, 2);
    EXPECT_EQ(runTiler({"points", good, out, "--max-memory", "1"}).status, 2);
    const RunResult small = runTiler({"points", good, out, "--max-memory", "20", "--max-points-per-tile", "100000"});
    EXPECT_EQ(small.status, 1);
    EXPECT_TRUE(contains(small.err, "too small")) << small.err;
    EXPECT_EQ(runTiler({"points", good, out, "--format", "png"}).status, 2);
    const RunResult help = runTiler({"--help"});
    EXPECT_TRUE(contains(help.out, "points INPUT... OUTDIR")) << help.out;
    const RunResult ok = runTiler({"points", good, out, "--lod-factor", "4", "--quiet"});
    ASSERT_EQ(ok.status, 0) << ok.err;
    EXPECT_FALSE(contains(ok.out, "reading")) << ok.out;
    EXPECT_TRUE(contains(readText(dir.path() / "out" / "cloud.json"), "\"lodFactor\": 4"));
}
