#include "SampleGenerator.h"

#include "CityPlan.h"
#include "Error.h"
#include "GroundHeights.h"
#include "HudImages.h"
#include "ObjectsCsv.h"
#include "ObliqueSample.h"
#include "PngFile.h"
#include "PointCloudSample.h"
#include "SkyBoxImages.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <ostream>
#include <vector>

namespace cxsample
{

const char* const kModelsFolder = "models";
const char* const kCsvPath = "data/objects.csv";

namespace
{

namespace fs = std::filesystem;

std::string megabytes(std::uint64_t bytes)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.2f MB", static_cast<double>(bytes) / (1024.0 * 1024.0));
    return text;
}

/** Writes the models of one family and keeps their radii. */
class ModelWriter
{
public:
    ModelWriter(const fs::path& modelsDir, std::ostream* progress) : _modelsDir(modelsDir), _progress(progress) {}

    /** Writes the four levels of `folder`/`stem` made by `make`; returns the
     *  radius about the origin that holds every level, rounded up to cm. */
    template <class Make>
    double write(const std::string& folder, const std::string& stem, Make make)
    {
        double radius = 0.0;
        for (Lod lod : kLods)
        {
            osg::ref_ptr<osg::Node> node = make(lod);
            radius = std::max(radius, originRadius(*node));
            const fs::path path = _modelsDir / folder / lodFileName(stem, lod);
            writeModel(*node, path.string());
            std::error_code error;
            const auto size = fs::file_size(path, error);
            _bytes += error ? 0 : size;
            ++_files;
        }
        return std::ceil(radius * 100.0) / 100.0;
    }

    /** A progress line every `step` models and after the last. */
    void report(const std::string& family, std::size_t done, std::size_t total, std::size_t step)
    {
        if (!_progress || (done % step != 0 && done != total))
            return;
        *_progress << family << ": " << done << "/" << total << " models";
        if (done == total)
            *_progress << ", " << (_files - _familyFiles) << " files, " << megabytes(_bytes - _familyBytes);
        *_progress << "\n" << std::flush;
        if (done == total)
        {
            _familyFiles = _files;
            _familyBytes = _bytes;
        }
    }

    std::size_t files() const { return _files; }
    std::uint64_t bytes() const { return _bytes; }

private:
    fs::path _modelsDir;
    std::ostream* _progress;
    std::size_t _files = 0;
    std::uint64_t _bytes = 0;
    std::size_t _familyFiles = 0;
    std::uint64_t _familyBytes = 0;
};

} // namespace

