// The sample generator end to end: it writes the sample on an elevation file
// with a known slope, and the tests read the table and every model back from
// disk. Under CTest the sample is written once, by the fixture test
// SampleOutputFixture.WritesTheSampleForTheSuite, into the folder named by
// CXSAMPLE_OUTPUT_DIR, and every test of the suite reads that folder; run by
// hand, the suite writes its own copy into a temporary folder.
#include "SampleTestSupport.h"

#include "TempDir.h"

#include <gtest/gtest.h>
#include "GroundHeights.h"

#include <globe/SpatialReference>
#include <oblique/ObliqueDataset>

#include <osg/PagedLOD>
#include <osgDB/ReadFile>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <regex>
#include <set>

using namespace sampletest;

namespace
{

const std::array<const char*, 4> kLevels = {"fine", "middle", "crude", "crude2"};

/** Writes the ramp elevation file and the sample below `root` (root/dem.db,
 *  root/sample/) and records the run's status and output beside them, so that
 *  other processes can read the run as this one saw it. */
RunResult writeSampleRun(const fs::path& root)
{
    fs::create_directories(root);
    const std::string dem = writeRampDem(root);
    // A small point cloud: its own tests make the full one.
    const RunResult run = runSample({(root / "sample").string(), "--dem", dem, "--cloud-points", "20000"});
    std::ofstream(root / "run.out", std::ios::binary) << run.out;
    std::ofstream(root / "run.err", std::ios::binary) << run.err;
    std::ofstream(root / "run.status", std::ios::binary) << run.status;
    return run;
}

/** The run writeSampleRun recorded below `root`; false when there is none. */
bool readSampleRun(const fs::path& root, RunResult& run)
{
    std::ifstream status(root / "run.status");
    if (!(status >> run.status))
        return false;
    run.out = readBytes(root / "run.out");
    run.err = readBytes(root / "run.err");
    return true;
}

/** The folder CTest's fixture writes the sample into; empty when unset. */
fs::path sharedOutputRoot()
{
    const char* dir = std::getenv("CXSAMPLE_OUTPUT_DIR");
    return dir && *dir ? fs::path(dir) : fs::path();
}

class SampleOutput : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        fs::path root = sharedOutputRoot();
        if (root.empty() || !readSampleRun(root, _run))
        {
            _dir = std::make_unique<cxtest::TempDir>();
            root = _dir->path();
            _run = writeSampleRun(root);
        }
        _dem = (root / "dem.db").string();
        _out = root / "sample";
        if (_run.status == 0)
            _objects = readObjects(_out / "data" / "objects.csv", &_header);
    }
    static void TearDownTestSuite() { _dir.reset(); }

    void SetUp() override
    {
        ASSERT_EQ(_run.status, 0) << _run.err;
        ASSERT_FALSE(_objects.empty());
    }

    static fs::path modelPath(const std::string& fileName) { return _out / "models" / fileName; }

    /** The crude file names of the table, each once. */
    static std::set<std::string> modelFiles()
    {
        std::set<std::string> files;
        for (const CsvObject& o : _objects)
            files.insert(o.fileName);
        return files;
    }

    static ModelSurvey survey(const std::string& crudeFile, const std::string& level)
    {
        ModelSurvey s;
        osg::ref_ptr<osg::Node> node = osgDB::readNodeFile(levelPath(modelPath(crudeFile).string(), level));
        if (node)
            node->accept(s);
        return s;
    }

    static std::unique_ptr<cxtest::TempDir> _dir;
    static std::string _dem;
    static fs::path _out;
    static RunResult _run;
    static std::string _header;
    static std::vector<CsvObject> _objects;
};

std::unique_ptr<cxtest::TempDir> SampleOutput::_dir;
std::string SampleOutput::_dem;
fs::path SampleOutput::_out;
RunResult SampleOutput::_run;
std::string SampleOutput::_header;
std::vector<CsvObject> SampleOutput::_objects;

