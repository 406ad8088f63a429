#include <globe/SpatialReference>

#include "ProjThreadState.h"

#include <proj_experimental.h>

#include <osg/Math>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace globe
{
namespace
{

constexpr double kWGS84SemiMajor = 6378137.0;
constexpr double kWGS84InverseFlattening = 298.257223563;

static_assert(sizeof(osg::Vec3d) == 3 * sizeof(double), "osg::Vec3d must be three packed doubles");

std::string trim(const std::string& text)
{
    const auto first = std::find_if_not(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c); });
    const auto last = std::find_if_not(text.rbegin(), text.rend(), [](unsigned char c) { return std::isspace(c); }).base();
    return first < last ? std::string(first, last) : std::string();
}

std::string lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// What create() hands to PROJ for an init string: the short names become EPSG
// codes, and a PROJ string without "+type=crs" becomes a CRS definition (PROJ
// reads it as a coordinate operation otherwise).
std::string definitionFor(const std::string& init)
{
    const std::string text = trim(init);
    const std::string key = lower(text);
    if (key == "wgs84" || key == "wgs-84" || key == "wgs 84" || key == "epsg:4326")
        return "EPSG:4326";
    if (key == "geocentric" || key == "ecef" || key == "epsg:4978")
        return "EPSG:4978";
    if (key == "spherical-mercator" || key == "epsg:3857" || key == "epsg:900913" || key == "epsg:3785")
        return "EPSG:3857";
    const bool projString = !key.empty() && (key[0] == '+' || key.compare(0, 5, "proj=") == 0);
    if (projString && key.find("type=crs") == std::string::npos)
        return text + " +type=crs";
    return text;
}

// "ENU:lat,lon" (any case, blanks allowed around the numbers): the tangent
// plane's latitude and longitude in degrees.
bool parseTangentPlane(const std::string& init, double& lat, double& lon)
{
    const std::string text = trim(init);
    if (text.size() < 4 || lower(text.substr(0, 4)) != "enu:")
        return false;
    const std::string numbers = text.substr(4);
    const auto comma = numbers.find(',');
    if (comma == std::string::npos)
        return false;
    auto number = [](const std::string& part, double& value) {
        const std::string t = trim(part);
        if (t.empty())
            return false;
        char* end = nullptr;
        value = std::strtod(t.c_str(), &end);
        return end == t.c_str() + t.size() && std::isfinite(value);
    };
    return number(numbers.substr(0, comma), lat) && number(numbers.substr(comma + 1), lon) && std::fabs(lat) <= 90.0
           && std::fabs(lon) <= 360.0;
}

std::string wktOf(PJ_CONTEXT* ctx, const PJ* object)
{
    const char* wkt = proj_as_wkt(ctx, object, PJ_WKT2_2019, nullptr);
    if (!wkt)
        wkt = proj_as_proj_string(ctx, object, PJ_PROJ_5, nullptr);
    return wkt ? std::string(wkt) : std::string();
}

bool isWGS84DatumName(const std::string& name)
{
    return name.find("World Geodetic System 1984") != std::string::npos || name.find("WGS 84") != std::string::npos
        || name.find("WGS_1984") != std::string::npos || name.find("WGS84") != std::string::npos;
}

// Unit of the first axis of a CRS's coordinate system, as the factor to the SI
// unit (radian or metre); 0 when unknown.
double firstAxisUnit(PJ_CONTEXT* ctx, const PJ* crs)
{
    proj::Object cs(proj_crs_get_coordinate_system(ctx, crs));
    if (!cs)
        return 0.0;
    double factor = 0.0;
    if (!proj_cs_get_axis_info(ctx, cs.get(), 0, nullptr, nullptr, nullptr, &factor, nullptr, nullptr, nullptr))
        return 0.0;
    return factor;
}

struct Registry
{
    std::mutex mutex;
    std::map<std::string, osg::ref_ptr<SpatialReference>> byDefinition;
};

Registry& registry()
{
    // Never destroyed: references handed out stay valid through static
    // destruction at exit.
    static Registry* instance = new Registry;
    return *instance;
}

std::atomic<std::uint64_t> nextUID{1};

const SpatialReference* worldSRS()
{
    static const SpatialReference* world = SpatialReference::create("geocentric");
    return world;
}

