#include "Progress.h"

#include <numeric>
#include <ostream>
#include <sstream>

namespace cxtiler
{

void Progress::begin(const std::string& title, const std::vector<long>& tilesPerLevel)
{
    _title = title;
    _total = tilesPerLevel;
    _done.assign(tilesPerLevel.size(), 0);
}

bool Progress::tileDone(int level)
{
    if (level >= 0 && static_cast<std::size_t>(level) < _done.size())
        ++_done[level];
    return true;
}

void Progress::end() {}

long Progress::doneTiles() const { return std::accumulate(_done.begin(), _done.end(), 0L); }

long Progress::totalTiles() const { return std::accumulate(_total.begin(), _total.end(), 0L); }

TerminalProgress::TerminalProgress(std::ostream& out, bool interactive) : _line(out, interactive) {}

std::string TerminalProgress::statusLine() const
{
    std::ostringstream line;
    const long total = totalTiles();
    line << _title << ": " << doneTiles() << "/" << total << " tiles";
    if (total > 0)
        line << " (" << doneTiles() * 100 / total << "%)";
    line << ' ';
    // Deep pyramids would not fit a terminal line: then only the levels at work and
    // the deepest one are listed.
    const bool compact = _total.size() > 8;
    for (std::size_t z = 0; z < _total.size(); ++z)
    {
        const bool working = _done[z] > 0 && _done[z] < _total[z];
        if (!compact || working || z + 1 == _total.size())
            line << " z" << z << " " << _done[z] << "/" << _total[z];
    }
    return line.str();
}

void TerminalProgress::begin(const std::string& title, const std::vector<long>& tilesPerLevel)
{
    Progress::begin(title, tilesPerLevel);
    _line.start();
    _line.out() << title << ": " << tilesPerLevel.size() << " levels (0-" << tilesPerLevel.size() - 1 << "), "
                << totalTiles() << " tiles\n";
    _line.redraw(statusLine(), true);
}

bool TerminalProgress::tileDone(int level)
{
    Progress::tileDone(level);
    if (_line.interactive())
    {
        // Always drawn for the last tile.
        _line.redraw(statusLine(), doneTiles() == totalTiles());
        return true;
    }
    if (level >= 0 && static_cast<std::size_t>(level) < _done.size() && _done[level] == _total[level])
        _line.out() << "  level " << level << " done: " << _total[level] << " tiles\n";
    if (const int tenth = _line.tenthReached(doneTiles(), totalTiles()))
        _line.out() << "  " << tenth * 10 << "% (" << doneTiles() << "/" << totalTiles() << " tiles)\n";
    return true;
}

void TerminalProgress::end()
{
    if (_line.interactive())
        _line.out() << '\r' << statusLine() << '\n';
    _line.out() << _title << ": " << doneTiles() << " tiles in " << _line.elapsed() << '\n' << std::flush;
}

} // namespace cxtiler