/** The code points of UTF-8 text; false when it is not valid UTF-8. */
bool decodeUtf8(const std::string& text, std::vector<char32_t>& points)
{
    for (std::size_t i = 0; i < text.size();)
    {
        const auto c = static_cast<unsigned char>(text[i]);
        int extra = 0;
        char32_t point = 0;
        if (c < 0x80)
            point = c;
        else if ((c & 0xE0) == 0xC0)
            extra = 1, point = c & 0x1F;
        else if ((c & 0xF0) == 0xE0)
            extra = 2, point = c & 0x0F;
        else if ((c & 0xF8) == 0xF0)
            extra = 3, point = c & 0x07;
        else
            return false;
        if (extra > 0 && i + extra >= text.size())
            return false;
        for (int k = 1; k <= extra; ++k)
        {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80)
                return false;
            point = (point << 6) | (next & 0x3F);
        }
        points.push_back(point);
        i += 1 + extra;
    }
    return true;
}

} // namespace

TEST_F(SampleOutput, ReportsItsProgress)
{
    EXPECT_TRUE(contains(_run.out, "planned ")) << _run.out;
    EXPECT_TRUE(contains(_run.out, "buildings: ")) << _run.out;
    EXPECT_TRUE(contains(_run.out, "terrain: 1/1 models")) << _run.out;
    EXPECT_TRUE(contains(_run.out, "pipes: ")) << _run.out;
    EXPECT_TRUE(contains(_run.out, "ground heights from " + _dem)) << _run.out;
    EXPECT_TRUE(contains(_run.out, "wrote " + (_out / "data" / "objects.csv").string())) << _run.out;
    EXPECT_TRUE(_run.err.empty()) << _run.err;
}

TEST_F(SampleOutput, TableHasTheStoreHeaderAndNumberedRows)
{
    EXPECT_EQ(_header, "objID,enterID,enterType,objName,lon,lat,height,radius,objType,fileName,heading,pitch,roll,"
                       "scaleX,scaleY,scaleZ");
    for (std::size_t i = 0; i < _objects.size(); ++i)
    {
        EXPECT_EQ(_objects[i].objID, static_cast<int>(i) + 1);
        EXPECT_EQ(_objects[i].scaleX, 1.0);
        EXPECT_EQ(_objects[i].scaleY, 1.0);
        EXPECT_EQ(_objects[i].scaleZ, 1.0);
        EXPECT_EQ(_objects[i].pitch, 0.0);
        EXPECT_EQ(_objects[i].roll, 0.0);
        EXPECT_GE(_objects[i].heading, 0.0);
        EXPECT_LT(_objects[i].heading, 360.0);
    }
}

TEST_F(SampleOutput, EveryModelExistsInAllFourLevelsAndReads)
{
    const std::set<std::string> files = modelFiles();
    EXPECT_GE(files.size(), 20u);
    for (const std::string& crude : files)
    {
        // The viewer puts the level's word in the place of the first "crude".
        ASSERT_TRUE(contains(crude, "_crude.osgb")) << crude;
        EXPECT_EQ(crude.find("crude"), crude.find("_crude.osgb") + 1) << crude;
        for (const char* level : kLevels)
        {
            const std::string path = levelPath(modelPath(crude).string(), level);
            ASSERT_TRUE(fs::is_regular_file(path)) << path;
            osg::ref_ptr<osg::Node> node = osgDB::readNodeFile(path);
            ASSERT_TRUE(node.valid()) << path;
            ModelSurvey s;
            node->accept(s);
            EXPECT_GT(s.triangles, 0u) << path;
            EXPECT_EQ(s.geometriesWithNormals, s.geometries) << path << ": a geometry without normals";
        }
    }
}

TEST_F(SampleOutput, LevelsHaveFewerTrianglesFromFineToCrude2)
{
    for (const std::string& crude : modelFiles())
    {
        std::vector<std::size_t> counts;
        for (const char* level : kLevels)
            counts.push_back(survey(crude, level).triangles);
        EXPECT_GT(counts[0], counts[1]) << crude << ": fine against middle";
        EXPECT_GT(counts[1], counts[2]) << crude << ": middle against crude";
        EXPECT_GT(counts[2], counts[3]) << crude << ": crude against crude2";
        EXPECT_GT(counts[3], 0u) << crude;
    }
}

