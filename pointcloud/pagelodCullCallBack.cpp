// The per-cull work on each point cloud root: table, view uniforms, program.
#include <pointcloud/pagelodCullCallBack>

#include <pointcloud/PotreeProgram>
#include <pointcloud/pagelodVisitor>

#include <osg/ClipPlane>
#include <osg/CullStack>
#include <osg/FrameStamp>
#include <osg/Image>
#include <osg/PagedLOD>
#include <osg/StateSet>
#include <osg/Uniform>

#include <cmath>
#include <cstring>
#include <vector>

namespace
{

constexpr GLenum kVertexProgramPointSize = 0x8642;
constexpr GLenum kClipPlane0 = 0x3000;

bool isCloudRoot(osg::Node* node, osg::PagedLOD*& root)
{
    root = dynamic_cast<osg::PagedLOD*>(node);
    return root && root->getNumChildren() >= 1 && root->getName() == "PoRoot";
}

} // namespace

pagelodCullCallBack::pagelodCullCallBack()
    : program(nullptr)
{
}

pagelodCullCallBack::~pagelodCullCallBack() = default;

osg::Texture2D* pagelodCullCallBack::createTableTexture(int width)
{
    osg::ref_ptr<osg::Image> image = new osg::Image;
    unsigned char* pixels = new unsigned char[4 * width];
    std::memset(pixels, 0, 4 * static_cast<std::size_t>(width));
    image->setImage(width, 1, 1, GL_RGBA, GL_RGBA, GL_UNSIGNED_BYTE, pixels, osg::Image::USE_NEW_DELETE, 1, 0);

    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D(image.get());
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::REPEAT);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::REPEAT);
    return texture.release();
}

void pagelodCullCallBack::operator()(osg::Node* node, osg::NodeVisitor* nv)
{
    // 1. Spread to the children, those paged in since the last frame too.
    if (osg::Group* group = node->asGroup())
    {
        for (unsigned int i = 0; i < group->getNumChildren(); ++i)
            if (osg::Node* child = group->getChild(i))
                child->setCullCallback(this);
    }

    // 2. Cull the subtree first: the paged nodes' frame numbers below are then
    //    those of this cull, and what follows acts on this frame's draw.
    traverse(node, nv);

    // 3. Only cloud roots go on.
    osg::PagedLOD* root = nullptr;
    if (!isCloudRoot(node, root))
        return;
    osg::CullStack* cullStack = nv ? nv->asCullStack() : nullptr;
    if (!cullStack)
        return;

    // 4.-7. A fresh table of the visible octree, breadth first.
    osg::ref_ptr<osg::Texture2D> texture = createTableTexture(pagelodVisitor::tableSize);
    pagelodVisitor::writeTable(*root, texture.get(), nv->getFrameStamp() ? nv->getFrameStamp()->getFrameNumber() : 0);

    // 8. The table at unit 0.
    osg::StateSet* state = root->getOrCreateStateSet();
    state->setTextureAttribute(0, texture.get(), 0);
    state->addUniform(new osg::Uniform("visibleNodes", 0), osg::StateAttribute::ON);

    // 9.-10. The projection: two separate tests, the second wins when both hold.
    const osg::RefMatrix* projection = cullStack->getProjectionMatrix();
    const osg::Viewport* viewport = cullStack->getViewport();
    float projectionMode = -1.0f;
    double fovy = 0.0, aspect = 0.0, zNear = 0.0, zFar = 0.0;
    if (projection && projection->getPerspective(fovy, aspect, zNear, zFar))
    {
        projectionMode = 0.0f;
        const double slope = std::tan(fovy * 0.5 * 3.141592653589793 / 180.0);
        state->addUniform(new osg::Uniform("slope", static_cast<float>(slope)), osg::StateAttribute::ON);
    }
    double left = 0.0, right = 0.0, bottom = 0.0, top = 0.0;
    if (projection && projection->getOrtho(left, right, bottom, top, zNear, zFar))
    {
        projectionMode = 1.0f;
        state->addUniform(new osg::Uniform("orthoHeight", static_cast<float>(top)), osg::StateAttribute::ON);
    }

    // 11. Viewport height, projection mode, program, sized points.
    const float viewportHeight = viewport ? static_cast<float>(viewport->height()) : 0.0f;
    state->addUniform(new osg::Uniform("vHeight", viewportHeight), osg::StateAttribute::ON);
    state->addUniform(new osg::Uniform("projectionMode", projectionMode), osg::StateAttribute::ON);
    if (!program)
    {
        _programReference = createPotreeProgram();
        program = _programReference.get();
    }
    state->setAttributeAndModes(program, osg::StateAttribute::ON);
    state->setMode(kVertexProgramPointSize, osg::StateAttribute::ON);

    // 12. Clipping: only plane 0 and its mode are tested; whoever sets the
    //     first plane sets all four. A plane that is missing all the same is
    //     left out rather than read.
    osg::ref_ptr<osg::ClipPlane> planes[4];
    for (unsigned int member = 0; member < 4; ++member)
        planes[member] = dynamic_cast<osg::ClipPlane*>(state->getAttribute(osg::StateAttribute::CLIPPLANE, member));
    if (planes[0].valid() && state->getMode(kClipPlane0) == osg::StateAttribute::ON)
    {
        state->addUniform(new osg::Uniform("isClipPlane", 1.0f), osg::StateAttribute::ON);
        const char* names[4] = {"plane0", "plane1", "plane2", "plane3"};
        for (int i = 0; i < 4; ++i)
        {
            if (!planes[i].valid())
                continue;
            const osg::Vec4d plane = planes[i]->getClipPlane();
            state->addUniform(new osg::Uniform(names[i], osg::Vec4f(plane.x(), plane.y(), plane.z(), plane.w())),
                              osg::StateAttribute::ON);
        }
    }
    else
    {
        state->addUniform(new osg::Uniform("isClipPlane", 0.0f), osg::StateAttribute::ON);
    }
}
