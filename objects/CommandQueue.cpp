#include <objects/CommandQueue>

namespace OBJManage
{

CommandQueue::CommandQueue() = default;

CommandQueue::CommandQueue(const CommandQueue& rhs)
{
    std::lock_guard<std::mutex> lock(rhs._mutex);
    _commands = rhs._commands;
}

CommandQueue& CommandQueue::operator=(const CommandQueue& rhs)
{
    if (this == &rhs)
        return *this;
    std::vector<osg::ref_ptr<command>> copy;
    {
        std::lock_guard<std::mutex> lock(rhs._mutex);
        copy = rhs._commands;
    }
    std::lock_guard<std::mutex> lock(_mutex);
    _commands.swap(copy);
    return *this;
}

CommandQueue::~CommandQueue() = default;

void CommandQueue::push(command* cmd)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _commands.push_back(cmd);
}

void CommandQueue::takeAll(std::vector<osg::ref_ptr<command>>& out)
{
    out.clear();
    std::lock_guard<std::mutex> lock(_mutex);
    _commands.swap(out);
    _commands.clear();
}

std::size_t CommandQueue::size() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _commands.size();
}

void CommandQueue::process()
{
    // From here on the lock is free: commands pushed while these run wait for
    // the next pass.
    std::vector<osg::ref_ptr<command>> pending;
    takeAll(pending);
    for (const osg::ref_ptr<command>& cmd : pending)
    {
        if (!cmd.valid())
            continue;
        try
        {
            if (cmd->execute())
                push(cmd.get());
            else
                cmd->finish();
        }
        catch (...)
        {
            // A failing command is neither finished nor queued again.
        }
    }
}

} // namespace OBJManage