TEST_F(SampleOutput, RadiusIsTheModelsBoundAboutItsPosition)
{
    std::map<std::string, double> radii;
    for (const CsvObject& o : _objects)
    {
        const auto [it, added] = radii.emplace(o.fileName, o.radius);
        EXPECT_EQ(it->second, o.radius) << o.fileName << ": one model, two radii";
    }
    for (const auto& [crude, radius] : radii)
    {
        // The fine level sets the bound; no level reaches beyond it.
        const ModelSurvey fine = survey(crude, "fine");
        EXPECT_NEAR(fine.radius, radius, 0.05 * radius) << crude;
        for (const char* level : kLevels)
            EXPECT_LE(survey(crude, level).radius, radius * 1.0001) << crude << " " << level;
        // Levels of one model are the same size: the crude box is not a toy.
        EXPECT_GT(survey(crude, "crude").radius, 0.75 * radius) << crude;
    }
}

TEST_F(SampleOutput, ObjectsLieInTheAreaAroundBeijing)
{
    for (const CsvObject& o : _objects)
    {
        EXPECT_GT(o.lon, 116.30) << o.objName;
        EXPECT_LT(o.lon, 116.48) << o.objName;
        EXPECT_GT(o.lat, 39.86) << o.objName;
        EXPECT_LT(o.lat, 39.96) << o.objName;
    }
    // Spread over the area, not heaped in one spot.
    const auto [west, east] = std::minmax_element(_objects.begin(), _objects.end(),
                                                  [](const CsvObject& a, const CsvObject& b) { return a.lon < b.lon; });
    const auto [south, north] = std::minmax_element(
        _objects.begin(), _objects.end(), [](const CsvObject& a, const CsvObject& b) { return a.lat < b.lat; });
    EXPECT_GT(east->lon - west->lon, 0.1);
    EXPECT_GT(north->lat - south->lat, 0.05);
}

TEST_F(SampleOutput, HeightsAreTheGroundOfTheElevationFile)
{
    double lowest = 1e9, highest = -1e9;
    for (const CsvObject& o : _objects)
    {
        EXPECT_NEAR(o.height, rampHeight(o.lon), 0.3) << o.objName << " at " << o.lon;
        lowest = std::min(lowest, o.height);
        highest = std::max(highest, o.height);
    }
    // The ramp rises some 30 m across the area.
    EXPECT_GT(highest - lowest, 20.0);
}

TEST_F(SampleOutput, ThreeEnterprisesWithTheirTypes)
{
    std::map<int, int> count;
    std::map<int, std::set<std::string>> folders;
    for (const CsvObject& o : _objects)
    {
        ++count[o.enterID];
        folders[o.enterID].insert(o.fileName.substr(0, o.fileName.find('/')));
        switch (o.enterID)
        {
        case 1:
            EXPECT_EQ(o.enterType, 0) << o.objName;
            EXPECT_EQ(o.objType, 0) << o.objName;
            break;
        case 2:
            EXPECT_EQ(o.enterType, 1) << o.objName;
            EXPECT_EQ(o.objType, 1) << o.objName;
            break;
        case 3:
            EXPECT_EQ(o.enterType, 2) << o.objName;
            EXPECT_EQ(o.objType, 2) << o.objName;
            break;
        default:
            ADD_FAILURE() << "enterprise " << o.enterID << " for " << o.objName;
        }
    }
    EXPECT_GE(_objects.size(), 200u);
    EXPECT_LE(_objects.size(), 1000u);
    EXPECT_GE(count[1], 200);
    EXPECT_EQ(count[2], 1);
    EXPECT_GE(count[3], 50);
    EXPECT_EQ(folders[1], std::set<std::string>{"buildings"});
    EXPECT_EQ(folders[2], std::set<std::string>{"terrain"});
    EXPECT_EQ(folders[3], std::set<std::string>{"pipes"});
}

