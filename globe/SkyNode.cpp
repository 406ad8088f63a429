#include <globe/SkyNode>
#include <globe/FindTopMostNodeOfTypeVisitor>

#include <osg/BlendFunc>
#include <osg/CullFace>
#include <osg/Depth>
#include <osg/Geometry>
#include <osg/Program>
#include <osg/Shader>
#include <osgUtil/CullVisitor>
#include <osgUtil/RenderStage>

#include <algorithm>
#include <cmath>

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
// Drawn before everything else.
constexpr int kAtmosphereBin = -10;

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

// GLSL 1.20 with the compatibility built-ins: compiles on Mesa (4.5
// compatibility profile) and on ordinary desktop drivers. Positions are
// carried in a space where the ellipsoid is the unit sphere (x and y divided
// by the equatorial radius, z by the polar one).
const char* const kVertexShader = R"GLSL(#version 120
uniform vec3 globe_ellipsoidScale;
varying vec3 globe_eye;
varying vec3 globe_ray;
void main()
{
    vec3 eye = (gl_ModelViewMatrixInverse * vec4(0.0, 0.0, 0.0, 1.0)).xyz;
    globe_eye = eye * globe_ellipsoidScale;
    globe_ray = (gl_Vertex.xyz - eye) * globe_ellipsoidScale;
    gl_Position = gl_ModelViewProjectionMatrix * gl_Vertex;
}
)GLSL";

// Single scattering along the view ray through the shell: density falls off
// exponentially with altitude and reaches zero at the top; each sample is lit
// by the sun (soft terminator) but never less than the minimum ambient; the
// Rayleigh phase and a 1/lambda^4 colour; exposure maps the sum into [0, 1).
const char* const kFragmentShader = R"GLSL(#version 120
uniform vec3 globe_SunDirection;
uniform vec4 globe_MinimumAmbient;
uniform float globe_shellRadius;
uniform float globe_scaleHeight;
uniform float globe_exposure;
varying vec3 globe_eye;
varying vec3 globe_ray;

float density(float r)
{
    float top = exp(-(globe_shellRadius - 1.0) / globe_scaleHeight);
    return max((exp(-(r - 1.0) / globe_scaleHeight) - top) / (1.0 - top), 0.0);
}

// Integral of density times light from ta to tb, samples crowded near ta
// (where the ray runs lowest).
float column(vec3 o, vec3 d, float ta, float tb, float ambient)
{
    float len = tb - ta;
    float sum = 0.0;
    for (int i = 0; i < 8; ++i)
    {
        float u0 = float(i) / 8.0;
        float u1 = float(i + 1) / 8.0;
        float um = 0.5 * (u0 + u1);
        vec3 p = o + d * (ta + len * um * um);
        float r = length(p);
        float lit = max(smoothstep(-0.15, 0.2, dot(p / r, globe_SunDirection)), ambient);
        sum += density(r) * lit * abs(len) * (u1 * u1 - u0 * u0);
    }
    return sum;
}

