// RunHostProgram: the host program run as a user runs it, for tests of its
// commands. The test's build names the program in QEL_HOST_PROGRAM.
//
// Threads: the calling thread; the program's output is read to its end.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

#ifndef QEL_HOST_PROGRAM
#error "QEL_HOST_PROGRAM must name the host program"
#endif

namespace Orvan::Testing {

// `qel-host ARGUMENTS`: its exit status (-1 when it did not exit) and, in
// `output`, what it printed on both streams.
inline int RunHostProgram(const std::string& arguments, std::string& output) {
    const std::string command = std::string(QEL_HOST_PROGRAM) + " " + arguments + " 2>&1";
    std::FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return -1;
    }
    char buffer[4096];
    for (size_t read; (read = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        output.append(buffer, read);
    }
    const int status = ::pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace Orvan::Testing
