// Processes that sleep, for a server to list.
//
// Usage: moncl_sleeping_processes COUNT
//
// Prints the count that it started, and ends them all when it is ended or its input does.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/prctl.h>
#include <unistd.h>

int main(int argc, char** argv) {
    const int wanted = argc == 2 ? std::clamp(std::atoi(argv[1]), 0, 30000) : 0;
    const pid_t parent = getpid();
    int started = 0;
    for (; started < wanted; ++started) {
        const pid_t child = fork();
        if (child == -1)
            break;
        if (child > 0)
            continue;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        while (getppid() == parent)
            pause();
        _exit(0);
    }
    std::printf("%d\n", started);
    std::fflush(stdout);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    return started == wanted ? 0 : 1;
}
