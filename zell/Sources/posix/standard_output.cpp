#include "zell/Sources/standard_output.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

namespace zell {

void WriteToStandardOutput(std::string_view text) noexcept {
    // A closed terminal or pipe must not end the show: the signal would.
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);

    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            pollfd room{STDOUT_FILENO, POLLOUT, 0};
            poll(&room, 1, -1);
        } else if (errno != EINTR) {
            return;
        }
    }
}

}  // namespace zell
