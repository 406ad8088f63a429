#include "StatusLine.h"

#include <cstdio>
#include <ostream>

namespace cxtool
{

StatusLine::StatusLine(std::ostream& out, bool interactive) : _out(out), _interactive(interactive) {}

void StatusLine::start()
{
    _lastTenth = 0;
    _start = _lastDraw = std::chrono::steady_clock::now();
}

void StatusLine::redraw(const std::string& text, bool force)
{
    if (!_interactive)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (force || now - _lastDraw > std::chrono::milliseconds(50))
    {
        _out << '\r' << text << std::flush;
        _lastDraw = now;
    }
}

int StatusLine::tenthReached(long done, long total)
{
    const int tenth = total > 0 ? static_cast<int>(done * 10 / total) : 10;
    if (tenth <= _lastTenth || tenth >= 10)
        return 0;
    _lastTenth = tenth;
    return tenth;
}

std::string StatusLine::elapsed() const
{
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
    char text[32];
    std::snprintf(text, sizeof(text), "%.2f s", seconds);
    return text;
}

} // namespace cxtool
