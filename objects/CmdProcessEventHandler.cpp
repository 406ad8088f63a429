#include <objects/CmdProcessEventHandler>

#include <viewer/CXViewer>

namespace OBJManage
{

CmdProcessEventHandler::CmdProcessEventHandler() = default;
CmdProcessEventHandler::~CmdProcessEventHandler() = default;

bool CmdProcessEventHandler::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter&,
                                    osg::Object*, osg::NodeVisitor*)
{
    if (ea.getHandled())
        return false;
    if (ea.getEventType() != osgGA::GUIEventAdapter::FRAME)
        return false;
    if (g_pCXviewer)
        g_pCXviewer->commandQueue.process();
    return false;
}

CmdProcessEventHandler* CmdProcessEventHandler::instance(bool drop)
{
    static osg::ref_ptr<CmdProcessEventHandler> s_handler;
    if (drop)
    {
        s_handler = nullptr;
        return nullptr;
    }
    if (!s_handler.valid())
        s_handler = new CmdProcessEventHandler;
    return s_handler.get();
}

} // namespace OBJManage
