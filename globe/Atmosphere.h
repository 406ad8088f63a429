// What the sky's and the terrain's shaders share about the air: the names of
// the uniforms the sky sets on the camera of the view it is attached to
// (without a sky they are absent, zero, and the terrain draws without haze),
// and the GLSL of the amount of air along a ray.
#ifndef CXVIEWER_GLOBE_ATMOSPHERE_H
#define CXVIEWER_GLOBE_ATMOSPHERE_H

namespace globe
{
namespace detail
{

/** vec3: unit vector towards the sun, world (geocentric) coordinates. */
constexpr const char* kSunDirectionUniform = "globe_SunDirection";
/** float: extinction of the haze per metre at sea level; 0 turns it off. */
constexpr const char* kHazeDensityUniform = "globe_hazeDensity";
/** float: height in metres over which the haze thins by a factor e. */
constexpr const char* kHazeScaleHeightUniform = "globe_hazeScaleHeight";

/** Extinction of the haze at sea level: a visual range of about 120 km. */
constexpr double kHazeDensity = 1.0 / 120000.0;
/** The scale height of the air. */
constexpr double kHazeScaleHeight = 8000.0;

/** GLSL 1.20 functions, to be pasted into a shader after its #version line:
  *
  *   float globe_airToSpace(float h, float mu, float H, float R)
  *
  * the air (as a length at the density of height 0) along a straight ray
  * from height h, whose direction makes the cosine mu with the vertical, up
  * to space, over a sphere of radius R whose air thins by e every H of
  * height; lengths in any one unit. Heights along the ray grow as
  * s mu + s^2 / 2R, which makes the integral
  * exp(-h / H) sqrt(pi R H / 2) erfcx(mu sqrt(R / 2H)); erfcx(z) =
  * exp(z^2) erfc(z) is taken as 2 / (sqrt(pi) (z + sqrt(z^2 + 4 / pi))) for
  * z >= 0 (a few per cent off at most) and through erfcx(-z) =
  * 2 exp(z^2) - erfcx(z) below (z bounded at -3: a ray down to the ground at
  * grazing angles). The air of a segment is that beyond its start less that
  * beyond its end along the same direction; for a ray that first goes down,
  * then up past its lowest point, the negative branch gives twice the air
  * from the lowest point up, as it should. */
constexpr const char* kAirGlsl = R"GLSL(
float globe_erfcx(float z)
{
    float a = abs(z);
    float positive = 1.1283792 / (a + sqrt(a * a + 1.2732395));
    return z >= 0.0 ? positive : 2.0 * exp(a * a) - positive;
}

float globe_airToSpace(float h, float mu, float H, float R)
{
    float z = max(mu * sqrt(R / (2.0 * H)), -3.0);
    return exp(-max(h, 0.0) / H) * sqrt(1.5707963 * R * H) * globe_erfcx(z);
}
)GLSL";

} // namespace detail
} // namespace globe

#endif
