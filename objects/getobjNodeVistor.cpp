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
        if (auto* model = dynamic_cast<CModel*>(child))
        {
            if (model->objID == wantedID)
            {
                foundModel = model;
                break;
            }
            // Below a model lie only its own files, never another model:
            // the walk spares them, most of a scene of many loaded models.
            continue;
        }
        traverse(*child);
    }
}

} // namespace OBJManage
