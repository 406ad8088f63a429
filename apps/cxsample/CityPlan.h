// The plan of the sample city around Beijing: three districts of blocks on
// street grids of their own orientation (towers and offices in the east,
// housing in the north-west, schools, courtyards and workshops in the south),
// the park between them, and water, gas and heat mains along the streets.
// Buildings stand in the parcels of the blocks, squared to the grid; a few
// dozen designs are shared by all of them.
#ifndef CXSAMPLE_CITYPLAN_H
#define CXSAMPLE_CITYPLAN_H

#include "BuildingModels.h"
#include "PipeModels.h"
#include "TerrainModel.h"

#include <cstdint>
#include <string>
#include <vector>

namespace cxsample
{

/** The area the sample covers, in degrees. */
constexpr double kAreaWest = 116.30;
constexpr double kAreaEast = 116.48;
constexpr double kAreaSouth = 39.86;
constexpr double kAreaNorth = 39.96;

/** The enterprises of the sample and their types. */
constexpr int kBuildingEnterprise = 1;
constexpr int kTerrainEnterprise = 2;
constexpr int kPipeEnterprise = 3;

/** Object types (and enterprise types) of the three families. */
enum class Family
{
    Building = 0,
    Terrain = 1,
    Pipe = 2
};

struct PlacedObject
{
    Family family = Family::Building;
    std::size_t design = 0; // index into the plan's designs of the family
    std::string name;       // UTF-8, "办公楼 17 / Office 17"
    double lon = 0.0;
    double lat = 0.0;
    double heading = 0.0; // degrees clockwise from north, [0, 360)
};

struct SamplePlan
{
    std::vector<BuildingDesign> buildings;
    ParkDesign park;
    std::vector<PipeRunDesign> pipes;
    /** Buildings, then the park, then the pipes. */
    std::vector<PlacedObject> objects;

    int enterID(const PlacedObject& object) const;
    /** Folder under the models folder and stem of the object's model. */
    std::string modelFolder(Family family) const;
    std::string modelStem(const PlacedObject& object) const;
};

/** The street grid of a district: blocks of `pitchU` x `pitchV` metres between
 *  street centre lines (u along the cross streets, v along the north-south
 *  streets, turned by `angle` degrees from north), streets `street` wide,
 *  each block cut into parcels. */
struct StreetGrid
{
    double lon = 0.0, lat = 0.0; // the grid's centre
    double angle = 0.0;
    int columns = 0, rows = 0;
    double pitchU = 0.0, pitchV = 0.0;
    double street = 0.0;
    int parcelsU = 0, parcelsV = 0;
    double margin = 0.0;
};

/** The grid of the business district (towers and offices, around 116.458 E,
 *  39.912 N), whose buildings have stems starting with kBusinessDistrictPrefix. */
StreetGrid businessDistrictGrid();
extern const char* const kBusinessDistrictPrefix; // "cbd_"

/** The whole plan, the same for the same seed. */
SamplePlan planSample(std::uint64_t seed);

/** The point `east`, `north` metres from (lon, lat), on the WGS84 ellipsoid's
 *  local tangent plane; precise to millimetres over a few kilometres. */
void offsetLonLat(double lon, double lat, double east, double north, double& outLon, double& outLat);

} // namespace cxsample

#endif
