#include <globe/SkyNode>
#include <globe/FindTopMostNodeOfTypeVisitor>

#include "Atmosphere.h"
#include "SkyScenery.h"

#include <osg/BlendFunc>
#include <osg/CullFace>
#include <osg/Geometry>
#include <osg/Program>
#include <osg/Shader>
#include <osgUtil/CullVisitor>
#include <osgUtil/RenderStage>

#include <algorithm>
#include <cmath>
#include <string>

namespace globe
{

namespace
{

// Share of the equatorial radius that the atmosphere shell stands over the
// ellipsoid, and the density's scale height as a share of that.
constexpr double kAtmosphereRatio = 0.025;
constexpr double kScaleHeightShare = 1.0 / 7.0;
// Blue-channel optical depth of the vertical column, looking straight up.
constexpr double kZenithDepth = 2.3;
// Grid of the shell: 2 degrees per step.
constexpr int kLatitudeSteps = 90;
constexpr int kLongitudeSteps = 180;
// The star field: as many stars as the eye sees on a clear night, from a
// fixed seed so that every run shows the same sky.
constexpr unsigned int kStarCount = 4000;
constexpr unsigned int kStarSeed = 20181130;
// The solid Earth under the lowest ground (the deepest trench, 11 km under
// sea level, with a margin) hides the shell behind it.
constexpr double kOccluderDepth = 15000.0;
// Light of the air where the sun is down (starlight and airglow).
constexpr float kNightLight = 0.002f;

double wrap360(double degrees)
{
    double value = std::fmod(degrees, 360.0);
    if (value < 0.0)
        value += 360.0;
    return value;
}

double wrap180(double degrees)
{
    double value = wrap360(degrees);
    if (value > 180.0)
        value -= 360.0;
    return value;
}

bool validEllipsoid(const osg::EllipsoidModel& e)
{
    const double a = e.getRadiusEquator();
    const double b = e.getRadiusPolar();
    return std::isfinite(a) && std::isfinite(b) && a > 0.0 && b > 0.0;
}

// GLSL 1.30 with the compatibility built-ins (for gl_ClipDistance):
// compiles on Mesa (4.5 compatibility profile) and on desktop drivers of
// OpenGL 3.0 and later. Positions are carried in a space where the ellipsoid
// is the unit sphere (x and y divided by the equatorial radius, z by the
// polar one).
//
// The part of the shell that the solid Earth hides from the eye (the ray to
// it passes under the lowest ground) is clipped away before it is
// rasterized: the rasterizer shades every pixel a triangle covers, hidden or
// not, and from inside the air the dome covers the whole window.
const char* const kVertexShader = R"GLSL(#version 130
uniform vec3 globe_ellipsoidScale;
uniform float globe_occluderRadius;
varying vec3 globe_eye;
varying vec3 globe_ray;
void main()
{
    vec3 eye = (gl_ModelViewMatrixInverse * vec4(0.0, 0.0, 0.0, 1.0)).xyz;
    globe_eye = eye * globe_ellipsoidScale;
    globe_ray = (gl_Vertex.xyz - eye) * globe_ellipsoidScale;
    gl_Position = gl_ModelViewProjectionMatrix * gl_Vertex;
    // At the back of the depth range: only where the scene drew nothing.
    gl_Position.z = gl_Position.w;
    // How far the segment from the eye to the vertex stays above the
    // occluder: negative where it passes through it.
    float t = clamp(-dot(globe_eye, globe_ray) / dot(globe_ray, globe_ray), 0.0, 1.0);
    gl_ClipDistance[0] = length(globe_eye + globe_ray * t) - globe_occluderRadius;
}
)GLSL";

// Single scattering along the view ray through the shell: the air along the
// ray in the shell (an exponential atmosphere, see kAirGlsl; the shell
// itself is where it has thinned to nothing) lit by the sun where the ray
// runs lowest (soft terminator), the night side by a faint night light; the
// Rayleigh phase and a 1/lambda^4 colour; exposure maps the sum into [0, 1),
// towards a pale blue. A handful of operations a pixel: it runs for every
// pixel of the dome, those the ground hides too.
const char* const kFragmentShaderBody = R"GLSL(
uniform vec3 globe_SunDirection;
uniform float globe_nightLight;
uniform float globe_shellRadius;
uniform float globe_scaleHeight;
uniform float globe_exposure;
varying vec3 globe_eye;
varying vec3 globe_ray;

// The air from p to space along `direction` (unit radius); `direction` may
// point down, for a ray that passes its lowest point later on.
float upward(vec3 p, vec3 direction)
{
    float r = length(p);
    return globe_airToSpace(r - 1.0, dot(p / r, direction), globe_scaleHeight, 1.0);
}

void main()
{
    vec3 d = normalize(globe_ray);
    vec3 o = globe_eye;
    float b = dot(o, d);
    float oo = dot(o, o);
    float disc = b * b - (oo - globe_shellRadius * globe_shellRadius);
    // A ray that misses the shell adds nothing. (No discard: it would keep
    // the rasterizer from skipping the pixels the ground already covers.)
    float s = sqrt(max(disc, 0.0));
    float t1 = disc > 0.0 ? max(-b + s, 0.0) : 0.0;
    float t0 = clamp(-b - s, 0.0, t1);
    // A ray that meets the globe ends there: the air in front of the ground
    // (usually hidden by the terrain drawn over it).
    float discGlobe = b * b - (oo - 1.0);
    if (oo > 1.0 && discGlobe > 0.0)
    {
        float tGlobe = -b - sqrt(discGlobe);
        if (tGlobe > 0.0)
            t1 = min(t1, tGlobe);
    }
    // The air of the segment: what lies beyond its start less what lies
    // beyond its end (one formula for rays going down and up), lit where the
    // ray runs lowest.
    vec3 pc = o + d * clamp(-b, t0, t1);
    float air = t1 > t0 ? upward(o + d * t0, d) - upward(o + d * t1, d) : 0.0;
    float lit = max(smoothstep(-0.15, 0.2, dot(normalize(pc), globe_SunDirection)), globe_nightLight);
    float depth = max(air, 0.0) * lit;
    float mu = dot(d, globe_SunDirection);
    float phase = 0.75 * (1.0 + mu * mu);
    // Long paths (towards the horizon) tend to the pale blue of the air's
    // own light rather than to white.
    vec3 colour = vec3(0.72, 0.83, 1.0) * (vec3(1.0) - exp(-depth * phase * globe_exposure * vec3(0.175, 0.41, 1.0)));
    gl_FragColor = vec4(colour, max(colour.b, max(colour.r, colour.g)));
}
)GLSL";

