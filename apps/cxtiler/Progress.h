// Progress of a pyramid build: how many tiles of each level are done.
#ifndef CXTILER_PROGRESS_H
#define CXTILER_PROGRESS_H

#include "StatusLine.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace cxtiler
{

class Progress
{
public:
    virtual ~Progress() = default;

    /** A build starts; `tilesPerLevel[z]` tiles will be made at level z. */
    virtual void begin(const std::string& title, const std::vector<long>& tilesPerLevel);
    /** One tile of `level` is stored. Returning false cancels the build. */
    virtual bool tileDone(int level);
    /** The build is complete (not called for a failed or cancelled build). */
    virtual void end();

    const std::vector<long>& done() const { return _done; }
    const std::vector<long>& total() const { return _total; }
    long doneTiles() const;
    long totalTiles() const;

protected:
    std::string _title;
    std::vector<long> _done;
    std::vector<long> _total;
};

/**
 * Progress on a terminal. Interactive terminals get one line rewritten in place
 * ("imagery: 120/341 tiles (35%)  z0 0/1  z1 1/4 ...", only the levels at work
 * and the deepest for more than eight levels); logs get a line per tenth of the
 * work and one per finished level.
 */
class TerminalProgress : public Progress
{
public:
    TerminalProgress(std::ostream& out, bool interactive);

    void begin(const std::string& title, const std::vector<long>& tilesPerLevel) override;
    bool tileDone(int level) override;
    void end() override;

private:
    std::string statusLine() const;

    cxtool::StatusLine _line;
};

} // namespace cxtiler

#endif
