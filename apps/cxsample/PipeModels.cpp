#include "PipeModels.h"

#include "MeshBuilder.h"

#include <algorithm>
#include <cmath>

namespace cxsample
{

namespace
{

osg::Vec4 scaled(const osg::Vec4& colour, float factor)
{
    return osg::Vec4(colour.r() * factor, colour.g() * factor, colour.b() * factor, colour.a());
}

int jointSides(Lod lod)
{
    switch (lod)
    {
    case Lod::Fine:
        return 16;
    case Lod::Middle:
        return 10;
    case Lod::Crude:
        return 6;
    case Lod::Crude2:
        return 4;
    }
    return 4;
}

} // namespace

const char* pipeClassChinese(PipeClass pipeClass)
{
    switch (pipeClass)
    {
    case PipeClass::Water:
        return "给水管";
    case PipeClass::Gas:
        return "燃气管";
    case PipeClass::Heat:
        return "热力管";
    }
    return "管线";
}

const char* pipeClassEnglish(PipeClass pipeClass)
{
    switch (pipeClass)
    {
    case PipeClass::Water:
        return "Water Main";
    case PipeClass::Gas:
        return "Gas Main";
    case PipeClass::Heat:
        return "Heat Main";
    }
    return "Pipe";
}

osg::Vec4 pipeColour(PipeClass pipeClass)
{
    switch (pipeClass)
    {
    case PipeClass::Water:
        return osg::Vec4(0.12f, 0.4f, 0.9f, 1.0f);
    case PipeClass::Gas:
        return osg::Vec4(0.96f, 0.8f, 0.1f, 1.0f);
    case PipeClass::Heat:
        return osg::Vec4(0.88f, 0.15f, 0.1f, 1.0f);
    }
    return osg::Vec4(0.5f, 0.5f, 0.5f, 1.0f);
}

int pipeSides(Lod lod)
{
    switch (lod)
    {
    case Lod::Fine:
        return 24;
    case Lod::Middle:
        return 12;
    case Lod::Crude:
        return 6;
    case Lod::Crude2:
        return 4;
    }
    return 4;
}

PipeRunDesign pipeRunDesign(PipeClass pipeClass, double length, double serviceSide, const std::string& stem)
{
    PipeRunDesign d;
    d.stem = stem;
    d.serviceSide = serviceSide < 0.0 ? -1.0 : 1.0;
    d.pipeClass = pipeClass;
    d.length = length;
    switch (pipeClass)
    {
    case PipeClass::Water:
        d.diameter = 0.6;
        d.laying = 0.6;
        d.serviceLength = 5.0;
        break;
    case PipeClass::Gas:
        d.diameter = 0.4;
        d.laying = 1.3;
        d.serviceLength = 4.0;
        break;
    case PipeClass::Heat:
        d.diameter = 0.5;
        d.laying = 2.0;
        d.lines = 2;
        d.spacing = 1.0;
        d.serviceLength = 3.0;
        break;
    }
    // Services every 40 m or so, clear of the crossings.
    const int count = std::max(1, static_cast<int>(length / 40.0));
    for (int i = 0; i < count; ++i)
        d.services.push_back(-length / 2 + length * (i + 0.5) / count);
    return d;
}

osg::ref_ptr<osg::Node> pipeModel(const PipeRunDesign& design, Lod lod)
{
    const int sides = pipeSides(lod);
    const int jointFacets = jointSides(lod);
    const bool details = lod == Lod::Fine || lod == Lod::Middle;
    const float radius = static_cast<float>(design.diameter / 2);
    const float half = static_cast<float>(design.length / 2);
    const float z = static_cast<float>(design.laying);
    const osg::Vec4 colour = pipeColour(design.pipeClass);
    const osg::Vec4 fittings = scaled(colour, 0.72f);

    MeshBuilder mesh;
    for (int line = 0; line < design.lines; ++line)
    {
        const float x = static_cast<float>((line - 0.5 * (design.lines - 1)) * design.spacing);
        const osg::Vec3 start(x, -half, z), end(x, half, z);
        mesh.cylinder(start, end, radius, sides, colour);
        mesh.sphere(start, radius * 1.35f, jointFacets, fittings);
        mesh.sphere(end, radius * 1.35f, jointFacets, fittings);
        if (!details)
            continue;

        // Couplings: short sleeves along the run, closed at their ends.
        const float sleeve = radius * 1.18f;
        const int couplings = static_cast<int>(design.length / design.couplingInterval);
        for (int i = 1; i < couplings; ++i)
        {
            const float y = -half + static_cast<float>(design.length * i / couplings);
            mesh.cylinder(osg::Vec3(x, y - 0.25f, z), osg::Vec3(x, y + 0.25f, z), sleeve, sides, fittings);
            mesh.disc(osg::Vec3(x, y - 0.25f, z), osg::Vec3(0.0f, -1.0f, 0.0f), sleeve, sides, fittings);
            mesh.disc(osg::Vec3(x, y + 0.25f, z), osg::Vec3(0.0f, 1.0f, 0.0f), sleeve, sides, fittings);
        }

        // Service connections from the line on the services' side: a branch
        // to the side, an elbow and a riser down into the ground.
        if (line != (design.serviceSide < 0.0 ? 0 : design.lines - 1))
            continue;
        const float branch = radius * 0.45f;
        const int branchSides = std::max(4, sides / 2);
        for (double position : design.services)
        {
            const float y = static_cast<float>(position);
            const osg::Vec3 tee(x, y, z);
            const osg::Vec3 elbow(x + static_cast<float>(design.serviceSide * design.serviceLength), y, z);
            mesh.cylinder(tee, elbow, branch, branchSides, colour);
            mesh.sphere(elbow, branch * 1.3f, std::max(4, jointFacets / 2), fittings);
            mesh.cylinder(elbow, osg::Vec3(elbow.x(), y, -0.5f), branch, branchSides, colour);
            // A valve on the branch.
            const osg::Vec3 valve = (tee + elbow) * 0.5f;
            mesh.cylinder(valve - osg::Vec3(0.15f, 0.0f, 0.0f), valve + osg::Vec3(0.15f, 0.0f, 0.0f), branch * 1.5f,
                          branchSides, fittings);
            mesh.cylinder(valve, valve + osg::Vec3(0.0f, 0.0f, branch * 2.5f), branch * 0.3f, 4, fittings);
        }
    }
    ModelAssembly model;
    model.add("pipe", mesh);
    return model.node(design.stem + "_" + lodWord(lod));
}

} // namespace cxsample
