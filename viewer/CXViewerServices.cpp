// Pipe visibility table and the small one-line services of the viewer.
#include <viewer/CXViewer>

std::map<std::string, PIPEVISIBLETABLE> CXViewer::getPipeVisilbeMap()
{
    return pipeVisibleMap;
}

void CXViewer::setPipeVisible(std::string name, bool pipe, bool lid, bool lip)
{
    PIPEVISIBLETABLE& entry = pipeVisibleMap[name];
    entry.pipeVisible = pipe;
    entry.lidVisible = lid;
    entry.lipVisible = lip;
}

bool CXViewer::getPipeVisible(std::string name, PIPEVISIBLETABLE& out)
{
    const auto it = pipeVisibleMap.find(name);
    if (it == pipeVisibleMap.end())
        return false;
    out = it->second;
    return true;
}

// The one-flag forms change existing entries only; they never insert.
void CXViewer::setPipeVisible(std::string name, bool visible)
{
    const auto it = pipeVisibleMap.find(name);
    if (it != pipeVisibleMap.end())
        it->second.pipeVisible = visible;
}

void CXViewer::setPipeLidVisible(std::string name, bool visible)
{
    const auto it = pipeVisibleMap.find(name);
    if (it != pipeVisibleMap.end())
        it->second.lidVisible = visible;
}

void CXViewer::setPipeLipVisible(std::string name, bool visible)
{
    const auto it = pipeVisibleMap.find(name);
    if (it != pipeVisibleMap.end())
        it->second.lipVisible = visible;
}

void CXViewer::startshanshuo(int state)
{
    shanshuoState = state;
}

bool CXViewer::isTerrainGroup(int id)
{
    // The host is expected to have stored the object manager; without it no
    // enterprise is known, so none is terrain.
    return objManager.valid() && objManager->isEnterTerrain(id);
}
