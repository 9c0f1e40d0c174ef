// muxora serve: the live gateway.
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "gateway.h"
#include "options.h"

namespace {

using namespace Orvane::Muxora::Gateway;

constexpr std::chrono::seconds kSignsEvery{5};

// A client is a descriptor: as many as the system gives.
void RaiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

int Serve(const Options& options) {
    // Blocked in every thread, and waited for in this one.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);  // a limit on the size of files is an error of the write
    RaiseDescriptorLimit();
    StartLog(options.log, options.quiet);
    GatewayRun gateway(options);
    std::cout << gateway.Addresses() << std::flush;
    const bool terminal = isatty(STDERR_FILENO) == 1 && options.log == LogForm::kText && !options.quiet;
    for (;;) {
        const timespec every{kSignsEvery.count(), 0};
        const int signal = sigtimedwait(&ends, nullptr, &every);
        if (signal > 0) break;
        if (terminal) std::cerr << gateway.Signs();
    }
    LogInfo("ending");
    if (!gateway.End()) {
        LogWarning("an input does not come back");
        std::_Exit(0);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Options options;
        const int done = ReadOptions(argc, argv, options);
        return done >= 0 ? done : Serve(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "muxora serve: %s\n", error.what());
        return 1;
    } catch (...) {
        std::fputs("muxora serve: unexpected failure\n", stderr);
        return 1;
    }
}
