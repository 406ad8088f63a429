#include "SkyScenery.h"

#include <osg/Depth>
#include <osg/Geometry>
#include <osg/Math>
#include <osg/Program>
#include <osg/Shader>

#include <algorithm>
#include <cmath>
#include <random>

namespace globe
{
namespace detail
{
namespace
{

// The faintest and the brightest magnitude of the field.
constexpr double kFaintest = 6.5;
constexpr double kBrightest = -1.5;

const char* const kSpaceVertexShader = R"GLSL(#version 120
void main()
{
    gl_Position = vec4(gl_Vertex.xy, 1.0, 1.0);
}
)GLSL";

const char* const kSpaceFragmentShader = R"GLSL(#version 120
uniform vec4 globe_spaceColour;
void main()
{
    gl_FragColor = globe_spaceColour;
}
)GLSL";

// A star is a direction: only the rotation of the view applies to it, and
// it lies at the back of the depth range (z = w).
const char* const kStarVertexShader = R"GLSL(#version 120
uniform mat4 globe_starRotation;
void main()
{
    vec3 direction = (globe_starRotation * vec4(gl_Vertex.xyz, 0.0)).xyz;
    vec4 clip = gl_ProjectionMatrix * vec4(mat3(gl_ModelViewMatrix) * direction, 0.0);
    clip.z = clip.w;
    gl_Position = clip;
    gl_PointSize = gl_MultiTexCoord0.x;
    gl_FrontColor = gl_Color;
}
)GLSL";

const char* const kStarFragmentShader = R"GLSL(#version 120
void main()
{
    gl_FragColor = gl_Color;
}
)GLSL";

// Scenery: behind the scene, never culled.
void makeScenery(osg::Geode& geode, osg::Geometry& geometry, const char* name, const char* vertexShader,
                 const char* fragmentShader, int bin)
{
    geometry.setName(name);
    geometry.setUseDisplayList(false);
    geometry.setUseVertexBufferObjects(true);
    geometry.setCullingActive(false);
    geode.setName(name);
    geode.setCullingActive(false);
    geode.addDrawable(&geometry);

    osg::StateSet* ss = geode.getOrCreateStateSet();
    auto* program = new osg::Program;
    program->setName(std::string("globe ") + name);
    program->addShader(new osg::Shader(osg::Shader::VERTEX, vertexShader));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, fragmentShader));
    ss->setAttributeAndModes(program, osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    ss->setMode(GL_BLEND, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    setBehindTheScene(*ss, bin);
}

} // namespace

void setBehindTheScene(osg::StateSet& ss, int bin)
{
    ss.setMode(GL_DEPTH_TEST, osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    ss.setAttribute(new osg::Depth(osg::Depth::LEQUAL, 0.0, 1.0, false),
                    osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    ss.setMode(GL_LIGHTING, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    ss.setMode(GL_CULL_FACE, osg::StateAttribute::OFF | osg::StateAttribute::PROTECTED);
    ss.setRenderBinDetails(bin, "RenderBin");
}

osg::Geode* createSpace()
{
    auto* vertices = new osg::Vec3Array;
    for (const osg::Vec3& corner : {osg::Vec3(-1, -1, 0), osg::Vec3(1, -1, 0), osg::Vec3(1, 1, 0), osg::Vec3(-1, 1, 0)})
        vertices->push_back(corner);
    auto* geometry = new osg::Geometry;
    geometry->setVertexArray(vertices);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLE_FAN, 0, 4));
    auto* geode = new osg::Geode;
    makeScenery(*geode, *geometry, "space", kSpaceVertexShader, kSpaceFragmentShader, kSpaceBin);
    geode->getStateSet()->addUniform(new osg::Uniform("globe_spaceColour", kSpaceColour));
    return geode;
}

osg::Geode* createStars(unsigned int count, unsigned int seed, osg::Uniform* rotation)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    auto* directions = new osg::Vec3Array;
    auto* colours = new osg::Vec4Array;
    auto* sizes = new osg::Vec2Array;
    directions->reserve(count);
    colours->reserve(count);
    sizes->reserve(count);
    for (unsigned int i = 0; i < count; ++i)
    {
        // Evenly over the sphere: uniform in z and in the angle about it.
        const double z = 2.0 * unit(random) - 1.0;
        const double angle = 2.0 * osg::PI * unit(random);
        const double r = std::sqrt(std::max(0.0, 1.0 - z * z));
        directions->push_back(osg::Vec3(r * std::cos(angle), r * std::sin(angle), z));

        // P(brighter than m) = 10^((m - 6.5) / 2): about three times as many
        // stars each magnitude fainter.
        const double magnitude =
            std::max(kBrightest, kFaintest + 2.0 * std::log10(std::max(unit(random), 1e-9)));
        const double shine = std::clamp((kFaintest - magnitude) / 5.0, 0.0, 1.0);
        const float intensity = static_cast<float>(0.3 + 0.7 * shine);
        // Most stars look white; some bluish, some yellowish.
        const double warmth = unit(random);
        const double tint = warmth * warmth * (warmth < 0.5 ? -1.0 : 1.0);
        const osg::Vec3 cool(0.78f, 0.85f, 1.0f), warm(1.0f, 0.88f, 0.7f), white(1.0f, 1.0f, 1.0f);
        const osg::Vec3 colour = tint < 0.0 ? white + (cool - white) * static_cast<float>(-tint)
                                            : white + (warm - white) * static_cast<float>(tint);
        colours->push_back(osg::Vec4(colour * intensity, 1.0f));
        sizes->push_back(osg::Vec2(magnitude < 0.5 ? 3.0f : magnitude < 2.5 ? 2.0f : 1.0f, 0.0f));
    }
    auto* geometry = new osg::Geometry;
    geometry->setVertexArray(directions);
    geometry->setColorArray(colours, osg::Array::BIND_PER_VERTEX);
    geometry->setTexCoordArray(0, sizes, osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, static_cast<GLsizei>(count)));
    auto* geode = new osg::Geode;
    makeScenery(*geode, *geometry, "stars", kStarVertexShader, kStarFragmentShader, kStarBin);
    osg::StateSet* ss = geode->getStateSet();
    ss->setMode(GL_VERTEX_PROGRAM_POINT_SIZE, osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    if (rotation)
        ss->addUniform(rotation);
    return geode;
}

osg::Matrixf celestialToWorld(double greenwichSiderealTimeDegrees)
{
    // Row vectors: v_world = v_equatorial * R turns by -GMST about z.
    return osg::Matrixf::rotate(-osg::DegreesToRadians(greenwichSiderealTimeDegrees), osg::Vec3f(0.0f, 0.0f, 1.0f));
}

} // namespace detail
} // namespace globe