// The shell at `height` over the ellipsoid, triangles facing outwards.
osg::Geometry* makeShell(const osg::EllipsoidModel& ellipsoid, double height)
{
    auto* vertices = new osg::Vec3Array;
    vertices->reserve((kLatitudeSteps + 1) * (kLongitudeSteps + 1));
    for (int i = 0; i <= kLatitudeSteps; ++i)
    {
        const double lat = osg::DegreesToRadians(-90.0 + 180.0 * i / kLatitudeSteps);
        for (int j = 0; j <= kLongitudeSteps; ++j)
        {
            const double lon = osg::DegreesToRadians(-180.0 + 360.0 * j / kLongitudeSteps);
            double x = 0.0, y = 0.0, z = 0.0;
            ellipsoid.convertLatLongHeightToXYZ(lat, lon, height, x, y, z);
            vertices->push_back(osg::Vec3(x, y, z));
        }
    }
    auto* triangles = new osg::DrawElementsUInt(GL_TRIANGLES);
    triangles->reserve(kLatitudeSteps * kLongitudeSteps * 6);
    const unsigned int row = kLongitudeSteps + 1;
    for (unsigned int i = 0; i < static_cast<unsigned int>(kLatitudeSteps); ++i)
    {
        for (unsigned int j = 0; j < static_cast<unsigned int>(kLongitudeSteps); ++j)
        {
            // East then north is counter-clockwise seen from outside.
            const unsigned int v00 = i * row + j;
            const unsigned int v01 = v00 + 1;
            const unsigned int v10 = v00 + row;
            const unsigned int v11 = v10 + 1;
            for (unsigned int index : {v00, v01, v11, v00, v11, v10})
                triangles->push_back(index);
        }
    }
    auto* geometry = new osg::Geometry;
    geometry->setName("atmosphere");
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setVertexArray(vertices);
    geometry->addPrimitiveSet(triangles);
    return geometry;
}

// Sets the cull visitor's near/far mode without clearing the matching bit of
// its inheritance mask, so that the camera's own mode still reaches it in
// the next frame.
void setComputeNearFarModeKeepingInheritance(osgUtil::CullVisitor& cv, osg::CullSettings::ComputeNearFarMode mode)
{
    const osg::CullSettings::InheritanceMask mask = cv.getInheritanceMask();
    cv.setComputeNearFarMode(mode);
    cv.setInheritanceMask(mask);
}

