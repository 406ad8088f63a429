// Progress of a store build: one stage at a time ("reading", "objects", ...),
// each with a known amount of work.
#ifndef CXSTORE_PROGRESS_H
#define CXSTORE_PROGRESS_H

#include "StatusLine.h"

#include <iosfwd>
#include <string>

namespace cxstore
{

/** Counts the work of each stage and shows nothing: the quiet form, and the
  * base of the terminal form. */
class Progress
{
public:
    virtual ~Progress() = default;

    /** A stage starts with `total` steps of `unit` ("rows", "bytes", ...). */
    virtual void begin(const std::string& stage, long total, const std::string& unit);
    /** `count` more steps are done. */
    virtual void advance(long count = 1);
    /** The stage is complete (not called for a failed one). */
    virtual void end();

    const std::string& stage() const { return _stage; }
    long done() const { return _done; }
    long total() const { return _total; }

protected:
    std::string _stage;
    std::string _unit;
    long _done = 0;
    long _total = 0;
};

/**
 * Progress on a terminal. An interactive terminal gets one line per stage,
 * rewritten in place at most 20 times a second ("objects: 5200/100000 rows
 * (5%)"); a log gets a line per tenth of a long stage and one per finished
 * stage, with its time.
 */
class TerminalProgress : public Progress
{
public:
    TerminalProgress(std::ostream& out, bool interactive);

    void begin(const std::string& stage, long total, const std::string& unit) override;
    void advance(long count = 1) override;
    void end() override;

private:
    std::string statusLine() const;

    cxtool::StatusLine _line;
};

} // namespace cxstore

#endif
