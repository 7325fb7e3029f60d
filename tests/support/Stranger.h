#pragma once

#include <functional>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace TestSupport {

inline constexpr uid_t nobody = 65534;

/// What `work` returns, 0 to 100, as a process of user nobody; negative when there can be none.
/// Needs root.
inline int asNobody(const std::function<int()>& work) {
    const pid_t process = fork();
    if (process == 0) {
        _exit(setgid(nobody) == 0 && setuid(nobody) == 0 ? work() : 101);
    }
    int status = 0;
    waitpid(process, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) <= 100 ? WEXITSTATUS(status) : -1;
}

} // namespace TestSupport
