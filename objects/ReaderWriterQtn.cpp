// The reader of the quadtree nodes' pseudo files: "<qtnID>.qtn" names one
// node of an enterprise's quadtree in the object store. The database pager
// reads the names on its own thread; the answer is a group holding a paged
// node for each child of the node (so that the tree pages on) and a model
// for each of its objects, with the object manager's wishes applied (hidden,
// edited, coloured, highlighted). The library registers the reader when it
// loads.

#include <objects/CObjManager>
#include <objects/IdText>

#include <viewer/CXViewer>

#include <osgDB/FileNameUtils>
#include <osgDB/ReaderWriter>
#include <osgDB/Registry>

#include <cerrno>
#include <cstdlib>

namespace OBJManage
{
namespace
{

// The node id of a pseudo-file name; false when it is not "<integer>.qtn".
bool qtnIdOf(const std::string& fileName, int& id)
{
    const std::string base = osgDB::getNameLessExtension(osgDB::getSimpleFileName(fileName));
    if (base.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(base.c_str(), &end, 10);
    if (*end != '\0' || errno == ERANGE || value < INT32_MIN || value > INT32_MAX)
        return false;
    id = static_cast<int>(value);
    return true;
}

// The model of one object, as the scene shows it now: the manager's lists
// decide whether it is hidden, moved, coloured or highlighted.
osg::ref_ptr<CModel> buildModel(DBManage::ShowObjProperty& record, int qtnID)
{
    globe::MapNode* mapNode = g_pCXviewer ? g_pCXviewer->mapNode.get() : nullptr;
    osg::ref_ptr<CModel> model = new CModel(mapNode, globe::Style());
    model->Init(&record);
    model->setQtnID(qtnID);

    CObjManager* manager = GetObjManager();
    if (manager->isHideObject(model->objID))
        model->SetObjVisible(false);
    modeData edit;
    if (manager->GetEditModelData(model->objID, edit))
        model->SetModelData(edit);
    const int id32 = record.objID;
    if (manager->isModelColor(id32))
        model->SetModelColor(1);
    if (manager->isModelHighlight(id32))
        model->SetModelHighLight(true);
    return model;
}

class ReaderWriterQtn : public osgDB::ReaderWriter
{
public:
    ReaderWriterQtn() { supportsExtension("qtn", "Quadtree nodes of the scene objects (pseudo files of the pager)"); }

    const char* className() const override { return "quadtree node reader"; }

    ReadResult readObject(const std::string& fileName, const Options* options) const override
    {
        return readNode(fileName, options);
    }

    ReadResult readNode(const std::string& fileName, const Options*) const override
    {
        if (!acceptsExtension(osgDB::getLowerCaseFileExtension(fileName)))
            return ReadResult::FILE_NOT_HANDLED;
        int qtnID = 0;
        if (!qtnIdOf(fileName, qtnID))
            return ReadResult("not a quadtree node name: " + fileName);

        // A node the store does not have, or one without children and
        // objects, is an empty group: the paged node has its answer and does
        // not ask again.
        osg::ref_ptr<osg::Group> group = new osg::Group;
        group->setName(osgDB::getSimpleFileName(fileName));
        DBManage::SQLiteDBManager* db = DBManage::getDBManger();
        osg::ref_ptr<DBManage::QuadTreeProperty> node = db->QuadTreeQueryInfo(qtnID);
        if (!node.valid())
            return group.release();

        if (!node->childIDs.empty())
        {
            for (int childID : childIdsOf(node->childIDs))
            {
                osg::ref_ptr<DBManage::QuadTreeProperty> child = db->QuadTreeQueryInfo(childID);
                if (child.valid())
                    group->addChild(Enterprise::createQtnNode(*child).get());
            }
        }
        for (const std::string& piece : splitIdList(node->objectIDs))
        {
            const int objID = static_cast<int>(std::strtoll(piece.c_str(), nullptr, 10));
            // Ids whose rows were deleted stand in the list all the same.
            osg::ref_ptr<DBManage::ShowObjProperty> record = db->ShowObjQueryInfo(objID);
            if (record.valid())
                group->addChild(buildModel(*record, qtnID).get());
        }
        return group.release();
    }
};

osgDB::RegisterReaderWriterProxy<ReaderWriterQtn> g_qtnReaderWriter;

} // namespace
} // namespace OBJManage
