#include <objects/CObjManager>

namespace OBJManage
{

CObjManager::CObjManager() = default;

CObjManager::CObjManager(const CObjManager& rhs)
    : osg::Referenced(rhs),
      buildingGroup(rhs.buildingGroup),
      pipeGroup(rhs.pipeGroup),
      terrainGroup(rhs.terrainGroup),
      enterIDMap(rhs.enterIDMap)
{
}

CObjManager& CObjManager::operator=(const CObjManager& rhs)
{
    osg::Referenced::operator=(rhs);
    buildingGroup = rhs.buildingGroup;
    pipeGroup = rhs.pipeGroup;
    terrainGroup = rhs.terrainGroup;
    enterIDMap = rhs.enterIDMap;
    return *this;
}

CObjManager::~CObjManager() = default;

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

CObjManager* GetObjManager()
{
    static osg::ref_ptr<CObjManager> s_manager;
    if (!s_manager.valid())
        s_manager = new CObjManager;
    return s_manager.get();
}

} // namespace OBJManage
