#include "ZelctlRun.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

namespace {

std::string drain(int fd) {
    std::string text;
    char buffer[4096];
    ssize_t count;
    while ((count = read(fd, buffer, sizeof(buffer))) > 0) text.append(buffer, static_cast<size_t>(count));
    close(fd);
    return text;
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::string::size_type start = 0;
    while (start < text.size()) {
        const auto end = text.find('\n', start);
        lines.push_back(text.substr(start, end - start));
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return lines;
}

}  // namespace

ZelctlRun ZelctlRun::run(const std::vector<std::string>& args) {
    int outPipe[2];
    int errPipe[2];
    ZelctlRun result;
    if (pipe2(outPipe, O_CLOEXEC) != 0) return result;
    if (pipe2(errPipe, O_CLOEXEC) != 0) {
        close(outPipe[0]);
        close(outPipe[1]);
        return result;
    }
    std::vector<char*> argv{const_cast<char*>(ZELCTL_PATH)};
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);

    const pid_t pid = fork();
    if (pid == 0) {
        dup2(outPipe[1], STDOUT_FILENO);
        dup2(errPipe[1], STDERR_FILENO);
        execv(ZELCTL_PATH, argv.data());
        _exit(127);
    }
    close(outPipe[1]);
    close(errPipe[1]);
    // Both pipes are drained at once so a full one cannot stall the child.
    std::thread errReader([&] { result.err = drain(errPipe[0]); });
    result.out = drain(outPipe[0]);
    errReader.join();
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
        result.status = WEXITSTATUS(status);
    }
    return result;
}

std::vector<std::string> ZelctlRun::outLines() const { return splitLines(out); }

std::vector<std::string> ZelctlRun::warnings() const {
    std::vector<std::string> found;
    for (const std::string& line : outLines()) {
        if (line.rfind("warning: ", 0) == 0) found.push_back(line);
    }
    return found;
}
