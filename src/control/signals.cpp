// SPDX-License-Identifier: MIT
#include "control/signals.h"

#include <csignal>
#include <initializer_list>

#include "control/open_files.h"

namespace orvel {

// The signal comes once more, now to end the process as if nobody had handled it.
static void stopped(int signal) {
    remove_incomplete();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void handle_signals() {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    for (int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGXCPU})
        if (std::signal(signal, stopped) == SIG_IGN) // as nohup wants it
            std::signal(signal, SIG_IGN);
}

} // namespace orvel
