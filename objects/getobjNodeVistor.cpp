#include <objects/getobjNodeVistor>

namespace OBJManage
{

getobjNodeVistor::getobjNodeVistor(std::int64_t objID)
    : osg::NodeVisitor(osg::NodeVisitor::TRAVERSE_ALL_CHILDREN), wantedID(objID)
{
}

void getobjNodeVistor::apply(osg::Group& group)
{
    search(group);
}

void getobjNodeVistor::apply(osg::PagedLOD& plod)
{
    search(plod);
}

void getobjNodeVistor::search(osg::Group& group)
{
    for (unsigned int i = 0; i < group.getNumChildren(); ++i)
    {
        osg::Node* child = group.getChild(i);
        auto* model = dynamic_cast<CModel*>(child);
        if (model && model->objID == wantedID)
        {
            foundModel = model;
            break;
        }
        traverse(*child);
    }
}

} // namespace OBJManage
