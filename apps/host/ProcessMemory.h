// The resident memory of this process, as the tests and the timing tools
// watch it.
#ifndef CXVIEWER_APPS_PROCESSMEMORY_H
#define CXVIEWER_APPS_PROCESSMEMORY_H

namespace cxhost
{

/** Resident memory of this process in megabytes (VmRSS of
  * /proc/self/status); 0 where it cannot be read. */
double residentMegabytes();

} // namespace cxhost

#endif