TEST_F(SampleOutput, NamesAreChineseAndEnglishInUtf8)
{
    const std::regex pattern("(.+) ([0-9]+) / ([A-Za-z ]+) ([0-9]+)");
    std::set<std::string> names;
    for (const CsvObject& o : _objects)
    {
        std::vector<char32_t> points;
        ASSERT_TRUE(decodeUtf8(o.objName, points)) << "not UTF-8: " << o.objName;
        std::smatch m;
        ASSERT_TRUE(std::regex_match(o.objName, m, pattern)) << o.objName;
        EXPECT_EQ(m[2], m[4]) << o.objName;
        std::vector<char32_t> chinese;
        ASSERT_TRUE(decodeUtf8(m[1], chinese));
        for (char32_t c : chinese)
            EXPECT_TRUE(c >= 0x4E00 && c <= 0x9FFF) << o.objName << ": U+" << std::hex << static_cast<unsigned>(c);
        EXPECT_TRUE(names.insert(o.objName).second) << "twice: " << o.objName;
    }
    // The bytes of the file itself, as the store reads them.
    const std::string csv = readBytes(_out / "data" / "objects.csv");
    EXPECT_TRUE(contains(csv, ",\xE5\x86\x99\xE5\xAD\x97\xE6\xA5\xBC 1 / Office Tower 1,")) << "写字楼 1";
    EXPECT_TRUE(contains(csv, ",\xE4\xBD\x8F\xE5\xAE\x85\xE6\xA5\xBC 1 / Residence 1,")) << "住宅楼 1";
    EXPECT_TRUE(contains(csv, ",\xE7\xBB\x99\xE6\xB0\xB4\xE7\xAE\xA1 1 / Water Main 1,")) << "给水管 1";
    EXPECT_NE(static_cast<unsigned char>(csv[0]), 0xEF) << "no byte order mark";
}

TEST_F(SampleOutput, BuildingsAreVariedAndSquaredToTheirStreets)
{
    std::set<std::string> models;
    std::set<std::pair<long, long>> footprints;
    std::set<long> gridAngles;
    double lowest = 1e9, highest = 0.0;
    for (const CsvObject& o : _objects)
    {
        if (o.enterID != 1)
            continue;
        gridAngles.insert(std::lround(std::fmod(o.heading, 90.0) * 100.0));
        if (!models.insert(o.fileName).second)
            continue;
        const ModelSurvey fine = survey(o.fileName, "fine");
        const ModelSurvey crude = survey(o.fileName, "crude");
        // The crude boxes' top is the roof; the fine level has parapets and plant above it.
        const double height = crude.bounds.zMax();
        lowest = std::min(lowest, height);
        highest = std::max(highest, height);
        footprints.insert({std::lround(crude.bounds.xMax() - crude.bounds.xMin()),
                           std::lround(crude.bounds.yMax() - crude.bounds.yMin())});
        EXPECT_GE(height, 10.0) << o.fileName;
        EXPECT_LE(height, 250.0) << o.fileName;
        // Standing on the ground, reaching a little below it.
        EXPECT_LT(fine.bounds.zMin(), 0.0) << o.fileName;
        EXPECT_GT(fine.bounds.zMin(), -5.0) << o.fileName;
        // Placed on its position: centred on the footprint.
        EXPECT_NEAR(crude.bounds.xMin() + crude.bounds.xMax(), 0.0, 0.01) << o.fileName;
        EXPECT_NEAR(crude.bounds.yMin() + crude.bounds.yMax(), 0.0, 0.01) << o.fileName;
    }
    EXPECT_GE(models.size(), 20u);
    EXPECT_GE(footprints.size(), 15u);
    EXPECT_LT(lowest, 15.0);
    EXPECT_GT(highest, 200.0);
    // Every building is turned by whole quarter turns from its district's grid:
    // one angle (modulo 90 degrees) per grid, and not all grids north-south.
    EXPECT_GE(gridAngles.size(), 2u);
    EXPECT_LE(gridAngles.size(), 3u);
}