GeneratorSummary generateSample(const GeneratorOptions& options, std::ostream* progress)
{
    const fs::path out(options.outputDir);
    const fs::path modelsDir = out / kModelsFolder;
    const fs::path csvPath = out / kCsvPath;

    const SamplePlan plan = planSample(options.seed);
    GeneratorSummary summary;
    for (const PlacedObject& object : plan.objects)
    {
        summary.buildings += object.family == Family::Building;
        summary.terrains += object.family == Family::Terrain;
        summary.pipes += object.family == Family::Pipe;
    }
    summary.objects = plan.objects.size();
    if (progress)
        *progress << "planned " << summary.objects << " objects: " << summary.buildings << " buildings of "
                  << plan.buildings.size() << " designs, " << summary.terrains << " park terrain, " << summary.pipes
                  << " pipe runs of " << plan.pipes.size() << " designs\n"
                  << std::flush;

    // Heights first: a bad elevation file should stop the run before it writes.
    GroundHeights ground(options.demPath);
    if (!options.imagePath.empty())
        ground.setImagery(options.imagePath);
    if (progress)
        *progress << (ground.hasSource() ? "ground heights from " + options.demPath
                                         : std::string("no elevation file: ground heights 0"))
                  << "\n"
                  << std::flush;

    for (Family family : {Family::Building, Family::Terrain, Family::Pipe})
        makeFolder(modelsDir / plan.modelFolder(family));
    makeFolder(csvPath.parent_path());

    ModelWriter writer(modelsDir, progress);
    std::vector<double> buildingRadii, pipeRadii;
    const std::string buildingFolder = plan.modelFolder(Family::Building);
    for (const BuildingDesign& design : plan.buildings)
    {
        buildingRadii.push_back(
            writer.write(buildingFolder, design.stem, [&](Lod lod) { return buildingModel(design, lod); }));
        writer.report("buildings", buildingRadii.size(), plan.buildings.size(), 10);
    }

    // The park follows the ground around its place, as the globe draws it.
    ParkDesign park = plan.park;
    for (const PlacedObject& object : plan.objects)
        if (object.family == Family::Terrain && ground.hasSource())
            park.surroundings = [&ground, lon = object.lon, lat = object.lat](double x, double y) {
                double atLon = lon, atLat = lat;
                offsetLonLat(lon, lat, x, y, atLon, atLat);
                return ground.at(atLon, atLat) - ground.at(lon, lat);
            };
    const osg::ref_ptr<osg::Image> parkTexture = parkImage(park, 512);
    const double parkRadius = writer.write(plan.modelFolder(Family::Terrain), park.stem,
                                           [&](Lod lod) { return terrainModel(park, lod, *parkTexture); });
    writer.report("terrain", 1, 1, 1);

    const std::string pipeFolder = plan.modelFolder(Family::Pipe);
    for (const PipeRunDesign& design : plan.pipes)
    {
        pipeRadii.push_back(writer.write(pipeFolder, design.stem, [&](Lod lod) { return pipeModel(design, lod); }));
        writer.report("pipes", pipeRadii.size(), plan.pipes.size(), 10);
    }

    std::vector<ObjectRow> rows;
    for (const PlacedObject& object : plan.objects)
    {
        ObjectRow row;
        row.objID = static_cast<int>(rows.size()) + 1;
        row.enterID = plan.enterID(object);
        row.enterType = static_cast<int>(object.family);
        row.objType = static_cast<int>(object.family);
        row.objName = object.name;
        row.lon = object.lon;
        row.lat = object.lat;
        row.height = ground.at(object.lon, object.lat);
        row.radius = object.family == Family::Building ? buildingRadii[object.design]
                     : object.family == Family::Pipe   ? pipeRadii[object.design]
                                                       : parkRadius;
        row.fileName = plan.modelFolder(object.family) + "/" + lodFileName(plan.modelStem(object), Lod::Crude);
        row.heading = object.heading;
        rows.push_back(row);
    }

    // The oblique dataset before the table: the table's date stands for all.
    const ObliqueSummary oblique = writeObliqueSample(
        options.outputDir, options.seed, [&ground](double lon, double lat) { return ground.surfaceAt(lon, lat); }, progress);
    summary.obliqueFolder = oblique.folder;
    if (progress)
        *progress << "wrote " << oblique.folder << ": " << oblique.tiles << " tiles, " << oblique.files << " files ("
                  << megabytes(oblique.bytes) << ")\n"
                  << std::flush;

    // The pictures of the viewer's heads-up display, before the table too.
    summary.hudImages = writeHudImages(options.outputDir);
    if (progress)
        *progress << "wrote the HUD pictures " << kCompassImagePath << ", " << kPlateImagePath << " and "
                  << kScaleBarImagePath << "\n"
                  << std::flush;
    if (options.cloudPoints > 0)
    {
        const PointCloudSummary cloud =
            writePointCloudSample(options.outputDir, plan, ground, options.seed, options.cloudPoints);
        summary.pointCloud = cloud.path;
        summary.cloudPoints = cloud.points;
        if (progress)
            *progress << "wrote " << cloud.path << ": " << cloud.points << " points over "
                      << 2 * kCloudHalfWidth / 1000.0 << " x " << 2 * kCloudHalfDepth / 1000.0 << " km ("
                      << cloud.ground << " ground, " << cloud.buildings << " on " << cloud.buildingCount
                      << " buildings, " << cloud.vegetation << " in " << cloud.trees << " trees, " << cloud.water
                      << " water), " << kPointCloudCrs << "\n"
                      << std::flush;
    }

    // The sky box's cube map, also before the table.
    const SkyBoxSummary sky = writeSkyBoxImages(options.outputDir, options.seed, progress);
    summary.skyBoxFolder = sky.folder;

    writeObjectsCsv(csvPath.string(), rows);

    summary.modelFiles = writer.files();
    summary.modelBytes = writer.bytes();
    summary.csvPath = csvPath.string();
    summary.modelsDir = modelsDir.string();
    if (progress)
        *progress << "wrote " << summary.csvPath << ": " << summary.objects << " objects in 3 enterprises; "
                  << summary.modelFiles << " model files under " << summary.modelsDir << "/ ("
                  << megabytes(summary.modelBytes) << ")\n"
                  << std::flush;
    return summary;
}

} // namespace cxsample
