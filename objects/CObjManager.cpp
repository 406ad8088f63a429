#include <objects/CObjManager>
#include <objects/IdText>
#include <objects/getobjNodeVistor>

#include <viewer/CXViewer>

#include <algorithm>
#include <cstdint>

namespace OBJManage
{

namespace
{

// The 32-bit id the data library takes.
int low32(std::int64_t id)
{
    return static_cast<int>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(id)));
}

// Whether p lies in the cell of centre c, width w and height h (both ends
// inclusive, z ignored).
bool inCell(const osg::Vec3d& p, const osg::Vec3d& c, double w, double h)
{
    return p.x() >= c.x() - w / 2.0 && p.x() <= c.x() + w / 2.0 && p.y() >= c.y() - h / 2.0
           && p.y() <= c.y() + h / 2.0;
}

} // namespace

CObjManager::CObjManager() = default;

CObjManager::CObjManager(const CObjManager& rhs) : osg::Referenced(rhs)
{
    *this = rhs;
}

CObjManager& CObjManager::operator=(const CObjManager& rhs)
{
    if (this == &rhs)
        return *this;
    osg::Referenced::operator=(rhs);
    reservedMap = rhs.reservedMap;
    enterpriseMap = rhs.enterpriseMap;
    buildingGroup = rhs.buildingGroup;
    pipeGroup = rhs.pipeGroup;
    terrainGroup = rhs.terrainGroup;
    qtnEnterVec = rhs.qtnEnterVec;
    std::scoped_lock lock(_listMutex, rhs._listMutex);
    editList = rhs.editList;
    hideList = rhs.hideList;
    highlightList = rhs.highlightList;
    colorList = rhs.colorList;
    enterIDMap = rhs.enterIDMap;
    return *this;
}

CObjManager::~CObjManager() = default;

// ---------------------------------------------------------------------------
// Life and lookup

void CObjManager::Init(std::string path)
{
    DBManage::getDBManger()->ReadSQLiteDBFile(path);
    CXViewer* viewer = g_pCXviewer;
    if (viewer)
    {
        buildingGroup = viewer->getBuilding();
        pipeGroup = viewer->getPipeGroup();
        terrainGroup = viewer->getTerrain();
    }
    DBManage::getDBManger()->ReadEnterProperty();
    const std::vector<osg::ref_ptr<DBManage::EnterProperty>> records = DBManage::getDBManger()->enterprises;
    for (const osg::ref_ptr<DBManage::EnterProperty>& record : records)
    {
        if (!record.valid())
            continue;
        enterIDMap[record->enterID] = record->enterType;
        osg::ref_ptr<Enterprise> enterprise = new Enterprise;
        enterpriseMap[record->enterID] = enterprise;
        if (!enterprise->Init(record.get()))
            continue;
        osg::Group* group = enterprise->enterType == 0   ? buildingGroup.get()
                            : enterprise->enterType == 1 ? terrainGroup.get()
                                                         : pipeGroup.get();
        if (group)
            group->addChild(enterprise->enterNode.get());
    }
}

void CObjManager::Release()
{
    for (osg::ref_ptr<osg::Group>* group : {&buildingGroup, &terrainGroup, &pipeGroup})
    {
        if (group->valid())
            (*group)->removeChildren(0, (*group)->getNumChildren());
    }
    buildingGroup = nullptr;
    terrainGroup = nullptr;
    pipeGroup = nullptr;
}

CModel* CObjManager::GetObj(std::int64_t objID)
{
    if (!g_pCXviewer || !g_pCXviewer->getRoot())
        return nullptr;
    getobjNodeVistor visitor(objID);
    g_pCXviewer->getRoot()->accept(visitor);
    return visitor.foundModel;
}

// ---------------------------------------------------------------------------
// Scene tree membership