TEST_F(SampleOutput, SurfacesAreTexturedOrColoured)
{
    std::map<int, std::string> firstOf;
    std::map<std::string, std::string> pipeOfClass;
    for (const CsvObject& o : _objects)
    {
        firstOf.emplace(o.enterID, o.fileName);
        for (const char* kind : {"Water Main", "Gas Main", "Heat Main"})
            if (contains(o.objName, kind))
                pipeOfClass.emplace(kind, o.fileName);
    }

    // Buildings: a window texture embedded in the file, coarser in the middle level.
    const ModelSurvey building = survey(firstOf[1], "fine");
    ASSERT_EQ(building.images.size(), 1u) << firstOf[1];
    const osg::Image* facade = building.images[0].get();
    ASSERT_NE(facade->data(), nullptr);
    EXPECT_GE(facade->s(), 64);
    const ModelSurvey buildingMiddle = survey(firstOf[1], "middle");
    ASSERT_EQ(buildingMiddle.images.size(), 1u);
    EXPECT_LT(buildingMiddle.images[0]->s(), facade->s());
    EXPECT_TRUE(survey(firstOf[1], "crude").images.empty()) << "the crude level is a coloured box";

    // The park: a ground texture at every level, finest in the fine one.
    int previous = 1 << 30;
    for (const char* level : kLevels)
    {
        const ModelSurvey park = survey(firstOf[2], level);
        ASSERT_EQ(park.images.size(), 1u) << level;
        ASSERT_NE(park.images[0]->data(), nullptr);
        EXPECT_LT(park.images[0]->s(), previous) << level;
        previous = park.images[0]->s();
    }

    // Pipes: coloured by class.
    ASSERT_EQ(pipeOfClass.size(), 3u);
    const osg::Vec4d water = survey(pipeOfClass["Water Main"], "fine").colourSum;
    const osg::Vec4d gas = survey(pipeOfClass["Gas Main"], "fine").colourSum;
    const osg::Vec4d heat = survey(pipeOfClass["Heat Main"], "fine").colourSum;
    EXPECT_GT(water.z(), 1.5 * water.x()) << "water is blue";
    EXPECT_GT(water.z(), 1.5 * water.y()) << "water is blue";
    EXPECT_GT(gas.x(), 3.0 * gas.z()) << "gas is yellow";
    EXPECT_GT(gas.y(), 3.0 * gas.z()) << "gas is yellow";
    EXPECT_GT(heat.x(), 3.0 * heat.y()) << "heat is red";
    EXPECT_GT(heat.x(), 3.0 * heat.z()) << "heat is red";
}

TEST_F(SampleOutput, PipesRunAlongTheStreetsAboveTheGround)
{
    for (const CsvObject& o : _objects)
    {
        if (o.enterID != 3)
            continue;
        const ModelSurvey fine = survey(o.fileName, "fine");
        // A run along the model's y axis, centred on its position.
        EXPECT_GT(fine.bounds.yMax() - fine.bounds.yMin(), 100.0) << o.fileName;
        EXPECT_NEAR(fine.bounds.yMin() + fine.bounds.yMax(), 0.0, 0.1) << o.fileName;
        EXPECT_LT(fine.bounds.xMax() - fine.bounds.xMin(), 12.0) << o.fileName;
        // Laid above the ground; only the service risers go down into it.
        const ModelSurvey crude = survey(o.fileName, "crude");
        EXPECT_GT(crude.bounds.zMin(), 0.0) << o.fileName;
        EXPECT_LT(crude.bounds.zMax(), 3.0) << o.fileName;
    }
}

TEST_F(SampleOutput, SampleIsSmallOnDisk)
{
    auto bytesUnder = [](const fs::path& folder) {
        std::uintmax_t bytes = 0;
        for (const auto& entry : fs::recursive_directory_iterator(folder))
            if (entry.is_regular_file())
                bytes += entry.file_size();
        return bytes;
    };
    const std::uintmax_t objects = bytesUnder(_out / "models") + bytesUnder(_out / "data");
    EXPECT_LT(objects, 4u * 1024u * 1024u);
    EXPECT_GT(objects, 200u * 1024u);
    const std::uintmax_t oblique = bytesUnder(_out / "oblique");
    EXPECT_LT(oblique, 10u * 1024u * 1024u);
    EXPECT_GT(oblique, 1024u * 1024u);
}

