// The progress line of a long tool run on its terminal: an interactive
// terminal gets one line rewritten in place at most 20 times a second; a log
// gets a line at each tenth of the work; both get the time of a finished
// stage.
#ifndef CXTOOL_STATUSLINE_H
#define CXTOOL_STATUSLINE_H

#include <chrono>
#include <iosfwd>
#include <string>

namespace cxtool
{

class StatusLine
{
public:
    StatusLine(std::ostream& out, bool interactive);

    std::ostream& out() { return _out; }
    bool interactive() const { return _interactive; }

    /** A stage starts: its clock, and no tenth reached yet. */
    void start();
    /** On an interactive terminal, rewrites the line with `text`, unless it
      * was drawn less than 50 ms ago and `force` is false. */
    void redraw(const std::string& text, bool force);
    /** The tenth of the work (1 to 9) that `done` of `total` has just
      * reached, once each; 0 otherwise. */
    int tenthReached(long done, long total);
    /** The time since start(), as "1.23 s". */
    std::string elapsed() const;

private:
    std::ostream& _out;
    bool _interactive;
    int _lastTenth = 0;
    std::chrono::steady_clock::time_point _start;
    std::chrono::steady_clock::time_point _lastDraw;
};

} // namespace cxtool

#endif
