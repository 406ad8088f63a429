#include "ProcessMemory.h"

#include <malloc.h>

#include <fstream>
#include <string>

namespace cxhost
{

double residentMegabytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stod(line.substr(6)) / 1024.0;
    return 0.0;
}

void keepLargeBlocksOutOfTheHeap()
{
    // Setting the threshold also turns its dynamic adjustment off.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
}

} // namespace cxhost
