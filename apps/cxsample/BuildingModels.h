// Buildings: their designs (massing in tiers, facade, colours, roof
// equipment), made at random from a few kinds, and their models at the four
// levels of detail:
//   fine    textured walls with a window pattern, a ground floor band, cornices,
//           parapets, roofs with plant, water tanks, spires, entrance canopies;
//   middle  the same massing, walls and parapets with a coarser texture, no
//           cornices and nothing on the roofs;
//   crude   one coloured box per tier, a darker band at its foot;
//   crude2  one coloured box for the whole building.
// Models stand on their origin (x east, y north, z up) and reach 2 m below the
// ground, so that sloping ground shows no gap under them.
#ifndef CXSAMPLE_BUILDINGMODELS_H
#define CXSAMPLE_BUILDINGMODELS_H

#include "Footprint.h"
#include "Model.h"
#include "Random.h"
#include "Textures.h"

#include <osg/Node>
#include <osg/Vec4>

#include <cstdint>
#include <string>
#include <vector>

namespace cxsample
{

enum class BuildingKind
{
    OfficeTower,
    Office,
    Hotel,
    Mall,
    Apartment,
    Residence,
    School,
    CourtyardBlock,
    Shops,
    Workshop,
    Warehouse
};

/** The kind's name in Chinese (UTF-8) and in English, as in "办公楼 17 / Office 17". */
const char* kindNameChinese(BuildingKind kind);
const char* kindNameEnglish(BuildingKind kind);

/** One storey range of a building: from the top of the tier below (or the
 *  ground) up to `top`. */
struct Tier
{
    Footprint footprint;
    double top = 0.0;
};

struct BuildingDesign
{
    std::string stem; // file name stem, without the level's word
    BuildingKind kind = BuildingKind::Office;
    std::vector<Tier> tiers;
    double floorHeight = 3.6;
    double bayWidth = 3.6;
    double groundFloor = 5.0;
    FacadeStyle facade = FacadeStyle::Punched;
    osg::Vec4 wallTint{1.0f, 1.0f, 1.0f, 1.0f};
    osg::Vec4 roofColour{0.5f, 0.5f, 0.5f, 1.0f};
    osg::Vec4 trimColour{0.7f, 0.7f, 0.7f, 1.0f};
    int plantUnits = 1;
    bool waterTank = false;
    double spireHeight = 0.0;
    std::uint64_t seed = 0;

    double height() const { return tiers.back().top; }
    /** Extent of the whole building along x and y. */
    double width() const;
    double depth() const;
};

/** The building at one level of detail. */
osg::ref_ptr<osg::Node> buildingModel(const BuildingDesign& design, Lod lod);

// Designs of each kind, at random within the kind's usual sizes.
BuildingDesign designOfficeTower(Random& random, const std::string& stem);
BuildingDesign designOfficeSlab(Random& random, const std::string& stem);
BuildingDesign designMall(Random& random, const std::string& stem);
BuildingDesign designResidentialSlab(Random& random, const std::string& stem);
BuildingDesign designApartmentTower(Random& random, const std::string& stem);
BuildingDesign designLBlock(Random& random, const std::string& stem);
BuildingDesign designUBlock(Random& random, const std::string& stem);
BuildingDesign designCourtyardBlock(Random& random, const std::string& stem);
BuildingDesign designShops(Random& random, const std::string& stem);
BuildingDesign designWorkshop(Random& random, const std::string& stem);
BuildingDesign designWarehouse(Random& random, const std::string& stem);

} // namespace cxsample

#endif