// Whether the pass of `stage` paints the backdrop: the pass that clears the
// picture; or, where the view's main camera has handed its drawing to slave
// cameras of which none clears colour (a depth partition whose far pass too
// clears depth only), the first of those slaves on the same context, which
// draws first: the far pass.
bool paintsBackdrop(const osgUtil::RenderStage& stage)
{
    if (stage.getClearMask() & GL_COLOR_BUFFER_BIT)
        return true;
    const osg::Camera* camera = stage.getCamera();
    const osg::View* view = camera ? camera->getView() : nullptr;
    const osg::Camera* master = view ? view->getCamera() : nullptr;
    if (!master || master == camera || master->getGraphicsContext() || !camera->getGraphicsContext())
        return false;
    for (unsigned int i = 0; i < view->getNumSlaves(); ++i)
    {
        const osg::Camera* slave = view->getSlave(i)._camera.get();
        if (!slave || slave->getGraphicsContext() != camera->getGraphicsContext())
            continue;
        return slave == camera && (slave->getClearMask() & GL_COLOR_BUFFER_BIT) == 0;
    }
    return false;
}

} // namespace

SkyNode* SkyNode::create(osg::Node* mapNode)
{
    auto* csn = findTopMostNodeOfType<osg::CoordinateSystemNode>(mapNode);
    if (csn && csn->getEllipsoidModel() && validEllipsoid(*csn->getEllipsoidModel()))
        return new SkyNode(*csn->getEllipsoidModel());
    return new SkyNode(osg::EllipsoidModel());
}

SkyNode* SkyNode::create(const osg::EllipsoidModel& ellipsoid)
{
    return new SkyNode(validEllipsoid(ellipsoid) ? ellipsoid : osg::EllipsoidModel());
}

SkyNode::SkyNode()
    : SkyNode(osg::EllipsoidModel())
{
}

SkyNode::SkyNode(const osg::EllipsoidModel& ellipsoid)
    : _ellipsoid(new osg::EllipsoidModel(ellipsoid))
    , _minimumAmbient(0.1f, 0.1f, 0.1f, 1.0f)
{
    build();
    setDateTime(DateTime());
}

SkyNode::SkyNode(const SkyNode& rhs, const osg::CopyOp& /*copyop*/)
    : osg::Group()
    , _ellipsoid(new osg::EllipsoidModel(*rhs._ellipsoid))
    , _minimumAmbient(rhs._minimumAmbient)
{
    // A copy is a sky of its own: its own shell, stars, light and uniforms.
    setName(rhs.getName());
    setNodeMask(rhs.getNodeMask());
    _haze = rhs._haze;
    build();
    _sunLight->setLightNum(rhs._sunLight->getLightNum());
    _sunLight->setAmbient(rhs._sunLight->getAmbient());
    _sunLight->setDiffuse(rhs._sunLight->getDiffuse());
    _sunLight->setSpecular(rhs._sunLight->getSpecular());
    setDateTime(rhs._dateTime);
}

SkyNode::~SkyNode() = default;