CModel* CObjManager::AddObjToSceneTree(DBManage::ShowObjProperty* property)
{
    DBManage::SQLiteDBManager* db = DBManage::getDBManger();
    const osg::Vec3d p(property->posX, property->posY, property->posZ);
    const double size = 2.0 * property->radius;
    osg::ref_ptr<DBManage::EnterProperty> enterprise = db->EnterQueryInfo(property->enterID);
    if (!enterprise.valid())
        return nullptr;

    // Down the tree while a child's cell holds the object.
    osg::ref_ptr<DBManage::QuadTreeProperty> node = db->QuadTreeQueryInfo(enterprise->rootQtnID);
    bool noChildFits = false;
    while (node.valid())
    {
        const double w = node->width;
        const osg::Vec3d c = parseCenterText(node->centerText);
        // The size in metres is compared with the width in degrees as they
        // stand.
        if (!inCell(p, c, w, w) || noChildFits || 2.0 * size > w || node->childIDs.empty())
            break;
        osg::ref_ptr<DBManage::QuadTreeProperty> fitting;
        for (int id : childIdsOf(node->childIDs))
        {
            osg::ref_ptr<DBManage::QuadTreeProperty> child = db->QuadTreeQueryInfo(id);
            if (child.valid() && inCell(p, parseCenterText(child->centerText), child->width, child->height))
            {
                fitting = child;
                break;
            }
        }
        if (fitting.valid())
            node = fitting;
        else
            noChildFits = true;
    }
    if (!node.valid())
        return nullptr;

    const std::string id = std::to_string(property->objID);
    node->objectIDs = node->objectIDs.empty() ? id : node->objectIDs + "," + id;
    db->QuadTreeUpdateInfo(node.get());

    globe::MapNode* mapNode = g_pCXviewer ? g_pCXviewer->mapNode.get() : nullptr;
    osg::ref_ptr<CModel> model = new CModel(mapNode, globe::Style(""));
    model->Init(property);
    auto owner = enterpriseMap.find(property->enterID);
    if (owner != enterpriseMap.end() && owner->second.valid() && owner->second->enterNode.valid())
        owner->second->enterNode->addChild(model.get());
    model->setQtnID(node->qtnID);
    return nullptr;
}

bool CObjManager::AddObjToSceneTreeRoot(DBManage::ShowObjProperty* property)
{
    DBManage::SQLiteDBManager* db = DBManage::getDBManger();
    osg::ref_ptr<DBManage::EnterProperty> enterprise = db->EnterQueryInfo(property->enterID);
    if (!enterprise.valid())
        return false;
    osg::ref_ptr<DBManage::QuadTreeProperty> root = db->QuadTreeQueryInfo(enterprise->rootQtnID);
    if (!root.valid())
        return false;
    // Always a comma first: an empty list then begins with one, which the
    // readers skip.
    root->objectIDs += "," + std::to_string(property->objID);
    return db->QuadTreeUpdateInfo(root.get());
}

void CObjManager::DelObjFromSceneTree(std::int64_t objID)
{
    DBManage::SQLiteDBManager* db = DBManage::getDBManger();
    osg::ref_ptr<DBManage::ShowObjProperty> held = db->ShowObjQueryInfo(low32(objID));
    db->ShowObjDelInfo(low32(objID));
}

void CObjManager::DelObjFromSceneTree(std::int64_t objID, std::int64_t qtnID)
{
    DBManage::SQLiteDBManager* db = DBManage::getDBManger();
    osg::ref_ptr<DBManage::ShowObjProperty> held = db->ShowObjQueryInfo(low32(objID));
    db->ShowObjDelInfo(low32(objID));
    osg::ref_ptr<DBManage::QuadTreeProperty> node = db->QuadTreeQueryInfo(low32(qtnID));
    if (!node.valid())
        return;
    const std::string id = std::to_string(low32(objID));
    std::vector<std::string> kept;
    for (const std::string& piece : splitIdList(node->objectIDs))
        if (piece != id)
            kept.push_back(piece);
    node->objectIDs = joinIdList(kept);
    db->QuadTreeUpdateInfo(node.get());
}

// ---------------------------------------------------------------------------
// Enterprises

void CObjManager::GetQtnEnterVec(std::vector<std::int64_t>& out)
{
    out = qtnEnterVec;
}

std::map<int, int> CObjManager::getEnterIDMap() const
{
    return enterIDMap;
}

bool CObjManager::isEnterTerrain(int enterID) const
{
    const auto it = enterIDMap.find(enterID);
    return it != enterIDMap.end() && it->second == 1;
}

void CObjManager::UpdateMappingMat() {}

// ---------------------------------------------------------------------------
// The id lists