namespace
{

bool textured(const osg::Drawable& drawable)
{
    const osg::StateSet* state = drawable.getStateSet();
    return state && state->getTextureAttribute(0, osg::StateAttribute::TEXTURE)
           && drawable.asGeometry()->getTexCoordArray(0);
}

/** A paged node as the dataset writes them: a textured coarse geode shown
 *  until the node is large on screen, then the named finer file. */
void expectPagedRegion(const osg::Node* node, const std::string& finer)
{
    auto* plod = dynamic_cast<const osg::PagedLOD*>(node);
    ASSERT_NE(plod, nullptr);
    EXPECT_EQ(plod->getRangeMode(), osg::LOD::PIXEL_SIZE_ON_SCREEN);
    EXPECT_EQ(plod->getCenterMode(), osg::LOD::USER_DEFINED_CENTER);
    EXPECT_GT(plod->getRadius(), 40.0f);
    ASSERT_EQ(plod->getNumChildren(), 1u);
    const osg::Geode* geode = plod->getChild(0)->asGeode();
    ASSERT_NE(geode, nullptr);
    ASSERT_GE(geode->getNumDrawables(), 1u);
    EXPECT_TRUE(textured(*geode->getDrawable(0)));
    ASSERT_EQ(plod->getNumFileNames(), 2u);
    EXPECT_EQ(plod->getFileName(1), finer);
    EXPECT_LT(plod->getMaxRange(0), plod->getMaxRange(1));
    EXPECT_EQ(plod->getMaxRange(0), plod->getMinRange(1));
}

} // namespace

TEST_F(SampleOutput, TheObliqueDatasetIsAPyramidOfThreePagedLevels)
{
    std::string message;
    osg::ref_ptr<ObliqueDataset> dataset = ObliqueDataset::open((_out / "oblique").string(), message);
    ASSERT_TRUE(dataset.valid()) << message;
    EXPECT_EQ(dataset->getSRSText(), "EPSG:4547");
    ASSERT_EQ(dataset->getRootTiles().size(), 4u);
    EXPECT_GT(dataset->getOrigin().x(), 500000.0); // east of the central meridian 114 E
    EXPECT_GT(dataset->getOrigin().y(), 4400000.0);

    const fs::path folder = fs::path(dataset->getRootTiles().front()).parent_path();
    const std::string tile = folder.filename().string();
    osg::ref_ptr<osg::Node> root = osgDB::readNodeFile(dataset->getRootTiles().front());
    expectPagedRegion(root.get(), tile + "_L1.osgb");

    osg::ref_ptr<osg::Node> level1 = osgDB::readNodeFile((folder / (tile + "_L1.osgb")).string());
    ASSERT_TRUE(level1.valid() && level1->asGroup());
    ASSERT_EQ(level1->asGroup()->getNumChildren(), 4u);
    for (unsigned int q = 0; q < 4; ++q)
    {
        const std::string quadrant = tile + "_L2_" + std::to_string(q) + ".osgb";
        expectPagedRegion(level1->asGroup()->getChild(q), quadrant);
        osg::ref_ptr<osg::Node> level2 = osgDB::readNodeFile((folder / quadrant).string());
        ASSERT_TRUE(level2.valid() && level2->asGroup()) << quadrant;
        ASSERT_EQ(level2->asGroup()->getNumChildren(), 4u);
        for (unsigned int b = 0; b < 4; ++b)
        {
            const std::string block = tile + "_L3_" + std::to_string(q) + std::to_string(b) + ".osgb";
            expectPagedRegion(level2->asGroup()->getChild(b), block);
            osg::ref_ptr<osg::Node> leaf = osgDB::readNodeFile((folder / block).string());
            ASSERT_TRUE(leaf.valid()) << block;
            const osg::Geode* geode = leaf->asGeode();
            ASSERT_NE(geode, nullptr) << block; // a lone geode, re-projected whole
            for (unsigned int d = 0; d < geode->getNumDrawables(); ++d)
                EXPECT_TRUE(textured(*geode->getDrawable(d))) << block;
        }
    }
}

