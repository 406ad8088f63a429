#include "TerrainProgram.h"

#include "Atmosphere.h"

#include <osg/Shader>
#include <osg/Uniform>

#include <string>

namespace globe
{
namespace detail
{
namespace
{

// GLSL 1.20 with the compatibility built-ins: compiles on Mesa (4.5
// compatibility profile) and on ordinary desktop drivers.
//
// Lighting is what the fixed-function pipeline computed for the tiles: light
// 0 (a directional or positional light, no attenuation), the material's
// ambient and diffuse (the terrain's has no specular), the light model's
// ambient, per vertex, clamped; the texture modulated by it.
//
// The haze: the air between the eye and the vertex, as sea-level air, from
// the optical depth of an exponential atmosphere over a sphere (see
// kAirGlsl). Light is lost with it (blue most), and the air's own light
// takes its place: the daylight haze where the sun is up at the lower end,
// the dark of the night where it is down.
const char* const kVertexShaderBody = R"GLSL(
uniform mat4 osg_ViewMatrixInverse;
uniform vec3 globe_SunDirection;
uniform float globe_hazeDensity;
uniform float globe_hazeScaleHeight;
uniform vec3 globe_ellipsoidScale;
uniform float globe_equatorRadius;
varying vec4 globe_litColour;
varying vec3 globe_transmittance;
varying vec3 globe_inscatter;

vec4 lighting(vec4 eyePosition)
{
    vec3 normal = normalize(gl_NormalMatrix * gl_Normal);
    vec4 light = gl_LightSource[0].position;
    vec3 toLight = normalize(light.xyz * eyePosition.w - eyePosition.xyz * light.w);
    float diffuse = max(dot(normal, toLight), 0.0);
    vec4 colour = gl_FrontLightModelProduct.sceneColor + gl_FrontLightProduct[0].ambient
                + diffuse * gl_FrontLightProduct[0].diffuse;
    colour.a = gl_FrontMaterial.diffuse.a;
    return clamp(colour, 0.0, 1.0);
}

float heightOf(vec3 world)
{
    return (length(world * globe_ellipsoidScale) - 1.0) * globe_equatorRadius;
}

vec3 upAt(vec3 world)
{
    return normalize(world * globe_ellipsoidScale * globe_ellipsoidScale);
}

float airToSpace(vec3 p, vec3 direction)
{
    return globe_airToSpace(heightOf(p), dot(upAt(p), direction), globe_hazeScaleHeight, globe_equatorRadius);
}

void main()
{
    vec4 eyePosition = gl_ModelViewMatrix * gl_Vertex;
    gl_Position = ftransform();
    gl_TexCoord[0] = gl_TextureMatrix[0] * gl_MultiTexCoord0;
    globe_litColour = lighting(eyePosition);

    globe_transmittance = vec3(1.0);
    globe_inscatter = vec3(0.0);
    if (globe_hazeDensity > 0.0 && globe_hazeScaleHeight > 0.0 && globe_equatorRadius > 0.0)
    {
        vec3 vertexWorld = (osg_ViewMatrixInverse * eyePosition).xyz;
        vec3 eyeWorld = osg_ViewMatrixInverse[3].xyz;
        bool vertexLower = heightOf(vertexWorld) <= heightOf(eyeWorld);
        vec3 lower = vertexLower ? vertexWorld : eyeWorld;
        vec3 upper = vertexLower ? eyeWorld : vertexWorld;
        vec3 segment = upper - lower;
        float span = length(segment);
        if (span > 1.0)
        {
            vec3 direction = segment / span;
            float air = max(airToSpace(lower, direction) - airToSpace(upper, direction), 0.0);
            globe_transmittance = exp(-air * globe_hazeDensity * vec3(0.6, 0.75, 1.0));
            float day = smoothstep(-0.12, 0.15, dot(upAt(lower), globe_SunDirection));
            vec3 haze = mix(vec3(0.012, 0.015, 0.025), vec3(0.63, 0.74, 0.90), day);
            globe_inscatter = haze * (vec3(1.0) - globe_transmittance);
        }
    }
}
)GLSL";

const char* const kFragmentShader = R"GLSL(#version 120
uniform sampler2D globe_tileTexture;
varying vec4 globe_litColour;
varying vec3 globe_transmittance;
varying vec3 globe_inscatter;

void main()
{
    vec4 colour = texture2D(globe_tileTexture, gl_TexCoord[0].st) * globe_litColour;
    gl_FragColor = vec4(colour.rgb * globe_transmittance + globe_inscatter, colour.a);
}
)GLSL";

} // namespace

void applyTerrainProgram(osg::StateSet& stateSet, const osg::EllipsoidModel& ellipsoid)
{
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName(kTerrainProgramName);
    program->addShader(
        new osg::Shader(osg::Shader::VERTEX, std::string("#version 120\n") + kAirGlsl + kVertexShaderBody));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, kFragmentShader));
    stateSet.setAttributeAndModes(program.get(), osg::StateAttribute::ON);
    stateSet.addUniform(new osg::Uniform("globe_tileTexture", 0));
    const double a = ellipsoid.getRadiusEquator();
    const double b = ellipsoid.getRadiusPolar();
    stateSet.addUniform(new osg::Uniform("globe_ellipsoidScale", osg::Vec3f(1.0 / a, 1.0 / a, 1.0 / b)));
    stateSet.addUniform(new osg::Uniform("globe_equatorRadius", static_cast<float>(a)));
}

} // namespace detail
} // namespace globe