bool CObjManager::GetEditModelData(std::int64_t objID, modeData& out)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    for (const modeData& entry : editList)
    {
        if (entry.objID == objID)
        {
            out = entry;
            return true;
        }
    }
    return false;
}

void CObjManager::AddOrChangeEditObjId(modeData data)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    for (modeData& entry : editList)
    {
        if (entry.objID == data.objID)
        {
            entry.pos = data.pos;
            entry.angle = data.angle;
            entry.scale = data.scale;
            return;
        }
    }
    editList.push_back(data);
}

void CObjManager::RemoveEditObjId(std::int64_t objID)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    const auto it = std::find_if(editList.begin(), editList.end(), [&](const modeData& e) { return e.objID == objID; });
    if (it != editList.end())
        editList.erase(it);
}

bool CObjManager::ObjIsEdit(std::int64_t objID)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    return std::any_of(editList.begin(), editList.end(), [&](const modeData& e) { return e.objID == objID; });
}

void CObjManager::AddHideObjId(std::int64_t objID)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    if (std::find(hideList.begin(), hideList.end(), objID) == hideList.end())
        hideList.push_back(objID);
}

void CObjManager::AddHideObjId(const std::vector<std::int64_t>& ids)
{
    for (std::int64_t id : ids)
        AddHideObjId(id);
}

void CObjManager::removeHideObjId(const std::vector<std::int64_t>& ids)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    for (auto it = hideList.begin(); it != hideList.end();)
    {
        if (std::find(ids.begin(), ids.end(), *it) != ids.end())
        {
            it = hideList.erase(it);
            // The walk steps on all the same: the element that moved into
            // the erased place is passed over.
            if (it == hideList.end())
                break;
        }
        ++it;
    }
}

bool CObjManager::isHideObject(std::int64_t objID)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    return std::find(hideList.begin(), hideList.end(), objID) != hideList.end();
}

std::vector<std::int64_t> CObjManager::GetHideObjs()
{
    std::lock_guard<std::mutex> lock(_listMutex);
    return hideList;
}

void CObjManager::ClearAllHideObjs()
{
    std::lock_guard<std::mutex> lock(_listMutex);
    hideList.clear();
}

namespace
{

bool removeFirst(std::vector<std::int64_t>& list, std::int64_t id)
{
    const auto it = std::find(list.begin(), list.end(), id);
    if (it == list.end())
        return false;
    list.erase(it);
    return true;
}

bool contains(const std::vector<std::int64_t>& list, int id)
{
    // The 32-bit argument compared with the sign-extended value.
    return std::find(list.begin(), list.end(), static_cast<std::int64_t>(id)) != list.end();
}

} // namespace

bool CObjManager::AddHighLightObj(std::int64_t objID)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    highlightList.push_back(objID);
    return true;
}

bool CObjManager::GetHightLightObj(std::vector<std::int64_t>& out)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    out = highlightList;
    return true;
}

bool CObjManager::DelHighLightObj(std::int64_t objID)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    return removeFirst(highlightList, objID);
}

bool CObjManager::ClearHighLightObjList()
{
    std::lock_guard<std::mutex> lock(_listMutex);
    highlightList.clear();
    return true;
}

bool CObjManager::isModelHighlight(int objID)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    return contains(highlightList, objID);
}

bool CObjManager::AddColorObj(std::int64_t objID)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    colorList.push_back(objID);
    return true;
}

bool CObjManager::GetColorObj(std::vector<std::int64_t>& out)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    out = colorList;
    return true;
}

bool CObjManager::DelColorObj(std::int64_t objID)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    return removeFirst(colorList, objID);
}

bool CObjManager::ClearColorObjList()
{
    std::lock_guard<std::mutex> lock(_listMutex);
    colorList.clear();
    return true;
}

bool CObjManager::isModelColor(int objID)
{
    std::lock_guard<std::mutex> lock(_listMutex);
    return contains(colorList, objID);
}

void CObjManager::setPipeVisibile(std::string, int, int) {}

void CObjManager::setVisibleByID(std::int64_t, int) {}

CObjManager* GetObjManager()
{
    // Made on the first call, whichever thread makes it.
    static const osg::ref_ptr<CObjManager> s_manager = new CObjManager;
    return s_manager.get();
}

} // namespace OBJManage
