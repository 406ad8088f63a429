#include "Progress.h"

#include <cstdio>
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

TerminalProgress::TerminalProgress(std::ostream& out, bool interactive) : _out(out), _interactive(interactive) {}

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
    _lastTenth = 0;
    _start = _lastDraw = std::chrono::steady_clock::now();
    _out << title << ": " << tilesPerLevel.size() << " levels (0-" << tilesPerLevel.size() - 1 << "), "
         << totalTiles() << " tiles\n";
    if (_interactive)
        _out << statusLine() << std::flush;
}

bool TerminalProgress::tileDone(int level)
{
    Progress::tileDone(level);
    const auto now = std::chrono::steady_clock::now();
    if (_interactive)
    {
        // Redraw at most 20 times a second, and always for the last tile.
        if (now - _lastDraw > std::chrono::milliseconds(50) || doneTiles() == totalTiles())
        {
            _out << '\r' << statusLine() << std::flush;
            _lastDraw = now;
        }
        return true;
    }
    if (level >= 0 && static_cast<std::size_t>(level) < _done.size() && _done[level] == _total[level])
        _out << "  level " << level << " done: " << _total[level] << " tiles\n";
    const long total = totalTiles();
    const int tenth = total > 0 ? static_cast<int>(doneTiles() * 10 / total) : 10;
    if (tenth > _lastTenth && tenth < 10)
    {
        _lastTenth = tenth;
        _out << "  " << tenth * 10 << "% (" << doneTiles() << "/" << total << " tiles)\n";
    }
    return true;
}

void TerminalProgress::end()
{
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
    char elapsed[32];
    std::snprintf(elapsed, sizeof(elapsed), "%.2f s", seconds);
    if (_interactive)
        _out << '\r' << statusLine() << '\n';
    _out << _title << ": " << doneTiles() << " tiles in " << elapsed << '\n' << std::flush;
}

} // namespace cxtiler
