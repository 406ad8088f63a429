#include "Xvfb.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace cxtest
{
namespace
{
std::string g_display;
}

const std::string& XvfbEnvironment::display()
{
    return g_display;
}

void XvfbEnvironment::SetUp()
{
    if (const char* existing = std::getenv("DISPLAY"); existing && *existing)
    {
        g_display = existing;
        return;
    }

    int fds[2];
    ASSERT_EQ(pipe(fds), 0) << std::strerror(errno);
    _pid = fork();
    ASSERT_GE(_pid, 0) << std::strerror(errno);
    if (_pid == 0)
    {
        close(fds[0]);
        const std::string fd = std::to_string(fds[1]);
        const int devnull = open("/dev/null", O_WRONLY);
        if (devnull >= 0)
        {
            dup2(devnull, STDOUT_FILENO);
            dup2(devnull, STDERR_FILENO);
        }
        execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1280x1024x24", "-nolisten", "tcp",
               "+extension", "GLX", "-noreset", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(fds[1]);

    // Xvfb writes the display number followed by a newline once it accepts
    // connections.
    std::string number;
    pollfd pfd{fds[0], POLLIN, 0};
    while (number.find('\n') == std::string::npos)
    {
        if (poll(&pfd, 1, 20000) <= 0)
            break;
        char buffer[32];
        const ssize_t n = read(fds[0], buffer, sizeof(buffer));
        if (n <= 0)
            break;
        number.append(buffer, static_cast<std::size_t>(n));
    }
    close(fds[0]);
    ASSERT_NE(number.find('\n'), std::string::npos) << "Xvfb did not start (is the xvfb package installed?)";
    number.erase(number.find('\n'));
    g_display = ":" + number;
    setenv("DISPLAY", g_display.c_str(), 1);
}

void XvfbEnvironment::TearDown()
{
    if (_pid <= 0)
        return;
    kill(_pid, SIGTERM);
    int status = 0;
    waitpid(_pid, &status, 0);
    _pid = -1;
    unsetenv("DISPLAY");
}

} // namespace cxtest
