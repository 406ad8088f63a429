// What "cxstore info" reports: the enterprises of a store and the size of each
// one's quadtree, read through the viewer's own SQLiteDBManager.
#ifndef CXSTORE_STOREINFO_H
#define CXSTORE_STOREINFO_H

#include <iosfwd>
#include <string>
#include <vector>

namespace cxstore
{

struct EnterpriseInfo
{
    int enterID = 0;
    int enterType = 0;
    int rootQtnID = 0;
    bool rootFound = false;
    long nodes = 0;          ///< nodes reached from the root
    long missingNodes = 0;   ///< child ids without a node
    long objects = 0;        ///< object ids on the nodes (empty pieces skipped)
    long missingObjects = 0; ///< of those, ids without an object row
    int levels = 0;          ///< depth of the deepest node plus one
};

struct StoreInfo
{
    std::vector<EnterpriseInfo> enterprises;
    long nodes = 0;
    long objects = 0;
};

/** Walks every enterprise's tree from its root (each node once, whatever the
  * child lists say). Throws Error when `path` is not a store. */
StoreInfo readStoreInfo(const std::string& path);

/** The report, one line per enterprise after a line of totals. */
void printStoreInfo(const StoreInfo& info, const std::string& path, std::ostream& out);

/** The ids of a comma-separated list as the viewer reads them: empty pieces
  * skipped, each piece read as a 64-bit decimal and cut to 32 bits. */
std::vector<int> parseIdList(const std::string& text);

} // namespace cxstore

#endif
