// Collects what OpenSceneGraph's notify stream says while it lives, with the
// level of each message, and puts the previous handler and level back.
#ifndef CXVIEWER_TESTS_NOTIFYCAPTURE_H
#define CXVIEWER_TESTS_NOTIFYCAPTURE_H

#include <osg/Notify>
#include <osg/ref_ptr>

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace cxtest
{

class NotifyCapture
{
public:
    /** Captures messages of `level` and more severe. */
    explicit NotifyCapture(osg::NotifySeverity level)
        : _handler(new Handler), _previousHandler(osg::getNotifyHandler()), _previousLevel(osg::getNotifyLevel())
    {
        osg::setNotifyLevel(level);
        osg::setNotifyHandler(_handler.get());
    }
    ~NotifyCapture()
    {
        osg::setNotifyHandler(_previousHandler.get());
        osg::setNotifyLevel(_previousLevel);
    }
    NotifyCapture(const NotifyCapture&) = delete;
    NotifyCapture& operator=(const NotifyCapture&) = delete;

    /** Messages of exactly `severity` that begin with `prefix`. */
    int count(osg::NotifySeverity severity, const std::string& prefix) const
    {
        std::lock_guard<std::mutex> lock(_handler->mutex);
        int n = 0;
        for (const auto& message : _handler->messages)
            if (message.first == severity && message.second.compare(0, prefix.size(), prefix) == 0)
                ++n;
        return n;
    }

    /** Everything, one message a line, for failure messages. */
    std::string all() const
    {
        std::lock_guard<std::mutex> lock(_handler->mutex);
        std::string text;
        for (const auto& message : _handler->messages)
            text += "[" + std::to_string(message.first) + "] " + message.second;
        return text;
    }

private:
    struct Handler : osg::NotifyHandler
    {
        void notify(osg::NotifySeverity severity, const char* message) override
        {
            std::lock_guard<std::mutex> lock(mutex);
            messages.emplace_back(severity, message ? message : "");
        }
        mutable std::mutex mutex;
        std::vector<std::pair<osg::NotifySeverity, std::string>> messages;
    };

    osg::ref_ptr<Handler> _handler;
    osg::ref_ptr<osg::NotifyHandler> _previousHandler;
    osg::NotifySeverity _previousLevel;
};

} // namespace cxtest

#endif