void SkyNode::build()
{
    const double a = _ellipsoid->getRadiusEquator();
    const double b = _ellipsoid->getRadiusPolar();
    const double top = atmosphereHeight(*_ellipsoid);
    const double scaleHeight = kAtmosphereRatio * kScaleHeightShare;

    _sunLight = new osg::Light(0);
    _sunLight->setDataVariance(osg::Object::DYNAMIC);
    _sunLight->setAmbient(osg::Vec4(0.0f, 0.0f, 0.0f, 1.0f));
    _sunLight->setDiffuse(osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));
    _sunLight->setSpecular(osg::Vec4(1.0f, 1.0f, 1.0f, 1.0f));

    _lightModel = new osg::LightModel;
    _lightModel->setDataVariance(osg::Object::DYNAMIC);
    _lightModel->setAmbientIntensity(_minimumAmbient);

    _minimumAmbientUniform = new osg::Uniform("globe_MinimumAmbient", _minimumAmbient);
    _minimumAmbientUniform->setDataVariance(osg::Object::DYNAMIC);
    _sunDirectionUniform = new osg::Uniform(detail::kSunDirectionUniform, osg::Vec3f(0.0f, 0.0f, 1.0f));
    _sunDirectionUniform->setDataVariance(osg::Object::DYNAMIC);
    _starRotationUniform = new osg::Uniform("globe_starRotation", osg::Matrixf());
    _starRotationUniform->setDataVariance(osg::Object::DYNAMIC);
    _hazeDensityUniform = new osg::Uniform(detail::kHazeDensityUniform,
                                           _haze ? static_cast<float>(detail::kHazeDensity) : 0.0f);
    _hazeDensityUniform->setDataVariance(osg::Object::DYNAMIC);
    _hazeScaleHeightUniform =
        new osg::Uniform(detail::kHazeScaleHeightUniform, static_cast<float>(detail::kHazeScaleHeight));

    _space = detail::createSpace();
    _stars = detail::createStars(kStarCount, kStarSeed, _starRotationUniform.get());

    _atmosphere = new osg::Geode;
    _atmosphere->setName("atmosphere");
    _atmosphere->addDrawable(makeShell(*_ellipsoid, top));

    osg::StateSet* ss = _atmosphere->getOrCreateStateSet();
    auto* program = new osg::Program;
    program->setName("globe atmosphere");
    program->addShader(new osg::Shader(osg::Shader::VERTEX, kVertexShader));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT,
                                       std::string("#version 130\n") + detail::kAirGlsl + kFragmentShaderBody));
    ss->setAttributeAndModes(program, osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    ss->addUniform(new osg::Uniform("globe_ellipsoidScale", osg::Vec3f(1.0 / a, 1.0 / a, 1.0 / b)));
    ss->addUniform(new osg::Uniform("globe_shellRadius", static_cast<float>(1.0 + top / a)));
    ss->addUniform(new osg::Uniform("globe_scaleHeight", static_cast<float>(scaleHeight)));
    ss->addUniform(new osg::Uniform("globe_exposure", static_cast<float>(kZenithDepth / scaleHeight)));
    ss->addUniform(_sunDirectionUniform.get());
    ss->addUniform(new osg::Uniform("globe_nightLight", kNightLight));
    ss->addUniform(new osg::Uniform("globe_occluderRadius", static_cast<float>(1.0 - kOccluderDepth / a)));
    // Behind the scene, over space and the stars by its alpha; the inner
    // side only: around the globe from space, the dome from inside.
    detail::setBehindTheScene(*ss, detail::kAtmosphereBin);
    ss->setAttributeAndModes(new osg::CullFace(osg::CullFace::FRONT),
                             osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    ss->setAttributeAndModes(new osg::BlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA),
                             osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    ss->setMode(GL_CLIP_PLANE0, osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    _atmosphere->setCullingActive(false);

    removeChildren(0, getNumChildren());
    addChild(_space.get());
    addChild(_stars.get());
    addChild(_atmosphere.get());

    // The sun is put back on the light at every update traversal.
    if (getNumChildrenRequiringUpdateTraversal() == 0)
        setNumChildrenRequiringUpdateTraversal(1);
}

double SkyNode::atmosphereHeight(const osg::EllipsoidModel& ellipsoid)
{
    return kAtmosphereRatio * ellipsoid.getRadiusEquator();
}

SkyNode::SunPosition SkyNode::computeSunPosition(const DateTime& dateTime)
{
    SunPosition sun;
    const double n = dateTime.getDaysSinceJ2000();
    sun.daysSinceJ2000 = n;
    sun.meanLongitude = wrap360(280.460 + 0.9856474 * n);
    sun.meanAnomaly = wrap360(357.528 + 0.9856003 * n);
    const double g = osg::DegreesToRadians(sun.meanAnomaly);
    sun.eclipticLongitude = wrap360(sun.meanLongitude + 1.915 * std::sin(g) + 0.020 * std::sin(2.0 * g));
    sun.obliquity = 23.439 - 0.0000004 * n;
    sun.distance = 1.00014 - 0.01671 * std::cos(g) - 0.00014 * std::cos(2.0 * g);

    const double lambda = osg::DegreesToRadians(sun.eclipticLongitude);
    const double epsilon = osg::DegreesToRadians(sun.obliquity);
    sun.rightAscension = wrap360(osg::RadiansToDegrees(
        std::atan2(std::cos(epsilon) * std::sin(lambda), std::cos(lambda))));
    sun.declination = osg::RadiansToDegrees(std::asin(std::sin(epsilon) * std::sin(lambda)));
    sun.greenwichSiderealTime = wrap360(280.46061837 + 360.98564736629 * n);

    sun.subSolarLongitude = wrap180(sun.rightAscension - sun.greenwichSiderealTime);
    if (sun.subSolarLongitude == -180.0)
        sun.subSolarLongitude = 180.0;
    sun.subSolarLatitude = sun.declination;

    const double lon = osg::DegreesToRadians(sun.subSolarLongitude);
    const double lat = osg::DegreesToRadians(sun.subSolarLatitude);
    sun.direction = osg::Vec3d(std::cos(lat) * std::cos(lon), std::cos(lat) * std::sin(lon), std::sin(lat));
    return sun;
}

void SkyNode::attach(osg::View* view, int lightNum)
{
    if (!view || !view->getCamera())
        return;
    lightNum = std::clamp(lightNum, 0, 7);
    _sunLight->setLightNum(lightNum);
    applySunToLight();
    view->setLightingMode(osg::View::SKY_LIGHT);
    view->setLight(_sunLight.get());

    osg::StateSet* ss = view->getCamera()->getOrCreateStateSet();
    ss->setMode(GL_LIGHTING, osg::StateAttribute::ON);
    ss->setMode(GL_LIGHT0 + lightNum, osg::StateAttribute::ON);
    ss->setAttributeAndModes(_lightModel.get(), osg::StateAttribute::ON);
    ss->addUniform(_minimumAmbientUniform.get());
    // What the terrain's shader needs for the haze.
    ss->addUniform(_sunDirectionUniform.get());
    ss->addUniform(_hazeDensityUniform.get());
    ss->addUniform(_hazeScaleHeightUniform.get());
}

void SkyNode::setHazeEnabled(bool enabled)
{
    _haze = enabled;
    _hazeDensityUniform->set(enabled ? static_cast<float>(detail::kHazeDensity) : 0.0f);
}

void SkyNode::setMinimumAmbient(const osg::Vec4f& value)
{
    osg::Vec4f clamped;
    for (int i = 0; i < 4; ++i)
        clamped[i] = std::isfinite(value[i]) ? std::clamp(value[i], 0.0f, 1.0f) : 0.0f;
    _minimumAmbient = clamped;
    _lightModel->setAmbientIntensity(_minimumAmbient);
    _minimumAmbientUniform->set(_minimumAmbient);
}

void SkyNode::setDateTime(const DateTime& dateTime)
{
    _dateTime = dateTime;
    _sunPosition = computeSunPosition(dateTime);
    _sunDirectionUniform->set(osg::Vec3f(_sunPosition.direction));
    _starRotationUniform->set(detail::celestialToWorld(_sunPosition.greenwichSiderealTime));
    applySunToLight();
}

void SkyNode::applySunToLight()
{
    const osg::Vec3d& d = _sunPosition.direction;
    // w = 0: a direction, from which the light comes.
    _sunLight->setPosition(osg::Vec4(d.x(), d.y(), d.z(), 0.0));
}

void SkyNode::traverse(osg::NodeVisitor& nv)
{
    switch (nv.getVisitorType())
    {
    case osg::NodeVisitor::UPDATE_VISITOR:
        applySunToLight();
        osg::Group::traverse(nv);
        return;
    case osg::NodeVisitor::CULL_VISITOR:
        cullScenery(nv);
        for (unsigned int i = 0; i < getNumChildren(); ++i)
        {
            if (!isScenery(getChild(i)))
                getChild(i)->accept(nv);
        }
        return;
    default:
        // Space, the stars and the shell are scenery, not ground: pickers and
        // other visitors do not see them.
        for (unsigned int i = 0; i < getNumChildren(); ++i)
        {
            if (!isScenery(getChild(i)))
                getChild(i)->accept(nv);
        }
        return;
    }
}

bool SkyNode::isScenery(const osg::Node* child) const
{
    return child == _space.get() || child == _stars.get() || child == _atmosphere.get();
}

void SkyNode::cullScenery(osg::NodeVisitor& nv)
{
    osgUtil::CullVisitor* cv = nv.asCullVisitor();
    if (!cv || !cv->getProjectionMatrix() || !cv->getModelViewMatrix())
        return;
    // The backdrop belongs to the pass that clears the picture, or to the far
    // pass of a partition that clears depth only.
    osgUtil::RenderStage* stage = cv->getCurrentRenderStage();
    if (!stage || !paintsBackdrop(*stage))
        return;
    double left = 0.0, right = 0.0, bottom = 0.0, top = 0.0, zNear = 0.0, zFar = 0.0;
    if (!cv->getProjectionMatrix()->getFrustum(left, right, bottom, top, zNear, zFar) || !(zNear > 0.0))
        return; // orthographic: rays of the shader would be wrong
    const osg::Vec3d eye = osg::Matrixd::inverse(*cv->getModelViewMatrix()).getTrans();
    if (!eye.valid())
        return;

    // The camera's near/far computation must not see the scenery.
    const osg::CullSettings::ComputeNearFarMode mode = cv->getComputeNearFarMode();
    setComputeNearFarModeKeepingInheritance(*cv, osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    _space->accept(*cv);
    _stars->accept(*cv);
    _atmosphere->accept(*cv);
    setComputeNearFarModeKeepingInheritance(*cv, mode);
}

} // namespace globe