bool geographicToGeocentric(const osg::EllipsoidModel& ellipsoid, osg::Vec3d& p)
{
    const double lon = p.x();
    const double lat = p.y();
    const double h = p.z();
    if (!std::isfinite(lon) || !std::isfinite(lat) || !std::isfinite(h) || std::fabs(lat) > 90.0)
        return false;
    double X, Y, Z;
    ellipsoid.convertLatLongHeightToXYZ(osg::DegreesToRadians(lat), osg::DegreesToRadians(lon), h, X, Y, Z);
    p.set(X, Y, Z);
    return true;
}

bool geocentricToGeographic(const osg::EllipsoidModel& ellipsoid, osg::Vec3d& p)
{
    if (!p.valid())
        return false;
    // OpenSceneGraph's closed form (one Bowring step) is the start; a few
    // fixed-point steps on the latitude make it exact at any height (the
    // single step is off by metres at satellite heights).
    double lat, lon, h;
    ellipsoid.convertXYZToLatLongHeight(p.x(), p.y(), p.z(), lat, lon, h);
    const double a = ellipsoid.getRadiusEquator();
    const double b = ellipsoid.getRadiusPolar();
    const double e2 = 1.0 - (b * b) / (a * a);
    const double X = p.x(), Y = p.y(), Z = p.z();
    const double rho = std::sqrt(X * X + Y * Y);
    if (rho > 0.0)
    {
        for (int i = 0; i < 8; ++i)
        {
            const double sinLat = std::sin(lat);
            const double N = a / std::sqrt(1.0 - e2 * sinLat * sinLat);
            const double next = std::atan2(Z + e2 * N * sinLat, rho);
            const bool converged = std::fabs(next - lat) < 1e-15;
            lat = next;
            if (converged)
                break;
        }
        const double sinLat = std::sin(lat);
        const double cosLat = std::cos(lat);
        const double N = a / std::sqrt(1.0 - e2 * sinLat * sinLat);
        h = std::fabs(cosLat) > 0.5 ? rho / cosLat - N : Z / sinLat - N * (1.0 - e2);
    }
    p.set(osg::RadiansToDegrees(lon), osg::RadiansToDegrees(lat), h);
    return p.valid();
}

} // namespace

SpatialReference::SpatialReference() : _uid(nextUID++) {}

SpatialReference::~SpatialReference() = default;

const SpatialReference* SpatialReference::create(const std::string& init)
{
    double tangentLat = 0.0, tangentLon = 0.0;
    const bool tangent = parseTangentPlane(init, tangentLat, tangentLon);
    std::string definition;
    if (tangent)
    {
        char text[96];
        std::snprintf(text, sizeof(text), "ENU:%.15g,%.15g", tangentLat, tangentLon);
        definition = text;
    }
    else
    {
        definition = definitionFor(init);
    }
    if (definition.empty())
        return nullptr;

    Registry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    auto found = reg.byDefinition.find(definition);
    if (found != reg.byDefinition.end())
        return found->second.get();

    osg::ref_ptr<SpatialReference> srs =
        tangent ? buildTangentPlane(init, definition, tangentLat, tangentLon) : build(init, definition);
    if (!srs)
        return nullptr;
    reg.byDefinition.emplace(definition, srs);
    return srs.get();
}

