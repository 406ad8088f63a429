// The shader program of the terrain tiles: the fixed-function lighting and
// texturing they had (one light, per-vertex, the texture modulated by the lit
// colour), plus the haze of the air between the eye and the ground when a sky
// provides it (see Atmosphere.h).
#ifndef CXVIEWER_GLOBE_TERRAINPROGRAM_H
#define CXVIEWER_GLOBE_TERRAINPROGRAM_H

#include <osg/CoordinateSystemNode>
#include <osg/Program>
#include <osg/StateSet>

namespace globe
{
namespace detail
{

/** The program and the uniforms it needs besides the sky's (the texture
  * unit and the shape of `ellipsoid`), set on `stateSet`. */
void applyTerrainProgram(osg::StateSet& stateSet, const osg::EllipsoidModel& ellipsoid);

/** The program's name, to find it in a state set. */
constexpr const char* kTerrainProgramName = "globe terrain";

} // namespace detail
} // namespace globe

#endif
