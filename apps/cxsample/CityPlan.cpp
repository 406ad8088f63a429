#include "CityPlan.h"

#include <cmath>
#include <cstdio>
#include <functional>
#include <map>

namespace cxsample
{

namespace
{

constexpr double kPi = 3.14159265358979323846;

using DesignMaker = std::function<BuildingDesign(Random&, const std::string&)>;

struct DesignGroup
{
    const char* tag;
    DesignMaker make;
    int count;
};

/** Which mains run along a district's streets. */
struct Mains
{
    bool water = false;
    bool gas = false;
    bool heat = false;
};

struct District
{
    const char* name;
    double lon, lat; // centre of the grid
    double angle;    // heading of the grid's north-south streets, degrees
    int columns, rows; // blocks
    double pitchU, pitchV; // street centre to street centre
    double street;   // street width
    int parcelsU, parcelsV;
    double margin;   // between a building and its parcel's edge
    std::vector<DesignGroup> designs;
    Mains mains;
};

std::vector<District> districts()
{
    return {
        {"cbd", 116.458, 39.912, 0.0, 5, 4, 200.0, 170.0, 30.0, 2, 2, 6.0,
         {{"tower", designOfficeTower, 7}, {"office", designOfficeSlab, 3}, {"mall", designMall, 2}},
         {true, true, true}},
        {"res", 116.335, 39.942, 20.0, 6, 5, 170.0, 150.0, 24.0, 2, 3, 5.0,
         {{"slab", designResidentialSlab, 5}, {"apt", designApartmentTower, 3}, {"lblock", designLBlock, 2}},
         {true, false, false}},
        {"south", 116.395, 39.877, -12.0, 5, 4, 160.0, 150.0, 20.0, 2, 2, 5.0,
         {{"ublock", designUBlock, 2},
          {"court", designCourtyardBlock, 2},
          {"workshop", designWorkshop, 2},
          {"store", designWarehouse, 2},
          {"shops", designShops, 3},
          {"lblock", designLBlock, 1}},
         {}},
    };
}

double normalHeading(double degrees)
{
    double h = std::fmod(degrees, 360.0);
    if (h < 0.0)
        h += 360.0;
    return h;
}

/** Grid coordinates (u along the cross streets, v along the north-south
 *  streets of the grid) to longitude and latitude. */
void gridToLonLat(const District& district, double u, double v, double& lon, double& lat)
{
    const double a = district.angle * kPi / 180.0;
    const double east = u * std::cos(a) + v * std::sin(a);
    const double north = -u * std::sin(a) + v * std::cos(a);
    offsetLonLat(district.lon, district.lat, east, north, lon, lat);
}

std::string numbered(const char* chinese, const char* english, int number)
{
    return std::string(chinese) + " " + std::to_string(number) + " / " + english + " " + std::to_string(number);
}

std::string twoDigits(int n)
{
    char text[16];
    std::snprintf(text, sizeof(text), "%02d", n);
    return text;
}

} // namespace

void offsetLonLat(double lon, double lat, double east, double north, double& outLon, double& outLat)
{
    constexpr double a = 6378137.0;
    constexpr double e2 = 6.69437999014e-3;
    const double phi = lat * kPi / 180.0;
    const double s = std::sin(phi);
    const double w = std::sqrt(1.0 - e2 * s * s);
    const double meridian = a * (1.0 - e2) / (w * w * w);
    const double normal = a / w;
    outLat = lat + north / meridian * 180.0 / kPi;
    outLon = lon + east / (normal * std::cos(phi)) * 180.0 / kPi;
}

const char* const kBusinessDistrictPrefix = "cbd_";

StreetGrid businessDistrictGrid()
{
    const District d = districts().front();
    StreetGrid grid;
    grid.lon = d.lon;
    grid.lat = d.lat;
    grid.angle = d.angle;
    grid.columns = d.columns;
    grid.rows = d.rows;
    grid.pitchU = d.pitchU;
    grid.pitchV = d.pitchV;
    grid.street = d.street;
    grid.parcelsU = d.parcelsU;
    grid.parcelsV = d.parcelsV;
    grid.margin = d.margin;
    return grid;
}

int SamplePlan::enterID(const PlacedObject& object) const
{
    switch (object.family)
    {
    case Family::Building:
        return kBuildingEnterprise;
    case Family::Terrain:
        return kTerrainEnterprise;
    case Family::Pipe:
        return kPipeEnterprise;
    }
    return 0;
}

std::string SamplePlan::modelFolder(Family family) const
{
    switch (family)
    {
    case Family::Building:
        return "buildings";
    case Family::Terrain:
        return "terrain";
    case Family::Pipe:
        return "pipes";
    }
    return "models";
}

std::string SamplePlan::modelStem(const PlacedObject& object) const
{
    switch (object.family)
    {
    case Family::Building:
        return buildings[object.design].stem;
    case Family::Terrain:
        return park.stem;
    case Family::Pipe:
        return pipes[object.design].stem;
    }
    return std::string();
}

SamplePlan planSample(std::uint64_t seed)
{
    SamplePlan plan;
    const Random root(seed);
    std::map<BuildingKind, int> kindNumbers;
    std::vector<PlacedObject> pipeObjects;
    std::map<std::string, std::size_t> pipeDesigns;
    std::map<PipeClass, int> pipeNumbers;

    const std::vector<District> all = districts();
    for (std::size_t k = 0; k < all.size(); ++k)
    {
        const District& district = all[k];
        Random random = root.fork(k + 1);

        // The district's designs.
        const std::size_t first = plan.buildings.size();
        for (const DesignGroup& group : district.designs)
            for (int i = 1; i <= group.count; ++i)
                plan.buildings.push_back(
                    group.make(random, std::string(district.name) + "_" + group.tag + "_" + twoDigits(i)));
        const std::size_t last = plan.buildings.size();

        const double width = district.columns * district.pitchU, depth = district.rows * district.pitchV;
        const double parcelU = (district.pitchU - district.street) / district.parcelsU;
        const double parcelV = (district.pitchV - district.street) / district.parcelsV;
        const double roomU = parcelU - 2 * district.margin, roomV = parcelV - 2 * district.margin;

        // A building in each parcel, of a design that fits it either way round.
        for (int row = 0; row < district.rows; ++row)
            for (int column = 0; column < district.columns; ++column)
                for (int pv = 0; pv < district.parcelsV; ++pv)
                    for (int pu = 0; pu < district.parcelsU; ++pu)
                    {
                        const double u = -width / 2 + column * district.pitchU + district.street / 2
                                         + (pu + 0.5) * parcelU;
                        const double v = -depth / 2 + row * district.pitchV + district.street / 2
                                         + (pv + 0.5) * parcelV;
                        std::vector<std::pair<std::size_t, int>> fits; // design, quarter turns
                        for (std::size_t d = first; d < last; ++d)
                        {
                            const BuildingDesign& design = plan.buildings[d];
                            if (design.width() <= roomU && design.depth() <= roomV)
                                fits.push_back({d, random.chance(0.5) ? 0 : 2});
                            else if (design.depth() <= roomU && design.width() <= roomV)
                                fits.push_back({d, random.chance(0.5) ? 1 : 3});
                        }
                        // Some parcels stay open: squares, sports grounds, car parks.
                        if (fits.empty() || random.chance(0.06))
                            continue;
                        const auto [design, turns] = random.pick(fits);
                        PlacedObject object;
                        object.family = Family::Building;
                        object.design = design;
                        const BuildingKind kind = plan.buildings[design].kind;
                        object.name = numbered(kindNameChinese(kind), kindNameEnglish(kind), ++kindNumbers[kind]);
                        gridToLonLat(district, u, v, object.lon, object.lat);
                        object.heading = normalHeading(district.angle + 90.0 * turns);
                        plan.objects.push_back(object);
                    }

        // The mains: one run per street between two crossings. Each class keeps
        // to its own side of the street and its own height, so that runs of one
        // class meet at the crossings and those of different classes pass by.
        struct Laying
        {
            PipeClass pipeClass;
            bool present;
            double offset; // from the street's centre line, towards +u or +v
            double side;   // services towards the nearer kerb
            bool everyOther; // only on every other street (by parity)
            int parity;
        };
        const std::vector<Laying> layings = {
            {PipeClass::Water, district.mains.water, -7.0, -1.0, false, 0},
            {PipeClass::Gas, district.mains.gas, 7.0, 1.0, true, 1},
            {PipeClass::Heat, district.mains.heat, 0.0, -1.0, true, 0},
        };
        for (const Laying& laying : layings)
        {
            if (!laying.present)
                continue;
            auto design = [&](double length) {
                const std::string stem = std::string(district.name) + "_"
                                         + (laying.pipeClass == PipeClass::Water ? "water"
                                            : laying.pipeClass == PipeClass::Gas ? "gas"
                                                                                 : "heat")
                                         + "_" + std::to_string(static_cast<int>(std::lround(length))) + "m";
                const auto found = pipeDesigns.find(stem);
                if (found != pipeDesigns.end())
                    return found->second;
                plan.pipes.push_back(pipeRunDesign(laying.pipeClass, length, laying.side, stem));
                pipeDesigns[stem] = plan.pipes.size() - 1;
                return plan.pipes.size() - 1;
            };
            auto place = [&](std::size_t designIndex, double u, double v, double heading) {
                PlacedObject object;
                object.family = Family::Pipe;
                object.design = designIndex;
                object.name = numbered(pipeClassChinese(laying.pipeClass), pipeClassEnglish(laying.pipeClass),
                                       ++pipeNumbers[laying.pipeClass]);
                gridToLonLat(district, u, v, object.lon, object.lat);
                object.heading = normalHeading(heading);
                pipeObjects.push_back(object);
            };
            // Along the north-south streets (the model's y along the grid's v).
            for (int i = 0; i <= district.columns; ++i)
            {
                if (laying.everyOther && i % 2 != laying.parity)
                    continue;
                for (int j = 0; j < district.rows; ++j)
                    place(design(district.pitchV), -width / 2 + i * district.pitchU + laying.offset,
                          -depth / 2 + (j + 0.5) * district.pitchV + laying.offset, district.angle);
            }
            // Along the cross streets: turned so that the model's y runs along
            // the grid's -u and its x along +v, which keeps the services on the
            // side of the nearer kerb as on the north-south streets.
            for (int j = 0; j <= district.rows; ++j)
            {
                if (laying.everyOther && j % 2 != laying.parity)
                    continue;
                for (int i = 0; i < district.columns; ++i)
                    place(design(district.pitchU), -width / 2 + (i + 0.5) * district.pitchU + laying.offset,
                          -depth / 2 + j * district.pitchV + laying.offset, district.angle - 90.0);
            }
        }
    }

    // The park, between the districts.
    plan.park.seed = root.fork(100).next();
    PlacedObject park;
    park.family = Family::Terrain;
    park.name = "园林地形 1 / Park Terrain 1";
    park.lon = 116.397;
    park.lat = 39.928;
    plan.objects.push_back(park);

    plan.objects.insert(plan.objects.end(), pipeObjects.begin(), pipeObjects.end());
    return plan;
}

} // namespace cxsample
