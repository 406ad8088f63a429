#include "CountingCommand.h"

#include <objects/CmdProcessEventHandler>
#include <viewer/CXViewer>

#include <gtest/gtest.h>
#include <osgViewer/View>

using cxtest::CountingCommand;
using OBJManage::CmdProcessEventHandler;

namespace
{

class CmdProcessEventHandlerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        viewer = new CXViewer(0);
        handler = CmdProcessEventHandler::instance(false);
        view = new osgViewer::View;
    }
    void TearDown() override
    {
        CmdProcessEventHandler::instance(true);
        viewer = nullptr;
    }

    bool send(osgGA::GUIEventAdapter::EventType type, bool handled = false)
    {
        osg::ref_ptr<osgGA::GUIEventAdapter> event = new osgGA::GUIEventAdapter;
        event->setEventType(type);
        event->setHandled(handled);
        const bool result = handler->handle(*event, *view, nullptr, nullptr);
        EXPECT_EQ(event->getHandled(), handled);
        return result;
    }

    osg::ref_ptr<CXViewer> viewer;
    osg::ref_ptr<CmdProcessEventHandler> handler;
    osg::ref_ptr<osgViewer::View> view;
};

} // namespace

TEST_F(CmdProcessEventHandlerTest, InstanceIsOneHandlerUntilDropped)
{
    EXPECT_EQ(CmdProcessEventHandler::instance(false), handler.get());
    EXPECT_EQ(CmdProcessEventHandler::instance(true), nullptr);
    // Our reference keeps the old one alive; a new call makes a new one.
    CmdProcessEventHandler* fresh = CmdProcessEventHandler::instance(false);
    EXPECT_NE(fresh, nullptr);
    EXPECT_NE(fresh, handler.get());
}

TEST_F(CmdProcessEventHandlerTest, EmptyQueueFrameDoesNothingAndStaysUnhandled)
{
    EXPECT_FALSE(send(osgGA::GUIEventAdapter::FRAME));
    EXPECT_EQ(viewer->commandQueue.size(), 0u);
}

TEST_F(CmdProcessEventHandlerTest, HandledEventDoesNotDrain)
{
    osg::ref_ptr<CountingCommand> cmd = new CountingCommand;
    viewer->commandQueue.push(cmd.get());
    EXPECT_FALSE(send(osgGA::GUIEventAdapter::FRAME, true));
    EXPECT_EQ(cmd->executes, 0);
    EXPECT_EQ(viewer->commandQueue.size(), 1u);
}

TEST_F(CmdProcessEventHandlerTest, MouseAndKeyEventsDoNotDrain)
{
    osg::ref_ptr<CountingCommand> cmd = new CountingCommand;
    viewer->commandQueue.push(cmd.get());
    for (auto type : {osgGA::GUIEventAdapter::PUSH, osgGA::GUIEventAdapter::RELEASE, osgGA::GUIEventAdapter::DRAG,
                      osgGA::GUIEventAdapter::MOVE, osgGA::GUIEventAdapter::KEYDOWN, osgGA::GUIEventAdapter::KEYUP,
                      osgGA::GUIEventAdapter::SCROLL, osgGA::GUIEventAdapter::RESIZE})
        EXPECT_FALSE(send(type));
    EXPECT_EQ(cmd->executes, 0);
}

TEST_F(CmdProcessEventHandlerTest, CommandAskingTwiceRunsThreeFramesFinishesOnce)
{
    osg::ref_ptr<CountingCommand> cmd = new CountingCommand({true, true, false});
    viewer->commandQueue.push(cmd.get());
    for (int frame = 1; frame <= 4; ++frame)
    {
        EXPECT_FALSE(send(osgGA::GUIEventAdapter::FRAME));
        EXPECT_EQ(cmd->executes, std::min(frame, 3));
    }
    EXPECT_EQ(cmd->finishes, 1);
}

TEST_F(CmdProcessEventHandlerTest, NullEntryDroppedAndThrowingCommandDisappears)
{
    osg::ref_ptr<CountingCommand> bad = new CountingCommand({true});
    bad->throwOnExecute = true;
    osg::ref_ptr<CountingCommand> after = new CountingCommand;
    viewer->commandQueue.push(nullptr);
    viewer->commandQueue.push(bad.get());
    viewer->commandQueue.push(after.get());
    EXPECT_FALSE(send(osgGA::GUIEventAdapter::FRAME));
    EXPECT_EQ(after->executes, 1);
    EXPECT_EQ(after->finishes, 1);
    EXPECT_EQ(bad->finishes, 0);
    EXPECT_EQ(viewer->commandQueue.size(), 0u);
}

TEST_F(CmdProcessEventHandlerTest, NoViewerNoCrash)
{
    osg::ref_ptr<CountingCommand> cmd = new CountingCommand;
    viewer->commandQueue.push(cmd.get());
    osg::ref_ptr<CXViewer> keep = viewer;
    viewer = nullptr;
    g_pCXviewer = nullptr;
    EXPECT_FALSE(send(osgGA::GUIEventAdapter::FRAME));
    EXPECT_EQ(cmd->executes, 0);
}