osg::ref_ptr<SpatialReference> SpatialReference::build(const std::string& init, const std::string& definition)
{
    PJ_CONTEXT* ctx = proj::context();
    proj::Object object(proj_create(ctx, definition.c_str()));
    if (!object || !proj_is_crs(object.get()))
        return nullptr;

    // The horizontal part: the base of a bound CRS (PROJ strings with
    // +towgs84), the first part of a compound CRS.
    bool compound = false;
    proj::Object horizontal(proj_clone(ctx, object.get()));
    if (proj_get_type(horizontal.get()) == PJ_TYPE_COMPOUND_CRS)
    {
        compound = true;
        horizontal = proj::Object(proj_crs_get_sub_crs(ctx, horizontal.get(), 0));
    }
    if (horizontal && proj_get_type(horizontal.get()) == PJ_TYPE_BOUND_CRS)
        horizontal = proj::Object(proj_get_source_crs(ctx, horizontal.get()));
    if (!horizontal)
        return nullptr;

    osg::ref_ptr<SpatialReference> srs = new SpatialReference;
    switch (proj_get_type(horizontal.get()))
    {
    case PJ_TYPE_GEOGRAPHIC_2D_CRS:
    case PJ_TYPE_GEOGRAPHIC_3D_CRS:
        srs->_type = GEOGRAPHIC;
        break;
    case PJ_TYPE_GEOCENTRIC_CRS:
        srs->_type = GEOCENTRIC;
        break;
    case PJ_TYPE_PROJECTED_CRS:
        srs->_type = PROJECTED;
        break;
    default:
        return nullptr;
    }

    proj::Object geodetic(proj_crs_get_geodetic_crs(ctx, horizontal.get()));
    proj::Object ellipsoid(proj_get_ellipsoid(ctx, horizontal.get()));
    if (!geodetic || !ellipsoid)
        return nullptr;
    double a = 0.0, b = 0.0, inverseFlattening = 0.0;
    int computed = 0;
    if (!proj_ellipsoid_get_parameters(ctx, ellipsoid.get(), &a, &b, &computed, &inverseFlattening) || a <= 0.0 || b <= 0.0)
        return nullptr;

    proj::Object datum(proj_crs_get_datum_forced(ctx, geodetic.get()));
    const char* datumName = datum ? proj_get_name(datum.get()) : nullptr;
    srs->_wgs84Datum = a == kWGS84SemiMajor && std::fabs(inverseFlattening - kWGS84InverseFlattening) < 1e-6
                       && datumName && isWGS84DatumName(datumName);

    srs->_init = init;
    srs->_definition = definition;
    const char* name = proj_get_name(object.get());
    srs->_name = name ? name : "";
    srs->_wkt = wktOf(ctx, object.get());

    if (srs->_wgs84Datum)
    {
        // The exact WGS84 figures, not a rounded polar radius.
        srs->_ellipsoid = new osg::EllipsoidModel(kWGS84SemiMajor, kWGS84SemiMajor * (1.0 - 1.0 / kWGS84InverseFlattening));
        const double unit = firstAxisUnit(ctx, horizontal.get());
        if (!compound && srs->_type == GEOGRAPHIC && std::fabs(unit - osg::DegreesToRadians(1.0)) < 1e-12)
            srs->_fast = FAST_WGS84_GEOGRAPHIC;
        else if (!compound && srs->_type == GEOCENTRIC && unit == 1.0)
            srs->_fast = FAST_WGS84_GEOCENTRIC;
    }
    else
    {
        srs->_ellipsoid = new osg::EllipsoidModel(a, b);
    }

    // Definitions of the geographic and geocentric systems of the datum,
    // made into objects on first use.
    const PJ_TYPE geodeticType = proj_get_type(geodetic.get());
    const bool geodeticIsGeographic = geodeticType == PJ_TYPE_GEOGRAPHIC_2D_CRS || geodeticType == PJ_TYPE_GEOGRAPHIC_3D_CRS;
    proj::Object datumOrEnsemble(proj_crs_get_datum(ctx, geodetic.get()));
    if (!datumOrEnsemble)
        datumOrEnsemble = proj::Object(proj_crs_get_datum_ensemble(ctx, geodetic.get()));
    const std::string geodeticName = proj_get_name(geodetic.get()) ? proj_get_name(geodetic.get()) : "";

    if (geodeticIsGeographic)
    {
        srs->_geographicDefinition = wktOf(ctx, geodetic.get());
    }
    else if (datumOrEnsemble)
    {
        proj::Object cs(proj_create_ellipsoidal_2D_cs(ctx, PJ_ELLPS2D_LONGITUDE_LATITUDE, nullptr, 0.0));
        proj::Object geographic(proj_create_geographic_crs_from_datum(ctx, geodeticName.c_str(), datumOrEnsemble.get(), cs.get()));
        if (geographic)
            srs->_geographicDefinition = wktOf(ctx, geographic.get());
    }

    if (geodeticType == PJ_TYPE_GEOCENTRIC_CRS)
    {
        srs->_geocentricDefinition = wktOf(ctx, geodetic.get());
    }
    else if (datumOrEnsemble)
    {
        proj::Object geocentric(proj_create_geocentric_crs_from_datum(ctx, geodeticName.c_str(), datumOrEnsemble.get(), "metre", 1.0));
        if (geocentric)
            srs->_geocentricDefinition = wktOf(ctx, geocentric.get());
    }
    return srs;
}

