// The table of the visible point cloud octree, written in two passes.
#include <pointcloud/pagelodVisitor>

#include <osg/Group>
#include <osg/Image>
#include <osg/StateSet>
#include <osg/Uniform>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <typeinfo>

namespace
{

const char* const kContentPrefix = "ARSCmark";
constexpr std::size_t kContentPrefixLength = 8;

bool hasContentPrefix(const std::string& name)
{
    return name.size() >= kContentPrefixLength && std::memcmp(name.data(), kContentPrefix, kContentPrefixLength) == 0;
}

// The octant number after the prefix, read the way atoi reads it: a missing
// or non-numeric suffix gives 0.
int octantNumber(const std::string& name)
{
    if (name.size() <= kContentPrefixLength)
        return 0;
    return std::atoi(name.c_str() + kContentPrefixLength);
}

// pow(2, number) truncated to an integer and cut to eight bits: octants 0 to
// 7 give their bit, any other number (8 and up, or negative) nothing.
unsigned char maskBit(int number)
{
    return number >= 0 && number < 8 ? static_cast<unsigned char>(1u << number) : 0;
}

// The node as a paged tile, or null. Tiles are plain osg::PagedLODs: their
// type is compared first, and only other nodes pay for a dynamic cast.
osg::PagedLOD* asPagedLOD(osg::Node* node)
{
    if (!node)
        return nullptr;
    if (typeid(*node) == typeid(osg::PagedLOD))
        return static_cast<osg::PagedLOD*>(node);
    return dynamic_cast<osg::PagedLOD*>(node);
}

// A new "vsnStart" uniform with `index`. It is copied from one made once, so
// that the name's lookup in the uniform registry is not paid per tile each
// cull; the copy has its own value.
osg::Uniform* newTableIndex(int index)
{
    static const osg::ref_ptr<const osg::Uniform> prototype = new osg::Uniform("vsnStart", 0);
    osg::Uniform* uniform = new osg::Uniform(*prototype, osg::CopyOp::SHALLOW_COPY);
    uniform->set(index);
    return uniform;
}

// The value of the content's "vsnStart", or false when it has none.
bool readTableIndex(const osg::Node& content, int& index)
{
    const osg::StateSet* state = content.getStateSet();
    static const std::string name("vsnStart");
    const osg::Uniform* uniform = state ? state->getUniform(name) : nullptr;
    const osg::IntArray* values = uniform ? uniform->getIntArray() : nullptr;
    if (!values || values->empty())
        return false;
    index = values->at(0);
    return true;
}

} // namespace

pagelodVisitor::pagelodVisitor(osg::Texture2D* texture_)
    : osg::NodeVisitor(osg::NodeVisitor::TRAVERSE_NONE),
      texture(texture_),
      tableData(nullptr),
      count_(0)
{
    if (texture && texture->getImage())
        tableData = texture->getImage()->data();
}

unsigned char* pagelodVisitor::record(int index, int byte) const
{
    if (!tableData || index < 0 || index >= tableSize)
        return nullptr;
    return tableData + 4 * index + byte;
}

void pagelodVisitor::apply(osg::PagedLOD& tile)
{
    const bool marked = tile.getNumChildren() >= 1 && tile.getChild(0) &&
                        hasContentPrefix(tile.getChild(0)->getName());
    if (marked)
    {
        if (osg::Transform* content = tile.getChild(0)->asTransform())
            content->getOrCreateStateSet()->addUniform(newTableIndex(count_), osg::StateAttribute::ON);
        else
            std::cout << "pagelod第一个子节点不为geode 000" << std::endl;

        // The next level counts only when this very cull selected it.
        const bool nextLevelVisible = tile.getNumChildren() == 2 && tile.getNumFrameNumbers() > 1 &&
                                      tile.getFrameNumber(1) == getTraversalNumber();
        if (nextLevelVisible)
        {
            osg::Group* nextLevel = tile.getChild(1) ? tile.getChild(1)->asGroup() : nullptr;
            if (!nextLevel)
            {
                std::cout << "pagelod最后一个子节点不为group节点" << std::endl;
            }
            else
            {
                for (unsigned int i = 0; i < nextLevel->getNumChildren(); ++i)
                {
                    osg::PagedLOD* child = asPagedLOD(nextLevel->getChild(i));
                    if (!child || child->getNumChildren() < 1 || !child->getChild(0))
                        continue;
                    osg::Transform* childContent = child->getChild(0)->asTransform();
                    if (!childContent)
                        continue;
                    // Added, not or-ed: the table has always been written so.
                    if (unsigned char* mask = record(count_, 0))
                        *mask = static_cast<unsigned char>(*mask + maskBit(octantNumber(childContent->getName())));
                    tileLists[0].push_back(child);
                    tileLists[1].push_back(childContent);
                }
            }
        }
    }
    ++count_;
}

void pagelodVisitor::apply(osg::Transform& content)
{
    int index = count_;
    if (!readTableIndex(content, index) || index != count_)
    {
        // A content transform that pass 1 did not number (the root's content
        // without the prefix) has no uniform; its own place stands in for it.
        std::cout << "count_与vsnStart不相等" << std::endl;
    }

    const unsigned char* mask = record(count_, 0);
    if (mask && *mask != 0 && content.getNumParents() > 0)
    {
        // The first listed child of this tile's visible next level.
        osg::PagedLOD* tile = asPagedLOD(content.getParent(0));
        osg::Group* nextLevel = (tile && tile->getNumChildren() == 2) ? tile->getChild(1)->asGroup() : nullptr;
        if (nextLevel)
        {
            for (unsigned int i = 0; i < nextLevel->getNumChildren(); ++i)
            {
                osg::PagedLOD* child = asPagedLOD(nextLevel->getChild(i));
                if (!child || child->getNumChildren() < 1 || !child->getChild(0))
                    continue;
                osg::Transform* childContent = child->getChild(0)->asTransform();
                if (!childContent)
                    continue;
                int firstChild = 0;
                if (readTableIndex(*childContent, firstChild))
                {
                    if (unsigned char* offset = record(count_, 1))
                        *offset = static_cast<unsigned char>(firstChild - index);
                }
                break;
            }
        }
    }
    ++count_;
}

void pagelodVisitor::writeTable(osg::PagedLOD& root, osg::Texture2D* texture, unsigned int traversalNumber)
{
    pagelodVisitor visitor(texture);
    visitor.setTraversalNumber(traversalNumber);
    if (osg::Transform* content = root.getNumChildren() && root.getChild(0) ? root.getChild(0)->asTransform() : nullptr)
        visitor.tileLists[1].push_back(content);

    // Pass 1, level by level: breadth-first numbering and the masks.
    visitor.apply(root);
    std::vector<osg::Node*> level;
    while (!visitor.tileLists[0].empty())
    {
        level.swap(visitor.tileLists[0]);
        visitor.tileLists[0].clear();
        for (osg::Node* tile : level)
            tile->accept(visitor);
        level.clear();
    }

    // Pass 2, in the same order: the first-child offsets.
    visitor.count_ = 0;
    for (osg::Node* content : visitor.tileLists[1])
        content->accept(visitor);
    visitor.tileLists[1].clear();
}
