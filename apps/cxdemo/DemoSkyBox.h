// The demo's sky box: an XSkyBox with the sample's cube map (BASE/skybox),
// turned to the local vertical under the eye and kept in the depth range of
// the pass that draws it.
#ifndef CXDEMO_DEMOSKYBOX_H
#define CXDEMO_DEMOSKYBOX_H

#include <osg/Node>
#include <osg/ref_ptr>

#include <string>

namespace cxdemo
{

/** The six faces posx, negx, posy, negy, posz, negz.png under `folder` on an
  * XSkyBox, which looks its cube map up by direction (a texture coordinate
  * generator on its sphere), under a frame that:
  * - turns the cube map's +Z to the vertical under the eye (east +X, north
  *   +Y), so that its horizon lies on the horizon;
  * - scales the sphere to lie between the near and far planes of the pass
  *   (its radius the geometric mean of the two), so that it is drawn
  *   whatever the planes are, and keeps it out of the planes' computation;
  * - leaves it out of a depth partition's near pass ("nearcamera"), which
  *   would paint it over what the far pass drew.
  * Null, with `message` saying why, when a face cannot be read. */
osg::ref_ptr<osg::Node> makeDemoSkyBox(const std::string& folder, std::string& message);

} // namespace cxdemo

#endif
