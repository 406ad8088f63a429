#include "CountingCommand.h"

#include <objects/CommandQueue>

#include <gtest/gtest.h>

#include <thread>

using cxtest::CountingCommand;
using OBJManage::CommandQueue;

TEST(CommandQueue, TakeAllSwapsOutAndClearsTheTarget)
{
    CommandQueue queue;
    osg::ref_ptr<CountingCommand> a = new CountingCommand;
    queue.push(a.get());
    queue.push(nullptr);
    std::vector<osg::ref_ptr<OBJManage::command>> out;
    out.push_back(new CountingCommand);
    queue.takeAll(out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].get(), a.get());
    EXPECT_EQ(out[1].get(), nullptr);
    EXPECT_EQ(queue.size(), 0u);
}

TEST(CommandQueue, RunsAgainWhileExecuteAsksThenFinishesOnce)
{
    CommandQueue queue;
    osg::ref_ptr<CountingCommand> cmd = new CountingCommand({true, true, false});
    queue.push(cmd.get());
    for (int frame = 0; frame < 5; ++frame)
        queue.process();
    EXPECT_EQ(cmd->executes, 3);
    EXPECT_EQ(cmd->finishes, 1);
    EXPECT_EQ(queue.size(), 0u);
}

TEST(CommandQueue, RequeuedCommandStaysBehindThoseWaiting)
{
    CommandQueue queue;
    std::vector<int> order;
    osg::ref_ptr<CountingCommand> first = new CountingCommand({true}, &order, 1);
    osg::ref_ptr<CountingCommand> second = new CountingCommand({}, &order, 2);
    queue.push(first.get());
    queue.push(second.get());
    // A command pushed while the pass runs waits for the next pass; the
    // re-queued first command went back before it.
    osg::ref_ptr<CountingCommand> third = new CountingCommand({}, &order, 3);
    second->onExecute = [&] { queue.push(third.get()); };
    queue.process();
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
    queue.process();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 1, 3}));
}

TEST(CommandQueue, NullEntryIsDropped)
{
    CommandQueue queue;
    osg::ref_ptr<CountingCommand> cmd = new CountingCommand;
    queue.push(nullptr);
    queue.push(cmd.get());
    queue.process();
    EXPECT_EQ(cmd->executes, 1);
    EXPECT_EQ(queue.size(), 0u);
}

TEST(CommandQueue, ThrowingCommandDisappearsAndTheRestRun)
{
    CommandQueue queue;
    osg::ref_ptr<CountingCommand> bad = new CountingCommand({true});
    bad->throwOnExecute = true;
    osg::ref_ptr<CountingCommand> badFinish = new CountingCommand;
    badFinish->throwOnFinish = true;
    osg::ref_ptr<CountingCommand> good = new CountingCommand;
    queue.push(bad.get());
    queue.push(badFinish.get());
    queue.push(good.get());
    queue.process();
    EXPECT_EQ(bad->executes, 1);
    EXPECT_EQ(bad->finishes, 0);
    EXPECT_EQ(badFinish->finishes, 1);
    EXPECT_EQ(good->executes, 1);
    EXPECT_EQ(good->finishes, 1);
    EXPECT_EQ(queue.size(), 0u);
    queue.process();
    EXPECT_EQ(bad->executes, 1);
    // Only the queue's references went; ours keep the commands alive.
    EXPECT_EQ(bad->referenceCount(), 1);
}

TEST(CommandQueue, PushFromManyThreads)
{
    CommandQueue queue;
    constexpr int perThread = 2000;
    std::vector<osg::ref_ptr<CountingCommand>> commands;
    for (int i = 0; i < 4 * perThread; ++i)
        commands.push_back(new CountingCommand);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < perThread; ++i)
                queue.push(commands[t * perThread + i].get());
        });
    int executed = 0;
    while (executed < 4 * perThread)
    {
        std::vector<osg::ref_ptr<OBJManage::command>> taken;
        queue.takeAll(taken);
        for (auto& c : taken)
            executed += c->execute() ? 0 : 1;
    }
    for (auto& t : threads)
        t.join();
    for (auto& c : commands)
        EXPECT_EQ(c->executes, 1);
}

TEST(CommandQueue, DroppedWithoutFinish)
{
    osg::ref_ptr<CountingCommand> cmd = new CountingCommand;
    {
        CommandQueue queue;
        queue.push(cmd.get());
        EXPECT_EQ(cmd->referenceCount(), 2);
    }
    EXPECT_EQ(cmd->referenceCount(), 1);
    EXPECT_EQ(cmd->finishes, 0);
}
