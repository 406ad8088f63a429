// Pipes: one object is the run of a main along one street between two
// crossings, laid a little above the ground so that it shows from above. A run
// lies along the model's y axis, centred on the origin, with a joint at each
// end where it meets the next run; the fine and middle levels add couplings
// along it and service connections that branch off to the side and go down to
// the ground. The levels differ in how finely the round shapes are made.
#ifndef CXSAMPLE_PIPEMODELS_H
#define CXSAMPLE_PIPEMODELS_H

#include "Model.h"

#include <osg/Node>
#include <osg/Vec4>

#include <string>
#include <vector>

namespace cxsample
{

enum class PipeClass
{
    Water,
    Gas,
    Heat
};

const char* pipeClassChinese(PipeClass pipeClass);
const char* pipeClassEnglish(PipeClass pipeClass);
/** Water blue, gas yellow, heat red. */
osg::Vec4 pipeColour(PipeClass pipeClass);

struct PipeRunDesign
{
    std::string stem;
    PipeClass pipeClass = PipeClass::Water;
    double length = 100.0;  // along y, metres
    double diameter = 0.6;
    double laying = 0.6;    // height of the axis over the ground
    int lines = 1;          // heat has supply and return side by side
    double spacing = 1.0;   // between the lines
    double couplingInterval = 12.0;
    std::vector<double> services; // positions along y of service connections
    double serviceLength = 5.0;   // how far they reach to the side
    double serviceSide = -1.0;    // to which side: -1 towards -x, 1 towards +x
};

/** Facets around a pipe at each level. */
int pipeSides(Lod lod);

/** The design of a run of `pipeClass` of `length` metres whose services
 *  branch off to `serviceSide`. */
PipeRunDesign pipeRunDesign(PipeClass pipeClass, double length, double serviceSide, const std::string& stem);

osg::ref_ptr<osg::Node> pipeModel(const PipeRunDesign& design, Lod lod);

} // namespace cxsample

#endif
