// Writing an object store from a checked objects table: one enterprise per
// enterID, one object per row with its property text, one quadtree per
// enterprise. The store is written to a temporary file beside the target and
// renamed onto it once complete, so the target never holds half a store.
#ifndef CXSTORE_STOREBUILD_H
#define CXSTORE_STOREBUILD_H

#include "ObjectCsv.h"

#include <string>

namespace cxstore
{

class Progress;

struct BuildOptions
{
    unsigned int leafCapacity = 64; ///< most objects on a quadtree leaf
    double viewDistance = 6000.0;   ///< metres beyond a cell from which its objects page in
};

struct BuildSummary
{
    long objects = 0;
    long enterprises = 0;
    long nodes = 0;
    int levels = 0; ///< of the deepest tree
};

/** Writes `table` as the store `path` (an existing file is replaced). Throws
  * Error when the output cannot be written; nothing is left behind then. */
BuildSummary writeStore(const ObjectTable& table, const std::string& path, const BuildOptions& options,
                        Progress& progress);

/** readObjectCsv, then writeStore: what "cxstore build" does. */
BuildSummary buildStore(const std::string& csvPath, const std::string& storePath, const BuildOptions& options,
                        Progress& progress);

} // namespace cxstore

#endif