osg::ref_ptr<SpatialReference> SpatialReference::buildTangentPlane(const std::string& init,
                                                                 const std::string& definition, double lat,
                                                                 double lon)
{
    osg::ref_ptr<SpatialReference> srs = new SpatialReference;
    srs->_init = init;
    srs->_definition = definition;
    char name[96];
    std::snprintf(name, sizeof(name), "WGS 84 tangent plane at %.9g, %.9g", lat, lon);
    srs->_name = name;
    srs->_type = PROJECTED;
    srs->_fast = FAST_TANGENT_PLANE;
    srs->_wgs84Datum = true;
    srs->_ellipsoid = new osg::EllipsoidModel(kWGS84SemiMajor, kWGS84SemiMajor * (1.0 - 1.0 / kWGS84InverseFlattening));
    srs->_ellipsoid->computeLocalToWorldTransformFromLatLongHeight(osg::DegreesToRadians(lat),
                                                                   osg::DegreesToRadians(lon), 0.0,
                                                                   srs->_localToWorld);
    srs->_worldToLocal = osg::Matrixd::inverse(srs->_localToWorld);
    return srs;
}

const SpatialReference* SpatialReference::getGeographicSRS() const
{
    std::call_once(_geographicOnce, [this] {
        if (_wgs84Datum)
            _geographic = create("wgs84");
        else if (_type == GEOGRAPHIC)
            _geographic = this;
        else if (!_geographicDefinition.empty())
            _geographic = create(_geographicDefinition);
        if (!_geographic)
            _geographic = create("wgs84");
    });
    return _geographic;
}

const SpatialReference* SpatialReference::getGeocentricSRS() const
{
    std::call_once(_geocentricOnce, [this] {
        if (_wgs84Datum)
            _geocentric = create("geocentric");
        else if (_type == GEOCENTRIC)
            _geocentric = this;
        else if (!_geocentricDefinition.empty())
            _geocentric = create(_geocentricDefinition);
        if (!_geocentric)
            _geocentric = create("geocentric");
    });
    return _geocentric;
}

bool SpatialReference::isEquivalentTo(const SpatialReference* rhs) const
{
    if (!rhs)
        return false;
    if (rhs == this || rhs->_definition == _definition)
        return true;
    if (_fast == FAST_TANGENT_PLANE || rhs->_fast == FAST_TANGENT_PLANE)
        return false; // same plane means same definition, checked above
    if (_fast != FAST_NONE && _fast == rhs->_fast)
        return true;
    PJ_CONTEXT* ctx = proj::context();
    proj::Object a(proj_create(ctx, _definition.c_str()));
    proj::Object b(proj_create(ctx, rhs->_definition.c_str()));
    return a && b && proj_is_equivalent_to_with_ctx(ctx, a.get(), b.get(), PJ_COMP_EQUIVALENT_EXCEPT_AXIS_ORDER_GEOGCRS);
}

bool SpatialReference::transform(const osg::Vec3d& input, const SpatialReference* outputSRS, osg::Vec3d& output) const
{
    if (!outputSRS)
        return false;
    osg::Vec3d point = input;
    if (outputSRS == this)
    {
        output = point;
        return true;
    }
    if (_fast == FAST_TANGENT_PLANE || outputSRS->_fast == FAST_TANGENT_PLANE)
    {
        if (!transformTangent(&point, 1, outputSRS))
            return false;
        output = point;
        return true;
    }
    if (_fast == FAST_WGS84_GEOGRAPHIC && outputSRS->_fast == FAST_WGS84_GEOCENTRIC)
    {
        if (!geographicToGeocentric(*_ellipsoid, point))
            return false;
        output = point;
        return true;
    }
    if (_fast == FAST_WGS84_GEOCENTRIC && outputSRS->_fast == FAST_WGS84_GEOGRAPHIC)
    {
        if (!geocentricToGeographic(*_ellipsoid, point))
            return false;
        output = point;
        return true;
    }
    if (!transformWithProj(&point, 1, outputSRS))
        return false;
    output = point;
    return true;
}

bool SpatialReference::transform(std::vector<osg::Vec3d>& points, const SpatialReference* outputSRS) const
{
    if (!outputSRS)
        return false;
    if (points.empty() || outputSRS == this)
        return true;
    if (_fast == FAST_TANGENT_PLANE || outputSRS->_fast == FAST_TANGENT_PLANE)
        return transformTangent(points.data(), points.size(), outputSRS);
    if (_fast == FAST_WGS84_GEOGRAPHIC && outputSRS->_fast == FAST_WGS84_GEOCENTRIC)
    {
        bool ok = true;
        for (osg::Vec3d& p : points)
            ok = geographicToGeocentric(*_ellipsoid, p) && ok;
        return ok;
    }
    if (_fast == FAST_WGS84_GEOCENTRIC && outputSRS->_fast == FAST_WGS84_GEOGRAPHIC)
    {
        bool ok = true;
        for (osg::Vec3d& p : points)
            ok = geocentricToGeographic(*_ellipsoid, p) && ok;
        return ok;
    }
    return transformWithProj(points.data(), points.size(), outputSRS);
}

