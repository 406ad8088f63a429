// The resident memory of this process, as the tests and the timing tools
// watch it.
#ifndef CXVIEWER_APPS_PROCESSMEMORY_H
#define CXVIEWER_APPS_PROCESSMEMORY_H

namespace cxhost
{

/** Resident memory of this process in megabytes (VmRSS of
  * /proc/self/status); 0 where it cannot be read. */
double residentMegabytes();

/** Makes the C library hand blocks of 128 KB and more back to the system as
  * soon as they are freed. Paging a globe allocates and frees such blocks
  * all the time (decoded tiles, tile images, the software rasterizer's
  * textures); glibc's default threshold rises after the first large block is
  * freed, keeps later ones in the heap, and the heap then stays at its peak:
  * a process that once held many tiles keeps that much resident. A host
  * calls this once, before it starts the viewer. */
void keepLargeBlocksOutOfTheHeap();

} // namespace cxhost

#endif