TEST_F(SampleOutput, TheObliqueGroundLiesOnTheTerrainAsTheGlobeDrawsIt)
{
    std::string message;
    osg::ref_ptr<ObliqueDataset> dataset = ObliqueDataset::open((_out / "oblique").string(), message);
    ASSERT_TRUE(dataset.valid()) << message;
    const cxsample::GroundHeights ground(_dem);
    const globe::SpatialReference* wgs84 = globe::SpatialReference::create("wgs84");

    // The ground grid of a finest block: the first vertices of its surface.
    const fs::path folder = fs::path(dataset->getRootTiles().back()).parent_path();
    osg::ref_ptr<osg::Node> leaf = osgDB::readNodeFile((folder / (folder.filename().string() + "_L3_12.osgb")).string());
    ASSERT_TRUE(leaf.valid() && leaf->asGeode());
    const auto* vertices =
        dynamic_cast<const osg::Vec3Array*>(leaf->asGeode()->getDrawable(0)->asGeometry()->getVertexArray());
    ASSERT_NE(vertices, nullptr);
    ASSERT_GE(vertices->size(), 81u);
    for (std::size_t i = 0; i < 81; ++i)
    {
        const osg::Vec3d local = (*vertices)[i];
        osg::Vec3d geographic;
        ASSERT_TRUE(dataset->getSRS()->transform(dataset->getOrigin() + local, wgs84, geographic));
        const double surface = ground.surfaceAt(geographic.x(), geographic.y());
        EXPECT_NEAR(dataset->getOrigin().z() + local.z(), surface + 1.0, 0.05) << i;
    }
}

TEST_F(SampleOutput, SameSeedGivesTheSameFiles)
{
    cxtest::TempDir again;
    const RunResult second = runSample({again.path().string(), "--dem", _dem, "--cloud-points", "20000", "--quiet"});
    ASSERT_EQ(second.status, 0) << second.err;
    EXPECT_TRUE(second.out.empty()) << second.out;

    std::vector<std::string> first, repeated;
    for (const auto& entry : fs::recursive_directory_iterator(_out))
        if (entry.is_regular_file())
            first.push_back(fs::relative(entry.path(), _out).string());
    for (const auto& entry : fs::recursive_directory_iterator(again.path()))
        if (entry.is_regular_file())
            repeated.push_back(fs::relative(entry.path(), again.path()).string());
    std::sort(first.begin(), first.end());
    std::sort(repeated.begin(), repeated.end());
    ASSERT_EQ(first, repeated);
    for (const std::string& file : first)
        EXPECT_TRUE(readBytes(_out / file) == readBytes(again.path() / file)) << file << " differs";
}

TEST_F(SampleOutput, AnotherSeedMakesAnotherCity)
{
    cxtest::TempDir other;
    ASSERT_EQ(runSample({other.path().string(), "--dem", _dem, "--seed", "7", "--cloud-points", "20000", "--quiet"}).status,
              0);
    const std::string table = readBytes(_out / "data" / "objects.csv");
    const std::string otherTable = readBytes(other.path() / "data" / "objects.csv");
    ASSERT_FALSE(otherTable.empty());
    EXPECT_NE(table, otherTable);
}

// CTest runs this before the suite (a fixture of the suite's tests): it writes
// the sample the suite reads into CXSAMPLE_OUTPUT_DIR, replacing what an
// earlier run left there. Run by hand, it writes into a temporary folder.
TEST(SampleOutputFixture, WritesTheSampleForTheSuite)
{
    std::unique_ptr<cxtest::TempDir> scratch;
    fs::path root = sharedOutputRoot();
    if (root.empty())
    {
        scratch = std::make_unique<cxtest::TempDir>();
        root = scratch->path();
    }
    std::error_code ignored;
    fs::remove_all(root, ignored);
    const RunResult run = writeSampleRun(root);
    ASSERT_EQ(run.status, 0) << run.err;
    RunResult recorded;
    ASSERT_TRUE(readSampleRun(root, recorded));
    EXPECT_EQ(recorded.status, 0);
    EXPECT_EQ(recorded.out, run.out);
    EXPECT_TRUE(fs::is_regular_file(root / "sample" / "data" / "objects.csv"));
}