// A tangent plane is a rigid frame on the WGS84 ellipsoid: its points go to
// world coordinates by one matrix, and on from there.
bool SpatialReference::transformTangent(osg::Vec3d* points, std::size_t count, const SpatialReference* outputSRS) const
{
    const SpatialReference* world = worldSRS();
    bool ok = true;
    if (_fast == FAST_TANGENT_PLANE)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            ok = points[i].valid() && ok;
            points[i] = points[i] * _localToWorld;
        }
        if (outputSRS == world)
            return ok;
        std::vector<osg::Vec3d> worldPoints(points, points + count);
        ok = world->transform(worldPoints, outputSRS) && ok;
        std::copy(worldPoints.begin(), worldPoints.end(), points);
        return ok;
    }
    // Into a tangent plane: to world coordinates first.
    if (this != world)
    {
        std::vector<osg::Vec3d> worldPoints(points, points + count);
        ok = transform(worldPoints, world);
        std::copy(worldPoints.begin(), worldPoints.end(), points);
    }
    for (std::size_t i = 0; i < count; ++i)
    {
        ok = points[i].valid() && ok;
        points[i] = points[i] * outputSRS->_worldToLocal;
    }
    return ok;
}

bool SpatialReference::transformWithProj(osg::Vec3d* points, std::size_t count, const SpatialReference* outputSRS) const
{
    PJ* op = proj::operation(_uid, _definition, outputSRS->_uid, outputSRS->_definition);
    if (!op)
        return false;
    proj_errno_reset(op);
    double* base = points->ptr();
    const std::size_t stride = sizeof(osg::Vec3d);
    proj_trans_generic(op, PJ_FWD, base, stride, count, base + 1, stride, count, base + 2, stride, count, nullptr, 0, 0);
    bool ok = true;
    for (std::size_t i = 0; i < count; ++i)
    {
        const osg::Vec3d& p = points[i];
        if (!std::isfinite(p.x()) || !std::isfinite(p.y()) || !std::isfinite(p.z()))
            ok = false;
    }
    return ok;
}

bool SpatialReference::transformToWorld(const osg::Vec3d& input, osg::Vec3d& world) const
{
    return transform(input, worldSRS(), world);
}

bool SpatialReference::transformFromWorld(const osg::Vec3d& world, osg::Vec3d& output, double* out_height) const
{
    const SpatialReference* geocentric = worldSRS();
    if (!geocentric || !geocentric->transform(world, this, output))
        return false;
    if (out_height)
    {
        osg::Vec3d geographic = world;
        if (!geocentricToGeographic(*geocentric->_ellipsoid, geographic))
            return false;
        *out_height = geographic.z();
    }
    return true;
}

const SpatialReference* SpatialReference::createUTMFromLonLat(double lon, double lat) const
{
    if (!std::isfinite(lon) || !std::isfinite(lat))
        return nullptr;
    double shifted = std::fmod(lon + 180.0, 360.0);
    if (shifted < 0.0)
        shifted += 360.0;
    const int zone = std::min(60, static_cast<int>(shifted / 6.0) + 1);
    const bool north = lat >= 0.0;

    if (_wgs84Datum)
    {
        char code[32];
        std::snprintf(code, sizeof(code), "EPSG:%d", (north ? 32600 : 32700) + zone);
        return create(code);
    }

    // Another datum: a UTM projection on this system's geographic CRS.
    PJ_CONTEXT* ctx = proj::context();
    proj::Object geographic(proj_create(ctx, _geographicDefinition.c_str()));
    proj::Object conversion(proj_create_conversion_utm(ctx, zone, north ? 1 : 0));
    proj::Object cs(proj_create_cartesian_2D_cs(ctx, PJ_CART2D_EASTING_NORTHING, "metre", 1.0));
    if (!geographic || !conversion || !cs)
        return nullptr;
    const std::string name = _name + " / UTM zone " + std::to_string(zone) + (north ? "N" : "S");
    proj::Object projected(proj_create_projected_crs(ctx, name.c_str(), geographic.get(), conversion.get(), cs.get()));
    if (!projected)
        return nullptr;
    return create(wktOf(ctx, projected.get()));
}

} // namespace globe
