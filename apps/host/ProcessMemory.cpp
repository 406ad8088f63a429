#include "ProcessMemory.h"

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

} // namespace cxhost
