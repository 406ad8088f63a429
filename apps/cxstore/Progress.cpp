#include "Progress.h"

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

TerminalProgress::TerminalProgress(std::ostream& out, bool interactive) : _line(out, interactive) {}

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
    _line.start();
    _line.redraw(statusLine(), true);
}

void TerminalProgress::advance(long count)
{
    const long before = _done;
    Progress::advance(count);
    // The clock is read once per 1024 steps at most: a step may be one row.
    if (_done / 1024 == before / 1024 && _done != _total)
        return;
    if (_line.interactive())
        _line.redraw(statusLine(), _done == _total);
    else if (_line.tenthReached(_done, _total))
        _line.out() << "  " << statusLine() << '\n';
}

void TerminalProgress::end()
{
    if (_line.interactive())
        _line.out() << '\r';
    _line.out() << statusLine() << " in " << _line.elapsed() << '\n' << std::flush;
}

} // namespace cxstore
