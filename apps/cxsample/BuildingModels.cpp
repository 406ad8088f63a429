#include "BuildingModels.h"

#include <algorithm>
#include <cmath>

namespace cxsample
{

namespace
{

constexpr double kFoundation = 2.0;    // walls reach this far below the ground
constexpr double kParapet = 1.1;       // height of the parapets above the roofs
constexpr double kParapetWall = 0.35;  // their thickness
constexpr double kCornice = 0.45;      // how far a cornice stands out
constexpr double kCorniceHeight = 0.7; // and its height
constexpr int kFineFacade = 128;       // facade texture sizes
constexpr int kMiddleFacade = 32;

osg::Vec3 at(const osg::Vec2d& p, double z)
{
    return osg::Vec3(static_cast<float>(p.x()), static_cast<float>(p.y()), static_cast<float>(z));
}

osg::Vec4 scaled(const osg::Vec4& colour, float factor)
{
    return osg::Vec4(colour.r() * factor, colour.g() * factor, colour.b() * factor, colour.a());
}

osg::Vec4 rgb(double r, double g, double b)
{
    return osg::Vec4(static_cast<float>(r), static_cast<float>(g), static_cast<float>(b), 1.0f);
}

/** How the facade texture lies on the walls: metres per repeat. */
struct FacadeMapping
{
    double tileWidth;
    double tileHeight;
};

/** The walls of one outline loop from z0 to z1, facing out of the building;
 *  texture coordinates run on around the corners when `mapping` is given. */
void walls(MeshBuilder& mesh, const Ring& ring, double z0, double z1, const osg::Vec4& colour,
           const FacadeMapping* mapping = nullptr)
{
    double along = 0.0;
    for (std::size_t i = 0; i < ring.size(); ++i)
    {
        const osg::Vec2d& a = ring[i];
        const osg::Vec2d& b = ring[(i + 1) % ring.size()];
        const double length = (b - a).length();
        osg::Vec2 t0, t1, t2, t3;
        if (mapping)
        {
            const float s0 = static_cast<float>(along / mapping->tileWidth);
            const float s1 = static_cast<float>((along + length) / mapping->tileWidth);
            const float v0 = static_cast<float>(z0 / mapping->tileHeight);
            const float v1 = static_cast<float>(z1 / mapping->tileHeight);
            t0.set(s0, v0);
            t1.set(s1, v0);
            t2.set(s1, v1);
            t3.set(s0, v1);
        }
        mesh.quad(at(a, z0), at(b, z0), at(b, z1), at(a, z1), colour, t0, t1, t2, t3);
        along += length;
    }
}

/** A parapet along the loop, standing on the roof at `top`: its outer face,
 *  its inner face and its coping. */
void parapet(MeshBuilder& mesh, const Ring& ring, double top, const osg::Vec4& colour)
{
    const Ring inner = insetRing(ring, kParapetWall);
    const double high = top + kParapet;
    walls(mesh, ring, top, high, colour);
    for (std::size_t i = 0; i < ring.size(); ++i)
    {
        const std::size_t j = (i + 1) % ring.size();
        mesh.quad(at(inner[j], top), at(inner[i], top), at(inner[i], high), at(inner[j], high), colour);
        mesh.quad(at(ring[i], high), at(ring[j], high), at(inner[j], high), at(inner[i], high), scaled(colour, 1.1f));
    }
}

/** A band standing out of the wall just under `top`. */
void cornice(MeshBuilder& mesh, const Ring& ring, double top, const osg::Vec4& colour)
{
    const Ring outer = insetRing(ring, -kCornice);
    const double low = top - kCorniceHeight;
    walls(mesh, outer, low, top, colour);
    for (std::size_t i = 0; i < ring.size(); ++i)
    {
        const std::size_t j = (i + 1) % ring.size();
        mesh.quad(at(ring[i], low), at(outer[i], low), at(outer[j], low), at(ring[j], low), scaled(colour, 0.8f));
        mesh.quad(at(outer[i], top), at(ring[i], top), at(ring[j], top), at(outer[j], top), colour);
    }
}

void roof(MeshBuilder& mesh, const Footprint& footprint, double z, const osg::Vec4& colour)
{
    for (const Ring& piece : footprint.pieces)
    {
        std::vector<osg::Vec3> corners;
        for (const osg::Vec2d& p : piece)
            corners.push_back(at(p, z));
        mesh.convexPolygon(corners, colour);
    }
}

/** A box on a quadrilateral base given counter-clockwise, from z0 to z1, with
 *  its underside when `underside`. */
void block(MeshBuilder& mesh, const Ring& base, double z0, double z1, const osg::Vec4& colour, bool underside)
{
    walls(mesh, base, z0, z1, colour);
    std::vector<osg::Vec3> top, bottom;
    for (const osg::Vec2d& p : base)
        top.push_back(at(p, z1));
    for (auto p = base.rbegin(); p != base.rend(); ++p)
        bottom.push_back(at(*p, z0));
    mesh.convexPolygon(top, scaled(colour, 1.08f));
    if (underside)
        mesh.convexPolygon(bottom, scaled(colour, 0.7f));
}

Ring boundsRing(const Footprint& footprint)
{
    const osg::Vec2d low = footprint.min(), high = footprint.max();
    return {low, osg::Vec2d(high.x(), low.y()), high, osg::Vec2d(low.x(), high.y())};
}

double tierBase(const BuildingDesign& design, std::size_t tier)
{
    return tier == 0 ? -kFoundation : design.tiers[tier - 1].top;
}

/** The roof piece of the top tier with the largest area, as its bounds. */
void largestTopPiece(const BuildingDesign& design, osg::Vec2d& low, osg::Vec2d& high)
{
    double best = -1.0;
    for (const Ring& piece : design.tiers.back().footprint.pieces)
    {
        osg::Vec2d l = piece[0], h = piece[0];
        for (const osg::Vec2d& p : piece)
        {
            l.set(std::min(l.x(), p.x()), std::min(l.y(), p.y()));
            h.set(std::max(h.x(), p.x()), std::max(h.y(), p.y()));
        }
        const double area = (h.x() - l.x()) * (h.y() - l.y());
        if (area > best)
        {
            best = area;
            low = l;
            high = h;
        }
    }
}

/** Plant rooms and air handlers, a water tank and a spire on the top roof. */
void roofEquipment(MeshBuilder& mesh, const BuildingDesign& design)
{
    Random random(design.seed ^ 0x51A7E5ull);
    osg::Vec2d low, high;
    largestTopPiece(design, low, high);
    const double margin = kParapetWall + 1.2;
    low += osg::Vec2d(margin, margin);
    high -= osg::Vec2d(margin, margin);
    const double roofTop = design.height();
    const bool alongX = (high.x() - low.x()) >= (high.y() - low.y());
    const double length = alongX ? high.x() - low.x() : high.y() - low.y();
    const double across = alongX ? high.y() - low.y() : high.x() - low.x();
    const osg::Vec4 plant = rgb(0.64, 0.65, 0.66);
    // With a spire, the units keep to one side of the roof and the spire to the other.
    const bool spire = design.spireHeight > 0.0;
    const double rowAcross = spire ? 0.22 * across : 0.0;
    const double rowWidth = spire ? 0.4 * across : across;

    // The units stand in a row along the longer side of the roof, in slots.
    const int units = std::max(1, design.plantUnits);
    const double slot = length / (units + (design.waterTank ? 1 : 0));
    for (int i = 0; i < units; ++i)
    {
        const double size = std::min(slot * random.uniform(0.45, 0.8), 9.0);
        const double width = std::min(rowWidth * (spire ? random.uniform(0.6, 1.0) : random.uniform(0.35, 0.6)), 7.0);
        const double tall = random.uniform(1.8, 3.6);
        const double centre = -length / 2 + slot * (i + 0.5);
        const double offset = rowAcross + random.uniform(-0.2, 0.2) * (rowWidth - width);
        osg::Vec2d c = (low + high) * 0.5;
        const osg::Vec2d half = alongX ? osg::Vec2d(size / 2, width / 2) : osg::Vec2d(width / 2, size / 2);
        c += alongX ? osg::Vec2d(centre, offset) : osg::Vec2d(offset, centre);
        const osg::Vec2d a = c - half, b = c + half;
        block(mesh, {a, osg::Vec2d(b.x(), a.y()), b, osg::Vec2d(a.x(), b.y())}, roofTop, roofTop + tall,
              scaled(plant, static_cast<float>(random.uniform(0.85, 1.05))), false);
        // A fan on top of the larger units.
        if (size > 4.0 && width > 3.0)
        {
            mesh.cylinder(at(c, roofTop + tall), at(c, roofTop + tall + 0.4), 1.1f, 10, rgb(0.35, 0.36, 0.38));
            mesh.disc(at(c, roofTop + tall + 0.15), osg::Vec3(0.0f, 0.0f, 1.0f), 1.05f, 10, rgb(0.2, 0.2, 0.22));
        }
    }
    if (design.waterTank)
    {
        const osg::Vec2d c = (low + high) * 0.5
                             + (alongX ? osg::Vec2d(length / 2 - slot / 2, 0.0) : osg::Vec2d(0.0, length / 2 - slot / 2));
        const float radius = static_cast<float>(std::min({2.2, slot * 0.35, across * 0.35}));
        const osg::Vec4 steel = rgb(0.72, 0.74, 0.76);
        mesh.cylinder(at(c, roofTop), at(c, roofTop + 3.4), radius, 14, steel);
        mesh.disc(at(c, roofTop + 3.4), osg::Vec3(0.0f, 0.0f, 1.0f), radius, 14, scaled(steel, 1.1f));
    }
    if (spire)
    {
        const double side = -0.28 * across;
        const osg::Vec2d c = (low + high) * 0.5 + (alongX ? osg::Vec2d(0.0, side) : osg::Vec2d(side, 0.0));
        const osg::Vec2d h(2.0, 2.0);
        block(mesh, {c - h, c + osg::Vec2d(h.x(), -h.y()), c + h, c + osg::Vec2d(-h.x(), h.y())}, roofTop,
              roofTop + 3.0, rgb(0.55, 0.56, 0.58), false);
        mesh.cylinder(at(c, roofTop + 3.0), at(c, roofTop + design.spireHeight), 0.45f, 8, rgb(0.8, 0.8, 0.82));
        mesh.sphere(at(c, roofTop + design.spireHeight), 0.7f, 8, rgb(0.9, 0.2, 0.15));
    }
}

/** A canopy over the entrance, in the middle of the longest outer wall. */
void entranceCanopy(MeshBuilder& mesh, const BuildingDesign& design)
{
    const Ring& outline = design.tiers.front().footprint.loops.front();
    std::size_t longest = 0;
    double best = 0.0;
    for (std::size_t i = 0; i < outline.size(); ++i)
    {
        const double length = (outline[(i + 1) % outline.size()] - outline[i]).length();
        if (length > best + 1e-9)
        {
            best = length;
            longest = i;
        }
    }
    const osg::Vec2d a = outline[longest], b = outline[(longest + 1) % outline.size()];
    osg::Vec2d along = b - a;
    along.normalize();
    const osg::Vec2d out(along.y(), -along.x());
    const osg::Vec2d middle = (a + b) * 0.5;
    const double half = std::min(6.0, best * 0.25);
    const double reach = 3.2;
    const double z = std::min(design.groundFloor - 0.8, 4.2);
    block(mesh,
          {middle - along * half, middle - along * half + out * reach, middle + along * half + out * reach,
           middle + along * half},
          z, z + 0.35, design.trimColour, true);
}

FacadeMapping facadeMapping(const BuildingDesign& design)
{
    return FacadeMapping{design.bayWidth * kFacadeBays, design.floorHeight * kFacadeFloors};
}

/** Fine and middle: the tiers with textured walls, parapets and roofs. */
osg::ref_ptr<osg::Node> detailedModel(const BuildingDesign& design, bool fine)
{
    osg::ref_ptr<osg::Image> facade =
        facadeImage(design.facade, kFineFacade, design.seed, design.stem + "_facade_fine");
    if (!fine)
        facade = shrinkImage(*facade, kMiddleFacade, design.stem + "_facade_middle");
    const FacadeMapping mapping = facadeMapping(design);
    MeshBuilder wallMesh, plainMesh;
    for (std::size_t t = 0; t < design.tiers.size(); ++t)
    {
        const Tier& tier = design.tiers[t];
        for (const Ring& loop : tier.footprint.loops)
        {
            if (t == 0)
            {
                walls(wallMesh, loop, -kFoundation, design.groundFloor, scaled(design.wallTint, 0.6f), &mapping);
                walls(wallMesh, loop, design.groundFloor, tier.top, design.wallTint, &mapping);
            }
            else
            {
                walls(wallMesh, loop, tierBase(design, t), tier.top, design.wallTint, &mapping);
            }
            parapet(plainMesh, loop, tier.top, design.trimColour);
            if (fine)
                cornice(plainMesh, loop, tier.top, design.trimColour);
        }
        roof(plainMesh, tier.footprint, tier.top, design.roofColour);
    }
    if (fine)
    {
        roofEquipment(plainMesh, design);
        entranceCanopy(plainMesh, design);
    }
    ModelAssembly model;
    model.add("walls", wallMesh, facade.get());
    model.add("roofs", plainMesh);
    return model.node(design.stem + (fine ? "_fine" : "_middle"));
}

/** The colour a textured wall shows from afar. */
osg::Vec4 distantWallColour(const BuildingDesign& design)
{
    const osg::Vec3 mean = meanColour(*facadeImage(design.facade, kMiddleFacade, design.seed, std::string()));
    return osg::Vec4(mean.x() * design.wallTint.r(), mean.y() * design.wallTint.g(), mean.z() * design.wallTint.b(),
                     1.0f);
}

osg::ref_ptr<osg::Node> crudeModel(const BuildingDesign& design)
{
    const osg::Vec4 wall = distantWallColour(design);
    MeshBuilder mesh;
    for (std::size_t t = 0; t < design.tiers.size(); ++t)
    {
        const Tier& tier = design.tiers[t];
        const Ring bounds = boundsRing(tier.footprint);
        const double base = tierBase(design, t);
        const double split = t == 0 ? design.groundFloor : base + 0.5 * (tier.top - base);
        walls(mesh, bounds, base, split, scaled(wall, t == 0 ? 0.6f : 0.92f));
        walls(mesh, bounds, split, tier.top, wall);
        std::vector<osg::Vec3> top;
        for (const osg::Vec2d& p : bounds)
            top.push_back(at(p, tier.top));
        mesh.convexPolygon(top, design.roofColour);
    }
    ModelAssembly model;
    model.add("boxes", mesh);
    return model.node(design.stem + "_crude");
}

osg::ref_ptr<osg::Node> crude2Model(const BuildingDesign& design)
{
    // One box over the tier that makes the building's silhouette: the one that
    // reaches highest above its own base.
    std::size_t main = 0;
    double tallest = -1.0;
    for (std::size_t t = 0; t < design.tiers.size(); ++t)
    {
        const double rise = design.tiers[t].top - tierBase(design, t);
        if (rise > tallest)
        {
            tallest = rise;
            main = t;
        }
    }
    MeshBuilder mesh;
    const Ring bounds = boundsRing(design.tiers[main].footprint);
    walls(mesh, bounds, -kFoundation, design.height(), distantWallColour(design));
    std::vector<osg::Vec3> top;
    for (const osg::Vec2d& p : bounds)
        top.push_back(at(p, design.height()));
    mesh.convexPolygon(top, design.roofColour);
    ModelAssembly model;
    model.add("box", mesh);
    return model.node(design.stem + "_crude2");
}

// Colours of the kinds of wall, roof and trim.
const std::vector<osg::Vec4>& plasterTints()
{
    static const std::vector<osg::Vec4> tints = {rgb(0.96, 0.9, 0.8),  rgb(0.86, 0.85, 0.83), rgb(0.82, 0.56, 0.46),
                                                 rgb(0.98, 0.92, 0.74), rgb(1.0, 1.0, 1.0),    rgb(0.88, 0.66, 0.55),
                                                 rgb(0.8, 0.84, 0.88)};
    return tints;
}

const std::vector<osg::Vec4>& glassTints()
{
    static const std::vector<osg::Vec4> tints = {rgb(0.9, 0.96, 1.0), rgb(1.0, 1.0, 1.0), rgb(0.85, 0.95, 0.92),
                                                 rgb(0.95, 0.93, 0.88)};
    return tints;
}

const std::vector<osg::Vec4>& roofColours()
{
    static const std::vector<osg::Vec4> colours = {rgb(0.52, 0.52, 0.5), rgb(0.38, 0.39, 0.41),
                                                   rgb(0.45, 0.55, 0.4), rgb(0.6, 0.58, 0.54)};
    return colours;
}

double floors(Random& random, int low, int high, double floorHeight)
{
    return random.between(low, high) * floorHeight;
}

BuildingDesign base(Random& random, const std::string& stem, BuildingKind kind, double floorHeight)
{
    BuildingDesign d;
    d.stem = stem;
    d.kind = kind;
    d.floorHeight = floorHeight;
    d.bayWidth = random.uniform(3.2, 4.2);
    d.groundFloor = floorHeight * 1.4;
    d.roofColour = random.pick(roofColours());
    d.trimColour = rgb(0.78, 0.78, 0.76);
    d.plantUnits = random.between(1, 3);
    d.seed = random.next();
    return d;
}

} // namespace

const char* kindNameChinese(BuildingKind kind)
{
    switch (kind)
    {
    case BuildingKind::OfficeTower:
        return "写字楼";
    case BuildingKind::Office:
        return "办公楼";
    case BuildingKind::Hotel:
        return "酒店";
    case BuildingKind::Mall:
        return "商场";
    case BuildingKind::Apartment:
        return "公寓楼";
    case BuildingKind::Residence:
        return "住宅楼";
    case BuildingKind::School:
        return "教学楼";
    case BuildingKind::CourtyardBlock:
        return "院落楼";
    case BuildingKind::Shops:
        return "商铺";
    case BuildingKind::Workshop:
        return "厂房";
    case BuildingKind::Warehouse:
        return "仓库";
    }
    return "建筑";
}

const char* kindNameEnglish(BuildingKind kind)
{
    switch (kind)
    {
    case BuildingKind::OfficeTower:
        return "Office Tower";
    case BuildingKind::Office:
        return "Office";
    case BuildingKind::Hotel:
        return "Hotel";
    case BuildingKind::Mall:
        return "Mall";
    case BuildingKind::Apartment:
        return "Apartment";
    case BuildingKind::Residence:
        return "Residence";
    case BuildingKind::School:
        return "School";
    case BuildingKind::CourtyardBlock:
        return "Courtyard Block";
    case BuildingKind::Shops:
        return "Shops";
    case BuildingKind::Workshop:
        return "Workshop";
    case BuildingKind::Warehouse:
        return "Warehouse";
    }
    return "Building";
}

double BuildingDesign::width() const
{
    double w = 0.0;
    for (const Tier& tier : tiers)
        w = std::max(w, tier.footprint.width());
    return w;
}

double BuildingDesign::depth() const
{
    double d = 0.0;
    for (const Tier& tier : tiers)
        d = std::max(d, tier.footprint.depth());
    return d;
}

osg::ref_ptr<osg::Node> buildingModel(const BuildingDesign& design, Lod lod)
{
    switch (lod)
    {
    case Lod::Fine:
        return detailedModel(design, true);
    case Lod::Middle:
        return detailedModel(design, false);
    case Lod::Crude:
        return crudeModel(design);
    case Lod::Crude2:
        return crude2Model(design);
    }
    return nullptr;
}

BuildingDesign designOfficeTower(Random& random, const std::string& stem)
{
    const bool hotel = random.chance(0.25);
    BuildingDesign d = base(random, stem, hotel ? BuildingKind::Hotel : BuildingKind::OfficeTower, hotel ? 3.4 : 4.0);
    d.facade = hotel ? FacadeStyle::TwinWindows : (random.chance(0.6) ? FacadeStyle::CurtainWall : FacadeStyle::Ribbon);
    d.wallTint = hotel ? random.pick(plasterTints()) : random.pick(glassTints());
    d.plantUnits = random.between(2, 4);

    const double height = floors(random, hotel ? 28 : 25, hotel ? 45 : 62, d.floorHeight);
    const double side = random.uniform(28.0, 40.0);
    const double aspect = random.uniform(1.0, 1.3);
    const bool octagonal = random.chance(0.35);
    const Footprint shaft = octagonal ? Footprint::octagon(side * aspect, side, side * 0.18)
                                      : Footprint::rectangle(side * aspect, side);
    if (random.chance(0.7))
    {
        const double podiumWidth = std::min(side * aspect + random.uniform(16.0, 30.0), 70.0);
        const double podiumDepth = std::min(side + random.uniform(12.0, 20.0), 56.0);
        d.tiers.push_back(Tier{Footprint::rectangle(podiumWidth, podiumDepth), floors(random, 4, 6, d.floorHeight)});
    }
    if (random.chance(0.5))
    {
        const double crown = std::round(height * 0.86 / d.floorHeight) * d.floorHeight;
        d.tiers.push_back(Tier{shaft, crown});
        const double inset = random.uniform(3.5, 5.0);
        d.tiers.push_back(Tier{octagonal ? Footprint::octagon(side * aspect - 2 * inset, side - 2 * inset,
                                                              (side - 2 * inset) * 0.18)
                                         : Footprint::rectangle(side * aspect - 2 * inset, side - 2 * inset),
                               height});
    }
    else
    {
        d.tiers.push_back(Tier{shaft, height});
    }
    if (height > 150.0 && random.chance(0.7))
        d.spireHeight = random.uniform(12.0, 28.0);
    return d;
}

BuildingDesign designOfficeSlab(Random& random, const std::string& stem)
{
    BuildingDesign d = base(random, stem, BuildingKind::Office, 3.8);
    const int style = random.between(0, 2);
    d.facade = style == 0 ? FacadeStyle::Ribbon : style == 1 ? FacadeStyle::TwinWindows : FacadeStyle::CurtainWall;
    d.wallTint = d.facade == FacadeStyle::CurtainWall ? random.pick(glassTints()) : random.pick(plasterTints());
    d.tiers.push_back(Tier{Footprint::rectangle(random.uniform(45.0, 70.0), random.uniform(16.0, 24.0)),
                           floors(random, 10, 24, d.floorHeight)});
    return d;
}

BuildingDesign designMall(Random& random, const std::string& stem)
{
    BuildingDesign d = base(random, stem, BuildingKind::Mall, 5.0);
    d.facade = FacadeStyle::Ribbon;
    d.wallTint = random.pick(plasterTints());
    d.plantUnits = random.between(3, 5);
    d.tiers.push_back(Tier{Footprint::rectangle(random.uniform(56.0, 70.0), random.uniform(40.0, 54.0)),
                           floors(random, 3, 5, d.floorHeight)});
    return d;
}

BuildingDesign designResidentialSlab(Random& random, const std::string& stem)
{
    BuildingDesign d = base(random, stem, BuildingKind::Residence, 3.0);
    d.facade = random.chance(0.6) ? FacadeStyle::Punched : FacadeStyle::TwinWindows;
    d.wallTint = random.pick(plasterTints());
    d.waterTank = random.chance(0.6);
    d.tiers.push_back(Tier{Footprint::rectangle(random.uniform(46.0, 60.0), random.uniform(12.0, 16.0)),
                           floors(random, 10, 33, d.floorHeight)});
    return d;
}

BuildingDesign designApartmentTower(Random& random, const std::string& stem)
{
    BuildingDesign d = base(random, stem, BuildingKind::Apartment, 3.0);
    d.facade = FacadeStyle::Punched;
    d.wallTint = random.pick(plasterTints());
    d.waterTank = random.chance(0.5);
    const double side = random.uniform(22.0, 28.0);
    d.tiers.push_back(Tier{random.chance(0.5) ? Footprint::octagon(side, side, side * 0.22)
                                              : Footprint::rectangle(side, side * random.uniform(0.85, 1.0)),
                           floors(random, 20, 36, d.floorHeight)});
    return d;
}

BuildingDesign designLBlock(Random& random, const std::string& stem)
{
    const bool school = random.chance(0.4);
    BuildingDesign d = base(random, stem, school ? BuildingKind::School : BuildingKind::Residence, school ? 3.8 : 3.0);
    d.facade = school ? FacadeStyle::TwinWindows : FacadeStyle::Punched;
    d.wallTint = random.pick(plasterTints());
    const double depth = random.uniform(26.0, 30.0);
    d.tiers.push_back(Tier{Footprint::lShape(random.uniform(40.0, 56.0), depth, random.uniform(12.0, 14.0),
                                             random.uniform(12.0, 14.0)),
                           floors(random, 5, 10, d.floorHeight)});
    return d;
}

BuildingDesign designUBlock(Random& random, const std::string& stem)
{
    BuildingDesign d = base(random, stem, BuildingKind::School, 3.8);
    d.facade = FacadeStyle::TwinWindows;
    d.wallTint = random.pick(plasterTints());
    d.tiers.push_back(Tier{Footprint::uShape(random.uniform(48.0, 58.0), random.uniform(34.0, 44.0),
                                             random.uniform(13.0, 15.0), random.uniform(13.0, 15.0)),
                           floors(random, 4, 7, d.floorHeight)});
    return d;
}

BuildingDesign designCourtyardBlock(Random& random, const std::string& stem)
{
    BuildingDesign d = base(random, stem, BuildingKind::CourtyardBlock, 3.2);
    d.facade = FacadeStyle::Punched;
    d.wallTint = random.pick(plasterTints());
    d.tiers.push_back(Tier{Footprint::courtyard(random.uniform(46.0, 56.0), random.uniform(40.0, 50.0),
                                                random.uniform(12.0, 14.0)),
                           floors(random, 5, 9, d.floorHeight)});
    return d;
}

BuildingDesign designShops(Random& random, const std::string& stem)
{
    BuildingDesign d = base(random, stem, BuildingKind::Shops, 3.6);
    d.facade = random.chance(0.5) ? FacadeStyle::Punched : FacadeStyle::Ribbon;
    d.wallTint = random.pick(plasterTints());
    d.tiers.push_back(Tier{Footprint::rectangle(random.uniform(22.0, 40.0), random.uniform(16.0, 26.0)),
                           floors(random, 3, 5, d.floorHeight)});
    return d;
}

BuildingDesign designWorkshop(Random& random, const std::string& stem)
{
    BuildingDesign d = base(random, stem, BuildingKind::Workshop, 5.0);
    d.facade = FacadeStyle::TwinWindows;
    d.wallTint = random.pick(plasterTints());
    d.groundFloor = 4.0;
    d.tiers.push_back(Tier{Footprint::rectangle(random.uniform(40.0, 58.0), random.uniform(24.0, 36.0)),
                           floors(random, 2, 3, d.floorHeight)});
    return d;
}

BuildingDesign designWarehouse(Random& random, const std::string& stem)
{
    BuildingDesign d = base(random, stem, BuildingKind::Warehouse, 5.5);
    d.facade = FacadeStyle::Ribbon;
    d.wallTint = rgb(0.82, 0.84, 0.86);
    d.groundFloor = 4.5;
    d.plantUnits = 1;
    d.tiers.push_back(Tier{Footprint::rectangle(random.uniform(48.0, 58.0), random.uniform(30.0, 40.0)),
                           floors(random, 2, 2, d.floorHeight)});
    return d;
}

} // namespace cxsample