void main()
{
    vec3 d = normalize(globe_ray);
    vec3 o = globe_eye;
    float b = dot(o, d);
    float oo = dot(o, o);
    float disc = b * b - (oo - globe_shellRadius * globe_shellRadius);
    if (disc <= 0.0)
        discard;
    float s = sqrt(disc);
    float t1 = -b + s;
    if (t1 <= 0.0)
        discard;
    float t0 = max(-b - s, 0.0);
    // A ray that meets the globe ends there: the air in front of the ground
    // (usually hidden by the terrain drawn over it).
    float discGlobe = b * b - (oo - 1.0);
    if (oo > 1.0 && discGlobe > 0.0)
    {
        float tGlobe = -b - sqrt(discGlobe);
        if (tGlobe > 0.0)
            t1 = min(t1, tGlobe);
    }
    float ambient = max(globe_MinimumAmbient.r, max(globe_MinimumAmbient.g, globe_MinimumAmbient.b));
    float tc = clamp(-b, t0, t1);
    float depth = column(o, d, tc, t1, ambient) + column(o, d, tc, t0, ambient);
    float mu = dot(d, globe_SunDirection);
    float phase = 0.75 * (1.0 + mu * mu);
    vec3 colour = vec3(1.0) - exp(-depth * phase * globe_exposure * vec3(0.175, 0.41, 1.0));
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
    // A copy is a sky of its own: its own shell, light and uniforms.
    setName(rhs.getName());
    setNodeMask(rhs.getNodeMask());
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
    _sunDirectionUniform = new osg::Uniform("globe_SunDirection", osg::Vec3f(0.0f, 0.0f, 1.0f));
    _sunDirectionUniform->setDataVariance(osg::Object::DYNAMIC);

    _atmosphere = new osg::Geode;
    _atmosphere->setName("atmosphere");
    _atmosphere->addDrawable(makeShell(*_ellipsoid, top));

    osg::StateSet* ss = _atmosphere->getOrCreateStateSet();
    auto* program = new osg::Program;
    program->setName("globe atmosphere");
    program->addShader(new osg::Shader(osg::Shader::VERTEX, kVertexShader));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, kFragmentShader));
    ss->setAttributeAndModes(program, osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    ss->addUniform(new osg::Uniform("globe_ellipsoidScale", osg::Vec3f(1.0 / a, 1.0 / a, 1.0 / b)));
    ss->addUniform(new osg::Uniform("globe_shellRadius", static_cast<float>(1.0 + top / a)));
    ss->addUniform(new osg::Uniform("globe_scaleHeight", static_cast<float>(scaleHeight)));
    ss->addUniform(new osg::Uniform("globe_exposure", static_cast<float>(kZenithDepth / scaleHeight)));
    ss->addUniform(_sunDirectionUniform.get());
    ss->addUniform(_minimumAmbientUniform.get());
    // The inner side only: around the globe from space, the dome from inside.
    ss->setAttributeAndModes(new osg::CullFace(osg::CullFace::FRONT),
                             osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    // A backdrop: drawn first, tested against nothing, hiding nothing.
    ss->setMode(GL_DEPTH_TEST, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    ss->setAttribute(new osg::Depth(osg::Depth::ALWAYS, 0.0, 1.0, false),
                     osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    ss->setAttributeAndModes(new osg::BlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA),
                             osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    ss->setMode(GL_LIGHTING, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    ss->setRenderBinDetails(kAtmosphereBin, "RenderBin");

    removeChildren(0, getNumChildren());
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
        for (unsigned int i = 0; i < getNumChildren(); ++i)
        {
            if (getChild(i) == _atmosphere.get())
                cullAtmosphere(nv);
            else
                getChild(i)->accept(nv);
        }
        return;
    default:
        // The shell is scenery, not ground: pickers and other visitors
        // do not see it.
        for (unsigned int i = 0; i < getNumChildren(); ++i)
        {
            if (getChild(i) != _atmosphere.get())
                getChild(i)->accept(nv);
        }
        return;
    }
}

void SkyNode::cullAtmosphere(osg::NodeVisitor& nv)
{
    osgUtil::CullVisitor* cv = nv.asCullVisitor();
    if (!cv || !cv->getProjectionMatrix() || !cv->getModelViewMatrix())
        return;
    // The backdrop belongs to the pass that clears the picture.
    osgUtil::RenderStage* stage = cv->getCurrentRenderStage();
    if (!stage || (stage->getClearMask() & GL_COLOR_BUFFER_BIT) == 0)
        return;
    double left = 0.0, right = 0.0, bottom = 0.0, top = 0.0, zNear = 0.0, zFar = 0.0;
    if (!cv->getProjectionMatrix()->getFrustum(left, right, bottom, top, zNear, zFar) || !(zNear > 0.0))
        return; // orthographic: rays of the shader would be wrong

    const osg::Vec3d eye = osg::Matrixd::inverse(*cv->getModelViewMatrix()).getTrans();
    double lat = 0.0, lon = 0.0, height = 0.0;
    _ellipsoid->convertXYZToLatLongHeight(eye.x(), eye.y(), eye.z(), lat, lon, height);
    if (!std::isfinite(height) || !std::isfinite(eye.length()))
        return;

    // Near and far planes of the shell alone: the shell's facets lie up to
    // about a kilometre inside the true shell, hence the margin.
    const double shellTop = atmosphereHeight(*_ellipsoid);
    const double farPlane = (eye.length() + _ellipsoid->getRadiusEquator() + shellTop) * 1.01;
    double nearPlane = std::max(1.0, 0.5 * (std::fabs(height - shellTop) - 2000.0));
    if (nearPlane >= farPlane)
        nearPlane = farPlane * 1.0e-3;
    const double scale = nearPlane / zNear;
    osg::ref_ptr<osg::RefMatrix> projection = new osg::RefMatrix;
    projection->makeFrustum(left * scale, right * scale, bottom * scale, top * scale, nearPlane, farPlane);

    // The camera's near/far computation must not see the shell.
    const osg::CullSettings::ComputeNearFarMode mode = cv->getComputeNearFarMode();
    setComputeNearFarModeKeepingInheritance(*cv, osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    cv->pushProjectionMatrix(projection.get());
    _atmosphere->accept(*cv);
    cv->popProjectionMatrix();
    setComputeNearFarModeKeepingInheritance(*cv, mode);
}

} // namespace globe
