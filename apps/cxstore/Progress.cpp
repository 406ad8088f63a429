#include "Progress.h"

#include <cstdio>
#include <ostream>
#include <sstream>

namespace cxstore
{

void Progress::begin(const std::string& stage, long total, const std::string& unit)
{
    _stage = stage;
    _unit = unit;
    _total = total;
    _done = 0;
}

void Progress::advance(long count) { _done += count; }

void Progress::end() {}

TerminalProgress::TerminalProgress(std::ostream& out, bool interactive) : _out(out), _interactive(interactive) {}

std::string TerminalProgress::statusLine() const
{
    std::ostringstream line;
    line << _stage << ": " << _done << "/" << _total << " " << _unit;
    if (_total > 0)
        line << " (" << _done * 100 / _total << "%)";
    return line.str();
}

void TerminalProgress::begin(const std::string& stage, long total, const std::string& unit)
{
    Progress::begin(stage, total, unit);
    _lastTenth = 0;
    _start = _lastDraw = std::chrono::steady_clock::now();
    if (_interactive)
        _out << statusLine() << std::flush;
}

void TerminalProgress::advance(long count)
{
    const long before = _done;
    Progress::advance(count);
    // The clock is read once per 1024 steps at most: a step may be one row.
    if (_done / 1024 == before / 1024 && _done != _total)
        return;
    if (_interactive)
    {
        const auto now = std::chrono::steady_clock::now();
        if (now - _lastDraw > std::chrono::milliseconds(50) || _done == _total)
        {
            _out << '\r' << statusLine() << std::flush;
            _lastDraw = now;
        }
        return;
    }
    const int tenth = _total > 0 ? static_cast<int>(_done * 10 / _total) : 10;
    if (tenth > _lastTenth && tenth < 10)
    {
        _lastTenth = tenth;
        _out << "  " << statusLine() << '\n';
    }
}

void TerminalProgress::end()
{
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
    char elapsed[32];
    std::snprintf(elapsed, sizeof(elapsed), "%.2f s", seconds);
    if (_interactive)
        _out << '\r';
    _out << statusLine() << " in " << elapsed << '\n' << std::flush;
}

} // namespace cxstore
